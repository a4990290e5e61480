#include "analysis_request.h"

#include <cstring>

#include "dxmp_message.h"
#include "intelligent/comm/vks_multi_task_records.h"

namespace analysis {
namespace {

// 0 when the item is absent or has exactly `size` bytes (copied to out and *present set).
int ReadFixedItem(dxmp_message* msg, uint16_t type, void* out, uint16_t size, bool* present) {
    void* value = nullptr;
    uint16_t length = 0;
    if (dxmp_header_get(msg, type, &value, &length) != 0) {
        return 0;
    }
    if (length != size) {
        return -1;
    }
    memcpy(out, value, size);
    *present = true;
    return 0;
}

int ReadItems(dxmp_message* msg, Request* out) {
    if (ReadFixedItem(msg, DXMP_ITEM_CHANNEL_ID, &out->channelId, sizeof(out->channelId), &out->hasChannel) !=
            0 ||
        ReadFixedItem(msg, DXMP_ITEM_CHANNEL_GROUP, &out->channelGroup, sizeof(out->channelGroup),
                      &out->hasGroup) != 0) {
        return -1;
    }
    void* value = nullptr;
    uint16_t length = 0;
    if (dxmp_header_get(msg, DXMP_ITEM_ENABLE_LIST_REQ, &value, &length) == 0) {
        out->hasBlock = true;
        out->block.assign(static_cast<uint8_t*>(value), static_cast<uint8_t*>(value) + length);
    }
    uint32_t contentLength = 0;
    if (dxmp_content(msg, &value, &contentLength) == 0) {
        out->content.assign(static_cast<uint8_t*>(value), static_cast<uint8_t*>(value) + contentLength);
    }
    return 0;
}

}  // namespace

int DecodeRequest(const std::vector<uint8_t>& frame, Request* out) {
    if (frame.size() < DXMP_FIXED_HEADER_LEN) {
        return -1;
    }
    memcpy(&out->uri, frame.data() + DXMP_HDR_URI, sizeof(out->uri));
    out->method = frame[DXMP_HDR_FLAGS_METHOD] & 0x7F;
    dxmp_message* msg = dxmp_message_new(0);
    if (msg == nullptr) {
        return -1;
    }
    int rc = dxmp_message_decode(msg, frame.data(), static_cast<uint32_t>(frame.size())) == 0
                 ? ReadItems(msg, out)
                 : -1;
    dxmp_message_put(msg);
    return rc;
}

bool ValidRequestBlock(const std::vector<uint8_t>& block) {
    if (block.size() <= sizeof(VW_JSON_MSG_S)) {
        return false;
    }
    VW_JSON_MSG_S head;
    memcpy(&head, block.data(), sizeof(head));
    size_t textSize = block.size() - sizeof(VW_JSON_MSG_S);
    const char* text = reinterpret_cast<const char*>(block.data() + sizeof(VW_JSON_MSG_S));
    return head.bufferLen == textSize && head.msgCount == 1 && text[textSize - 1] == '\0' &&
           strncmp(text, "GET ", 4) == 0;
}

}  // namespace analysis
