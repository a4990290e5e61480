// The library's side of a DXMP message: the public first member, the fixed header it points at, the
// reference count and the payload (header items and content). Private to libzkapicommon.
#ifndef VKS_DXMP_MESSAGE_IMPL_H
#define VKS_DXMP_MESSAGE_IMPL_H

#include <stddef.h>
#include <stdint.h>

#include <atomic>

#include "dxmp_message.h"

#define DXMP_ITEM_HEADER_LEN 4  // type u16, length u16

typedef struct DxmpItem {
    uint16_t type;
    uint16_t length;
    uint8_t* value;  // malloc block of max(length, 1) bytes
} DxmpItem;

// Items in the order they were first set, and the content. Frames are at most DXMP_MAX_FRAME_LEN
// bytes, so every length here fits 32 bits.
typedef struct DxmpPayload {
    uint16_t itemCount;
    DxmpItem items[DXMP_MAX_ITEMS];
    uint8_t* content;  // malloc block of contentCap bytes, or null
    uint32_t contentLen;
    uint32_t contentCap;
} DxmpPayload;

struct DxmpMessageImpl {
    dxmp_message pub;  // first: callers cast nothing, the library converts back with DxmpImpl()
    uint8_t fixedHeader[DXMP_FIXED_HEADER_LEN];
    std::atomic<int> refs;
    DxmpPayload payload;
};

static_assert(offsetof(DxmpMessageImpl, pub) == 0, "the public part must be the first member");
// In memory only, never on the wire: the two 16-bit fields share one pointer-sized slot, whatever
// the pointer width (8 bytes on x86-64, 4 on armhf).
static_assert(offsetof(DxmpItem, value) == sizeof(uint8_t*), "DxmpItem value");
static_assert(sizeof(DxmpItem) == 2 * sizeof(uint8_t*), "DxmpItem layout");

inline DxmpMessageImpl* DxmpImpl(dxmp_message* msg) {
    return reinterpret_cast<DxmpMessageImpl*>(msg);
}

// Frees every block of the payload and leaves it empty.
void DxmpPayloadFree(DxmpPayload* payload);
// Size of the frame that the payload would encode to, fixed header included (64-bit: no overflow).
uint64_t DxmpPayloadFrameLength(const DxmpPayload* payload);

// Little-endian fields of the wire format.
inline uint16_t DxmpGetLe16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
inline uint32_t DxmpGetLe32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
inline void DxmpPutLe16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
inline void DxmpPutLe32(uint8_t* p, uint32_t v) {
    DxmpPutLe16(p, static_cast<uint16_t>(v));
    DxmpPutLe16(p + 2, static_cast<uint16_t>(v >> 16));
}

#endif
