// The host's side of AddDxmpAsynEvent / DeleteDxmpAsynEvent. A registration is only recorded in the
// request while its Run phase is still executing; the HTTP front arms the event loop once Run has
// returned, so the reply can never be handled while the Run phase of the same request still runs.
#ifndef VKS_HOST_ASYNC_HOOKS_H
#define VKS_HOST_ASYNC_HOOKS_H

#include "dxmp_message.h"

namespace vks_host {

// Installs the two hooks into the DXMP library for the lifetime of the process.
void InstallAsynEventHooks();

int OnAddAsynEvent(void* ctx, tagHTTP_CLIENT_S* client, int fd, dxmp_message* request);
int OnDeleteAsynEvent(void* ctx, tagHTTP_CLIENT_S* client, int fd);

}  // namespace vks_host

#endif
