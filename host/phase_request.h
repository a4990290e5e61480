// Everything one request carries through the module's phases, independent of the HTTP front.
#ifndef VKS_HOST_PHASE_REQUEST_H
#define VKS_HOST_PHASE_REQUEST_H

#include <string>

#include "body_buffer.h"
#include "dxmp_message.h"
#include "http_records.h"
#include "module_table.h"

namespace vks_host {

struct PhaseRequest {
    const HandlerSet* handlers;
    tagHTTP_HEADER_S header;
    tagHTTP_CLIENT_S client;  // client.pPrivate points back at this record
    tagHTTP_CNTENT_INTER_S ctIn;
    std::string requestBody;  // NUL-terminated text behind input.pContent
    tagHTTP_BUF_S input;
    BodyBuffer body;
    tagHTTP_BUF_S output;
    VW_RESULT_TYPE result;  // of the last phase that ran; what Format receives
    VW_RESULT_TYPE formatReturn;
    bool parseFailed;  // the failing phase was Parse: the client's request could not be decoded
    bool replyTimedOut;
    // Registration made by the Run phase through AddDxmpAsynEvent; -1 / null when none.
    int asyncFd;
    dxmp_message* asyncRequest;  // our own reference to the request, held until the reply is in
};

// Sets up the record for one request: null slots, buffers bound, no registration.
void InitPhaseRequest(PhaseRequest* r, const HandlerSet* handlers, size_t bodyLimit);

}  // namespace vks_host

#endif
