// Asynchronous DXMP exchange: the Run phase sends the request and hands the open connection to the
// host's event loop; the Recv phase validates the reply that the host placed in the client record.
#include <unistd.h>

#include <cerrno>

#include "app/parse_model/com/dxmp_request.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"
#include "vks_log.h"
#include "vks_multi_task_records.h"

namespace {

const char* const kFile = VKS_SRC_MULTI_TASK;
const uint16_t kStatusOk = 200;

bool ClientMissing(const tagHTTP_CLIENT_S* httpClient) {
    if (httpClient != nullptr) {
        return false;
    }
    VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:httpClient is null", LOG_VKS_FRAMEWORK);
    return true;
}

// Registration comes before the send so that no reply can arrive for a descriptor the host does not
// watch yet. From the registration on the descriptor is the host's: a failed send cancels the
// registration, and the host closes it.
int SendRegistered(tagHTTP_CLIENT_S* httpClient, dxmp_message* msg) {
    int fd = DxmpOpenService(kFile, false);
    if (fd == -1) {
        return -1;
    }
    if (AddDxmpAsynEvent(httpClient, fd, msg) != 0) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:failed to AddDxmpAsynEvent", LOG_VKS_FRAMEWORK);
        close(fd);
        return -1;
    }
    if (dxmp_message_sendfd(msg, fd) == -1) {
        int sendErrno = errno;
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:dxmp_message_sendfd ret:%lld, errno:%d.", LOG_VKS_FRAMEWORK, -1LL,
                sendErrno);
        if (DeleteDxmpAsynEvent(httpClient, fd) != 0) {
            VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:DeleteDxmpAsynEvent fd:%d", LOG_VKS_FRAMEWORK, fd);
        }
        return -1;
    }
    return 0;
}

bool ReplyMatches(const dxmp_message* msg, uint16_t uri) {
    return msg->pFixedHeader != nullptr && DxmpFixedHeaderU16(msg, DXMP_HDR_STATUS) == kStatusOk &&
           DxmpFixedHeaderU16(msg, DXMP_HDR_URI) == uri &&
           (msg->pFixedHeader[DXMP_HDR_FLAGS_METHOD] & 0x7F) == DXMP_METHOD_GET;
}

// The enable-list record of a matching reply goes to runOut. The result is the reply's own code,
// -1 without a valid code item, or 18 when the record could not be kept.
VW_RESULT_TYPE CollectReply(dxmp_message* msg, tagHTTP_CNTENT_INTER_S* ctIn, uint16_t uri) {
    const char* resultFmt = "[%s]:AsyncRecvMsg_Get result:%d";
    if (!ReplyMatches(msg, uri)) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:retCode ,uri or method check failed", LOG_VKS_FRAMEWORK);
        return DxmpReplyResult(msg, kFile, resultFmt, VW_FAILED);
    }
    VW_RESULT_TYPE stored = DxmpStoreReplyRecord<_VW_TasksEnableList_S>(msg, ctIn, true, kFile);
    VW_RESULT_TYPE result = DxmpReplyResult(msg, kFile, resultFmt, VW_FAILED);
    return stored != VW_SUCCESS ? stored : result;
}

}  // namespace

int AsyncBlockDXMPMsgInteraction(tagHTTP_CLIENT_S* httpClient, dxmp_message* msg, DXMPMsgData* msgData) {
    if (DxmpCheckRequest(msgData, msg, kFile) != 0 || ClientMissing(httpClient) ||
        DxmpFillRequest(msg, msgData, kFile) != 0) {
        return -1;
    }
    return SendRegistered(httpClient, msg);
}

int AsyncBlockDXMPMultiMsgInteraction(tagHTTP_CLIENT_S* httpClient, dxmp_message* msg,
                                      DXMPMultiMsgData* msgData) {
    if (DxmpCheckRequest(msgData, msg, kFile) != 0 || ClientMissing(httpClient) ||
        DxmpFillMultiRequest(msg, msgData, kFile) != 0) {
        return -1;
    }
    return SendRegistered(httpClient, msg);
}

int AsyncSendMsg_Get(tagHTTP_CLIENT_S* httpClient, uint16_t uri, uint8_t method,
                     const std::vector<DXMPMsgHeaderData>& headers) {
    if (ClientMissing(httpClient)) {
        return -1;
    }
    // Copied before the message exists: a copy that cannot be allocated throws and leaks nothing.
    DXMPMultiMsgData data = {headers, nullptr, 0, uri, method};
    dxmp_message* msg = dxmp_message_new(0);
    if (msg == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:msg is null", LOG_VKS_FRAMEWORK);
        return -1;
    }
    int result = AsyncBlockDXMPMultiMsgInteraction(httpClient, msg, &data);
    if (result != 0) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Failed to AsyncBlockDXMPMultiMsgInteraction", LOG_VKS_FRAMEWORK);
    }
    // The host took its own reference when it registered the request; this one is the module's.
    dxmp_message_put(msg);
    return result;
}

VW_RESULT_TYPE AsyncRecvMsg_Get(tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_CLIENT_S* client, uint16_t uri,
                                uint8_t /*method: the reply must carry the get method whatever was asked*/) {
    if (ctIn == nullptr || client == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_VKS_FRAMEWORK);
        return VW_FAILED;
    }
    dxmp_message* msg = client->pRecvMsg;
    if (msg == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:recv msg failed", LOG_VKS_FRAMEWORK);
        return VW_FAILED;
    }
    VW_RESULT_TYPE result = CollectReply(msg, ctIn, uri);
    // The reply is consumed exactly once, whatever it held.
    dxmp_message_put(msg);
    client->pRecvMsg = nullptr;
    return result;
}
