// URI query keys read by the handlers with GetURIQueryParamByKey<T>. Built once at load time by the
// handler unit (vksapi_multi_task_module.cpp) and never changed, so handlers on any thread may read
// them without a lock.
#ifndef VKS_QUERY_KEYS_H
#define VKS_QUERY_KEYS_H

#include <string>

extern const std::string g_keyDeleteType;    // "DeleteType": built, read by no handler
extern const std::string g_keyStartTime;     // "StartTime"
extern const std::string g_keyEndTime;       // "EndTime"
extern const std::string g_keyFindNum;       // "FindNum"
extern const std::string g_keyStartIndex;    // "StartIndex"
extern const std::string g_keyDatabaseType;  // "DatabaseType"
extern const std::string g_keyFirstAttri;    // "FirstAttri"
extern const std::string g_keySecondAttri;   // "SecondAttri"
extern const std::string g_keyLibId;         // "LibId"
extern const std::string g_keyChannelId;     // "ChannelId"
extern const std::string g_keyChannelGroup;  // "ChannelGroup"

#endif
