// Synchronous DXMP exchange: one request, one reply, on a connection of its own.
#include "app/parse_model/com/vksapi_dxmp_comm.h"

#include <unistd.h>

#include "app/parse_model/com/dxmp_request.h"
#include "vks_model_list_paths.h"

namespace {

const char* const kFile = VKS_SRC_DXMP_COMM;
const uint16_t kStatusOk = 200;

// Sends the built request, receives the reply into the same message and checks it. The descriptor
// is closed on every path.
int ExchangeOnce(dxmp_message* msg, uint16_t uri, bool setBuffers) {
    int fd = DxmpOpenService(kFile, setBuffers);
    if (fd == -1) {
        return -1;
    }
    int result = -1;
    if (dxmp_message_sendfd(msg, fd) == -1) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Failed to VKSSyncSend dxmp_message", LOG_VKS_FRAMEWORK);
    } else {
        // The same object receives the reply: the request's items must not linger in it.
        dxmp_header_clear(msg);
        dxmp_content_clear(msg);
        if (dxmp_message_recvfd(msg, fd) == -1 || msg->pFixedHeader == nullptr) {
            VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Failed to VKSSyncRecv dxmp_message", LOG_VKS_FRAMEWORK);
        } else if (DxmpFixedHeaderU16(msg, DXMP_HDR_STATUS) != kStatusOk ||
                   DxmpFixedHeaderU16(msg, DXMP_HDR_URI) != uri) {
            VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:failed to dxmp_message_recvfd errorNo is %d",
                    LOG_VKS_FRAMEWORK, DxmpFixedHeaderU16(msg, DXMP_HDR_STATUS));
        } else {
            result = 0;
        }
    }
    close(fd);
    return result;
}

}  // namespace

int SyncBlockDXMPMsgInteraction(dxmp_message* msg, DXMPMsgData* msgData) {
    if (DxmpCheckRequest(msgData, msg, kFile) != 0 || DxmpFillRequest(msg, msgData, kFile) != 0) {
        return -1;
    }
    return ExchangeOnce(msg, msgData->uri, true);
}

int SyncBlockDXMPMultiMsgInteraction(dxmp_message* msg, DXMPMultiMsgData* msgData) {
    if (DxmpCheckRequest(msgData, msg, kFile) != 0 || DxmpFillMultiRequest(msg, msgData, kFile) != 0) {
        return -1;
    }
    return ExchangeOnce(msg, msgData->uri, false);
}
