// The module's load-time state. This unit is initialised first: the model-list paths, the query
// keys, then the registrar that stores the service path in the registry.
#include "vks_model_list_paths.h"

#include "app/parse_model/multi_task/query_keys.h"
#include "service_registry/service_interface.h"
#include "vks_log.h"

const std::string g_keyDeleteType = "DeleteType";
const std::string g_keyStartTime = "StartTime";
const std::string g_keyEndTime = "EndTime";
const std::string g_keyFindNum = "FindNum";
const std::string g_keyStartIndex = "StartIndex";
const std::string g_keyDatabaseType = "DatabaseType";
const std::string g_keyFirstAttri = "FirstAttri";
const std::string g_keySecondAttri = "SecondAttri";
const std::string g_keyLibId = "LibId";
const std::string g_keyChannelId = "ChannelId";
const std::string g_keyChannelGroup = "ChannelGroup";

// Registration completes during loading, so every handler sees the path without a start-up call.
static RegistService g_regist(VKS_SERVICE_NAME);

// The host may set the switch; the module only passes its value to every "[%s]:" debug line.
// Declared extern "C" in vks_log.h, so it is exported under its bare name.
__attribute__((visibility("default"))) int g_enITGTDebugFlag = 0;
