#include "module_table.h"

#include <dlfcn.h>

#include <cstring>

namespace vks_host {
namespace {

struct RouteName {
    const char* resource;
    const char* method;      // HTTP method
    const char* symbolVerb;  // method as spelled in the handler names
    Road road;
};

const RouteName kRoutes[kRouteCount] = {
    {"MultiTaskAppTaskModesAvailableList", "GET", "Get", kRoadServiceFs},
    {"MultiTaskAppTaskModesCapacity", "GET", "Get", kRoadServiceFs},
    {"MultiTaskAppTaskModesEnableList", "GET", "Get", kRoadServiceFs},
    {"MultiTaskAppDisplayRecogPopUps", "GET", "Get", kRoadServiceFs},
    {"MultiTaskAppDisplayRecogPopUps", "PUT", "Put", kRoadServiceFs},
    {"MultiTaskAppDisplayRecogInfos", "GET", "Get", kRoadCommand},
    {"MultiTaskAppDisplayRecogInfos", "PUT", "Put", kRoadCommand},
    {"MultiTaskAppHistory", "GET", "Get", kRoadCommand},
    {"MultiTaskAppHistory", "PUT", "Put", kRoadCommand},
    {"MultiTaskAppHistoryRecords", "GET", "Get", kRoadCommand},
    {"MultiTaskAppHistoryRecords", "DELETE", "Delete", kRoadCommand},
};

void* Resolve(void* handle, const char* phase, const RouteName& route) {
    std::string name = std::string(phase) + route.symbolVerb + route.resource;
    return dlsym(handle, name.c_str());
}

// dlsym hands back void*; the module exports these names with exactly the phase signatures.
template <typename Fn>
Fn As(void* symbol) {
    return reinterpret_cast<Fn>(symbol);
}

bool Exported(const HandlerSet& set) {
    return set.preProc != nullptr || set.parse != nullptr || set.run != nullptr || set.recv != nullptr ||
           set.format != nullptr;
}

}  // namespace

int LoadModule(const char* path, ModuleTable* table, std::string* err) {
    table->handle = dlopen(path, RTLD_NOW);
    if (table->handle == nullptr) {
        const char* why = dlerror();
        *err = why != nullptr ? why : "dlopen failed";
        return -1;
    }
    for (int i = 0; i < kRouteCount; ++i) {
        const RouteName& r = kRoutes[i];
        HandlerSet& set = table->routes[i];
        set.resource = r.resource;
        set.method = r.method;
        set.resourceId = i;
        for (int j = 0; j < i; ++j) {
            if (strcmp(kRoutes[j].resource, r.resource) == 0) {
                set.resourceId = j;
                break;
            }
        }
        set.road = r.road;
        set.writes = strcmp(r.method, "GET") != 0;
        set.preProc = As<PreProcFn>(Resolve(table->handle, "PreProc", r));
        set.parse = As<ParseFn>(Resolve(table->handle, "Parse", r));
        set.run = As<RunFn>(Resolve(table->handle, "Run", r));
        set.recv = As<RunFn>(Resolve(table->handle, "Recv", r));
        set.format = As<FormatFn>(Resolve(table->handle, "Format", r));
    }
    return 0;
}

void UnloadModule(ModuleTable* table) {
    if (table->handle != nullptr) {
        dlclose(table->handle);
        table->handle = nullptr;
    }
}

RouteLookup FindRoute(const ModuleTable& table, const char* resource, const char* method,
                      const HandlerSet** found) {
    bool knownResource = false;
    for (const HandlerSet& set : table.routes) {
        if (strcmp(set.resource, resource) != 0 || !Exported(set)) {
            continue;
        }
        knownResource = true;
        if (strcmp(set.method, method) == 0) {
            *found = &set;
            return kRouteFound;
        }
    }
    return knownResource ? kMethodNotAllowed : kNoSuchResource;
}

std::string AllowedMethods(const ModuleTable& table, const char* resource) {
    std::string allowed;
    for (const HandlerSet& set : table.routes) {
        if (strcmp(set.resource, resource) == 0 && Exported(set)) {
            allowed += allowed.empty() ? "" : ", ";
            allowed += set.method;
        }
    }
    return allowed;
}

}  // namespace vks_host
