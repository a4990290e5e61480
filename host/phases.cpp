#include "phases.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "host_log.h"
#include "zkapi_common.h"

namespace vks_host {

namespace {

// A handler may run out of memory inside a standard string or container operation, which throws:
// the phase failed, the server goes on.
template <typename Call>
VW_RESULT_TYPE Guarded(const char* phase, Call call) {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        HOST_LOG(3, "%s phase ran out of memory", phase);
        return VW_FAILED;
    }
}

}  // namespace

void InitPhaseRequest(PhaseRequest* r, const HandlerSet* handlers, size_t bodyLimit) {
    r->handlers = handlers;
    memset(&r->header, 0, sizeof(r->header));
    r->client = tagHTTP_CLIENT_S{nullptr, nullptr, r};
    r->ctIn = tagHTTP_CNTENT_INTER_S{nullptr, nullptr, nullptr};
    r->input = tagHTTP_BUF_S{&BodyCopy2Buf, r->requestBody.c_str(), nullptr};
    r->body.text.clear();
    r->body.limit = bodyLimit;
    r->output = tagHTTP_BUF_S{nullptr, nullptr, nullptr};
    BindBodyBuffer(&r->output, &r->body);
    r->result = VW_SUCCESS;
    r->formatReturn = VW_SUCCESS;
    r->parseFailed = false;
    r->replyTimedOut = false;
    r->asyncFd = -1;
    r->asyncRequest = nullptr;
}

void RunFrontPhases(PhaseRequest* r) {
    const HandlerSet& h = *r->handlers;
    r->input.pContent = r->requestBody.c_str();
    r->result = VW_SUCCESS;
    if (h.preProc != nullptr) {
        r->result = Guarded("PreProc", [&] { return h.preProc(&r->header, r->client.synSock, &r->ctIn); });
    }
    if (r->result == VW_SUCCESS && h.parse != nullptr) {
        r->result = Guarded("Parse", [&] { return h.parse(&r->header, &r->input, &r->ctIn); });
        r->parseFailed = r->result != VW_SUCCESS;
    }
    if (r->result == VW_SUCCESS && h.run != nullptr) {
        r->result = Guarded("Run", [&] { return h.run(&r->header, &r->client, &r->ctIn); });
    }
}

bool AwaitsReply(const PhaseRequest& r) {
    return r.result == VW_SUCCESS && r.asyncFd >= 0 && r.handlers->recv != nullptr;
}

void CancelRegistration(PhaseRequest* r) {
    if (r->asyncFd >= 0) {
        close(r->asyncFd);
        r->asyncFd = -1;
    }
    if (r->asyncRequest != nullptr) {
        dxmp_message_put(r->asyncRequest);
        r->asyncRequest = nullptr;
    }
}

void RunRecvPhase(PhaseRequest* r) {
    r->result = Guarded("Recv", [&] { return r->handlers->recv(&r->header, &r->client, &r->ctIn); });
}

void ReleaseRequestData(PhaseRequest* r) {
    free(r->ctIn.preProcOut);
    free(r->ctIn.parseOut);
    free(r->ctIn.runOut);
    r->ctIn = tagHTTP_CNTENT_INTER_S{nullptr, nullptr, nullptr};
    if (r->client.pRecvMsg != nullptr) {  // a reply that no Recv consumed
        dxmp_message_put(r->client.pRecvMsg);
        r->client.pRecvMsg = nullptr;
    }
}

VW_RESULT_TYPE EffectiveResult(const PhaseRequest& r) {
    if (r.result == VW_SUCCESS && r.formatReturn != VW_SUCCESS) {
        return VW_FAILED;
    }
    return r.result;
}

void RunFormatPhase(PhaseRequest* r) {
    const HandlerSet& h = *r->handlers;
    r->formatReturn = VW_SUCCESS;
    if (h.format != nullptr) {
        r->formatReturn =
            Guarded("Format", [&] { return h.format(&r->header, r->result, &r->ctIn, &r->output); });
    }
    if (r->body.text.empty()) {
        FormatCommonStatus(&r->header, EffectiveResult(*r), &r->ctIn, &r->output);
    }
    ReleaseRequestData(r);
}

}  // namespace vks_host
