#include "reply_frame.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "dxmp_message.h"

namespace analysis {

std::vector<uint8_t> EncodeReply(const ReplySpec& spec) {
    dxmp_message* msg = dxmp_message_new(0);
    if (msg == nullptr) {
        return {};
    }
    // Bytes 2 to 7 of the fixed header are the sender's; the library stamps the rest.
    msg->pFixedHeader[DXMP_HDR_BYTE2] = 0;
    msg->pFixedHeader[DXMP_HDR_FLAGS_METHOD] = static_cast<uint8_t>(DXMP_REPLY_FLAG | (spec.method & 0x7F));
    memcpy(msg->pFixedHeader + DXMP_HDR_URI, &spec.uri, sizeof(spec.uri));
    memcpy(msg->pFixedHeader + DXMP_HDR_STATUS, &spec.status, sizeof(spec.status));
    int rc = 0;
    if (spec.result != nullptr) {
        std::vector<uint8_t> item(spec.resultLen, 0);
        memcpy(item.data(), spec.result, std::min<size_t>(item.size(), sizeof(*spec.result)));
        rc = dxmp_header_set(msg, DXMP_ITEM_RESULT, item.data(), spec.resultLen);
    }
    if (rc == 0 && !spec.content.empty()) {
        rc = dxmp_content_add(msg, spec.content.data(), static_cast<uint32_t>(spec.content.size()), 0);
    }
    uint32_t length = 0;
    uint8_t* encoded = rc == 0 ? dxmp_message_encode(msg, &length) : nullptr;
    dxmp_message_put(msg);
    if (encoded == nullptr) {
        return {};
    }
    std::vector<uint8_t> frame(encoded, encoded + length);
    free(encoded);
    return frame;
}

}  // namespace analysis
