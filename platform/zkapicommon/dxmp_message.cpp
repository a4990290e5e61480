// DXMP message objects: reference counting, header items and content. The wire encoding lives in
// dxmp_wire.cpp.
#include <stdlib.h>
#include <string.h>

#include <new>

#include "dxmp_message_impl.h"

namespace {

DxmpItem* FindItem(DxmpPayload* payload, uint16_t type) {
    for (uint16_t i = 0; i < payload->itemCount; ++i) {
        if (payload->items[i].type == type) {
            return &payload->items[i];
        }
    }
    return nullptr;
}

// A copy of the value; one byte at least so that an empty item still has an address to hand out.
uint8_t* CopyValue(const void* value, uint16_t length) {
    auto* copy = static_cast<uint8_t*>(malloc(length > 0 ? length : 1));
    if (copy != nullptr && length > 0) {
        memcpy(copy, value, length);
    }
    return copy;
}

bool FitsFrame(uint64_t frameLength) {
    return frameLength <= DXMP_MAX_FRAME_LEN;
}

int GrowContent(DxmpPayload* payload, uint32_t needed) {
    if (needed <= payload->contentCap) {
        return 0;
    }
    uint64_t cap = payload->contentCap > 0 ? payload->contentCap : 256;
    while (cap < needed) {
        cap *= 2;
    }
    if (cap > DXMP_MAX_FRAME_LEN) {
        cap = needed;
    }
    auto* grown = static_cast<uint8_t*>(realloc(payload->content, cap));
    if (grown == nullptr) {
        return -1;
    }
    payload->content = grown;
    payload->contentCap = static_cast<uint32_t>(cap);
    return 0;
}

void ClearItems(DxmpPayload* payload) {
    for (uint16_t i = 0; i < payload->itemCount; ++i) {
        free(payload->items[i].value);
        payload->items[i] = DxmpItem{};
    }
    payload->itemCount = 0;
}

void ClearContent(DxmpPayload* payload) {
    free(payload->content);
    payload->content = nullptr;
    payload->contentLen = 0;
    payload->contentCap = 0;
}

}  // namespace

void DxmpPayloadFree(DxmpPayload* payload) {
    ClearItems(payload);
    ClearContent(payload);
}

uint64_t DxmpPayloadFrameLength(const DxmpPayload* payload) {
    uint64_t length = DXMP_FIXED_HEADER_LEN + payload->contentLen;
    for (uint16_t i = 0; i < payload->itemCount; ++i) {
        length += DXMP_ITEM_HEADER_LEN + payload->items[i].length;
    }
    return length;
}

dxmp_message* dxmp_message_new(int flags) {
    if (flags != 0) {
        return nullptr;  // no flags are defined yet; refusing keeps a future meaning free
    }
    auto* impl = new (std::nothrow) DxmpMessageImpl();
    if (impl == nullptr) {
        return nullptr;
    }
    impl->pub.pFixedHeader = impl->fixedHeader;
    impl->fixedHeader[DXMP_HDR_MAGIC0] = 'D';
    impl->fixedHeader[DXMP_HDR_MAGIC1] = 'X';
    impl->refs.store(1);
    return &impl->pub;
}

dxmp_message* dxmp_message_get(dxmp_message* msg) {
    if (msg != nullptr) {
        DxmpImpl(msg)->refs.fetch_add(1, std::memory_order_relaxed);
    }
    return msg;
}

void dxmp_message_put(dxmp_message* msg) {
    if (msg == nullptr) {
        return;
    }
    DxmpMessageImpl* impl = DxmpImpl(msg);
    if (impl->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        DxmpPayloadFree(&impl->payload);
        delete impl;
    }
}

int dxmp_header_set(dxmp_message* msg, uint16_t type, const void* value, uint16_t length) {
    if (msg == nullptr || (value == nullptr && length > 0)) {
        return -1;
    }
    DxmpPayload* payload = &DxmpImpl(msg)->payload;
    uint64_t frame = DxmpPayloadFrameLength(payload);
    DxmpItem* item = FindItem(payload, type);
    if (item != nullptr) {
        frame -= item->length;  // a second set of a type replaces its value in place
    } else if (payload->itemCount >= DXMP_MAX_ITEMS) {
        return -1;
    } else {
        frame += DXMP_ITEM_HEADER_LEN;
    }
    if (!FitsFrame(frame + length)) {
        return -1;
    }
    uint8_t* copy = CopyValue(value, length);
    if (copy == nullptr) {
        return -1;
    }
    if (item == nullptr) {
        item = &payload->items[payload->itemCount++];
        item->type = type;
    } else {
        free(item->value);
    }
    item->length = length;
    item->value = copy;
    return 0;
}

int dxmp_header_get(dxmp_message* msg, uint16_t type, void** value, uint16_t* length) {
    if (msg == nullptr || value == nullptr || length == nullptr) {
        return -1;
    }
    const DxmpItem* item = FindItem(&DxmpImpl(msg)->payload, type);
    if (item == nullptr) {
        return -1;
    }
    *value = item->value;
    *length = item->length;
    return 0;
}

void dxmp_header_clear(dxmp_message* msg) {
    if (msg != nullptr) {
        ClearItems(&DxmpImpl(msg)->payload);
    }
}

int dxmp_content_add(dxmp_message* msg, const void* data, uint32_t length, int flags) {
    if (msg == nullptr || flags != 0 || (data == nullptr && length > 0)) {
        return -1;
    }
    DxmpPayload* payload = &DxmpImpl(msg)->payload;
    if (!FitsFrame(DxmpPayloadFrameLength(payload) + length)) {
        return -1;
    }
    if (length == 0) {
        return 0;
    }
    if (GrowContent(payload, payload->contentLen + length) != 0) {
        return -1;
    }
    memcpy(payload->content + payload->contentLen, data, length);
    payload->contentLen += length;
    return 0;
}

int dxmp_content(dxmp_message* msg, void** data, uint32_t* length) {
    if (msg == nullptr || data == nullptr || length == nullptr) {
        return -1;
    }
    const DxmpPayload* payload = &DxmpImpl(msg)->payload;
    if (payload->contentLen == 0) {
        return -1;
    }
    *data = payload->content;
    *length = payload->contentLen;
    return 0;
}

void dxmp_content_clear(dxmp_message* msg) {
    if (msg != nullptr) {
        ClearContent(&DxmpImpl(msg)->payload);
    }
}
