// Registry of asynchronous DXMP replies: the calls a module makes are forwarded to the event machinery
// that the access server (or a test) installed.
#include "dxmp_message.h"
#include "guarded_hooks.h"

namespace {

struct AsynHooks {
    DxmpAsynAddFn add;
    DxmpAsynDelFn del;
    void* ctx;
};

using Hooks = GuardedHooks<AsynHooks>;

}  // namespace

void DxmpSetAsynEventHooks(DxmpAsynAddFn add, DxmpAsynDelFn del, void* ctx) {
    Hooks::Instance().Set(AsynHooks{add, del, ctx});
}

int AddDxmpAsynEvent(tagHTTP_CLIENT_S* client, int fd, dxmp_message* request) {
    return Hooks::Instance().With([&](const AsynHooks& hooks) {
        return hooks.add != nullptr ? hooks.add(hooks.ctx, client, fd, request) : -1;
    });
}

int DeleteDxmpAsynEvent(tagHTTP_CLIENT_S* client, int fd) {
    return Hooks::Instance().With(
        [&](const AsynHooks& hooks) { return hooks.del != nullptr ? hooks.del(hooks.ctx, client, fd) : -1; });
}
