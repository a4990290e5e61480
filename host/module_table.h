// The plug-in module as the server sees it: the dlopen() handle and, for every resource and method
// it serves, the phase handlers resolved by their bare names.
#ifndef VKS_HOST_MODULE_TABLE_H
#define VKS_HOST_MODULE_TABLE_H

#include <string>

#include "http_records.h"
#include "unix_cmd_channel.h"

namespace vks_host {

using PreProcFn = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, tagUNIX_SOCKET_S*, tagHTTP_CNTENT_INTER_S*);
using ParseFn = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, tagHTTP_BUF_S*, tagHTTP_CNTENT_INTER_S*);
using RunFn = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, tagHTTP_CLIENT_S*, tagHTTP_CNTENT_INTER_S*);
using FormatFn = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*,
                                    tagHTTP_BUF_S*);

// The two ways the module reaches the camera side. Requests of one road run on workers of their
// own, so a road that has gone silent cannot take the workers the other one needs.
enum Road { kRoadServiceFs = 0, kRoadCommand = 1, kRoadCount = 2 };

// One resource and method. A phase the module does not export stays null and is not called.
struct HandlerSet {
    const char* resource;
    const char* method;  // HTTP method: "GET", "PUT", "DELETE"
    int resourceId;      // the same for every method of one resource, 0 to kRouteCount - 1
    Road road;
    bool writes;  // PUT or DELETE: a read-merge-write that must not interleave with another
    PreProcFn preProc;
    ParseFn parse;
    RunFn run;
    RunFn recv;  // same signature as Run
    FormatFn format;
};

constexpr int kRouteCount = 11;

struct ModuleTable {
    void* handle;
    HandlerSet routes[kRouteCount];
};

// dlopen(RTLD_NOW) and resolve. 0, or -1 with the loader's reason in *err.
int LoadModule(const char* path, ModuleTable* table, std::string* err);
void UnloadModule(ModuleTable* table);

enum RouteLookup { kRouteFound, kNoSuchResource, kMethodNotAllowed };

// A pair counts only when the module exports at least one of its phases.
RouteLookup FindRoute(const ModuleTable& table, const char* resource, const char* method,
                      const HandlerSet** found);
// "GET, PUT" for the Allow header of a 405 answer.
std::string AllowedMethods(const ModuleTable& table, const char* resource);

}  // namespace vks_host

#endif
