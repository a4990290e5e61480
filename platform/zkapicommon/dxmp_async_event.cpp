// Registry of asynchronous DXMP replies: the calls a module makes are forwarded to the event machinery
// that the access server (or a test) installed.
#include <mutex>
#include <shared_mutex>

#include "dxmp_message.h"

namespace {

struct AsynHooks {
    std::shared_mutex mutex;  // calls run under the shared side, so a replacement waits for them
    DxmpAsynAddFn add = nullptr;
    DxmpAsynDelFn del = nullptr;
    void* ctx = nullptr;
};

// Never destroyed: a module's static destructors may still cancel a registration at exit.
AsynHooks& Hooks() {
    static AsynHooks* hooks = new AsynHooks;
    return *hooks;
}

}  // namespace

void DxmpSetAsynEventHooks(DxmpAsynAddFn add, DxmpAsynDelFn del, void* ctx) {
    AsynHooks& hooks = Hooks();
    std::unique_lock<std::shared_mutex> lock(hooks.mutex);
    hooks.add = add;
    hooks.del = del;
    hooks.ctx = ctx;
}

int AddDxmpAsynEvent(tagHTTP_CLIENT_S* client, int fd, dxmp_message* request) {
    AsynHooks& hooks = Hooks();
    std::shared_lock<std::shared_mutex> lock(hooks.mutex);
    return hooks.add != nullptr ? hooks.add(hooks.ctx, client, fd, request) : -1;
}

int DeleteDxmpAsynEvent(tagHTTP_CLIENT_S* client, int fd) {
    AsynHooks& hooks = Hooks();
    std::shared_lock<std::shared_mutex> lock(hooks.mutex);
    return hooks.del != nullptr ? hooks.del(hooks.ctx, client, fd) : -1;
}
