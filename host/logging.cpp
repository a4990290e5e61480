#include "logging.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstring>

#include "vw_log.h"

namespace vks_host {

namespace {
constexpr int kErrorLevel = 3;
}

int ConfigureLogging(int debugLevel, const std::string& oplogPath, std::string* err) {
    VW_SetLogLevel(debugLevel);
    if (!oplogPath.empty() && VW_SetOpLogFile(oplogPath.c_str()) != 0) {
        *err = "cannot open " + oplogPath + ": " + strerror(errno);
        return -1;
    }
    return 0;
}

void ApplyDebugSwitches(const ModuleTable& module, int debugLevel) {
    const int on = debugLevel < kErrorLevel ? 1 : 0;
    g_enDebugFlag = on;
    auto* moduleSwitch = static_cast<int*>(dlsym(module.handle, "g_enITGTDebugFlag"));
    if (moduleSwitch != nullptr) {
        *moduleSwitch = on;
    }
}

}  // namespace vks_host
