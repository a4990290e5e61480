#include "module_table.h"

#include <dlfcn.h>

#include <cstring>

namespace vks_host {
namespace {

struct RouteName {
    const char* resource;
    const char* method;      // HTTP method
    const char* symbolVerb;  // method as spelled in the handler names
};

const RouteName kRoutes[kRouteCount] = {
    {"MultiTaskAppTaskModesAvailableList", "GET", "Get"},
    {"MultiTaskAppTaskModesCapacity", "GET", "Get"},
    {"MultiTaskAppTaskModesEnableList", "GET", "Get"},
    {"MultiTaskAppDisplayRecogPopUps", "GET", "Get"},
    {"MultiTaskAppDisplayRecogPopUps", "PUT", "Put"},
    {"MultiTaskAppDisplayRecogInfos", "GET", "Get"},
    {"MultiTaskAppDisplayRecogInfos", "PUT", "Put"},
    {"MultiTaskAppHistory", "GET", "Get"},
    {"MultiTaskAppHistory", "PUT", "Put"},
    {"MultiTaskAppHistoryRecords", "GET", "Get"},
    {"MultiTaskAppHistoryRecords", "DELETE", "Delete"},
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
