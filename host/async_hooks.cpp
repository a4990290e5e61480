#include "async_hooks.h"

#include "phase_request.h"
#include "phases.h"
#include "host_log.h"

namespace vks_host {
namespace {

PhaseRequest* RequestOf(tagHTTP_CLIENT_S* client) {
    return client != nullptr ? static_cast<PhaseRequest*>(client->pPrivate) : nullptr;
}

}  // namespace

int OnAddAsynEvent(void*, tagHTTP_CLIENT_S* client, int fd, dxmp_message* request) {
    PhaseRequest* r = RequestOf(client);
    if (r == nullptr || fd < 0 || r->asyncFd >= 0) {
        HOST_LOG(3, "AddDxmpAsynEvent refused fd %d", fd);
        return -1;
    }
    r->asyncFd = fd;
    r->asyncRequest = request != nullptr ? dxmp_message_get(request) : nullptr;
    return 0;
}

int OnDeleteAsynEvent(void*, tagHTTP_CLIENT_S* client, int fd) {
    PhaseRequest* r = RequestOf(client);
    if (r == nullptr || fd < 0 || r->asyncFd != fd) {
        HOST_LOG(3, "DeleteDxmpAsynEvent unknown fd %d", fd);
        return -1;
    }
    CancelRegistration(r);
    return 0;
}

void InstallAsynEventHooks() {
    DxmpSetAsynEventHooks(&OnAddAsynEvent, &OnDeleteAsynEvent, nullptr);
}

}  // namespace vks_host
