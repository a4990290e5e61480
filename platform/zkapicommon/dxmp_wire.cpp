// DXMP wire format (docs/dxmp-wire-format.md): a 16-byte fixed header, the header items (type u16,
// length u16, value), then the content; little-endian, at most DXMP_MAX_FRAME_LEN bytes and
// DXMP_MAX_ITEMS items. A reader checks every declared length before it allocates anything.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "dxmp_message_impl.h"
#include "fd_io.h"

namespace {

// 0 when the fixed header may start a frame (and its length), else the errno value that says why.
int CheckFixedHeader(const uint8_t* header, uint32_t* frameLength) {
    if (header[DXMP_HDR_MAGIC0] != 'D' || header[DXMP_HDR_MAGIC1] != 'X') {
        return EPROTO;
    }
    uint32_t length = DxmpGetLe32(header + DXMP_HDR_FRAME_LEN);
    if (length < DXMP_FIXED_HEADER_LEN || length > DXMP_MAX_FRAME_LEN) {
        return EMSGSIZE;
    }
    uint16_t items = DxmpGetLe16(header + DXMP_HDR_ITEM_COUNT);
    if (items > DXMP_MAX_ITEMS || DXMP_FIXED_HEADER_LEN + uint64_t{items} * DXMP_ITEM_HEADER_LEN > length) {
        return EPROTO;
    }
    *frameLength = length;
    return 0;
}

// Walks the items of a whole frame without allocating: 0 when each lies within the frame.
int CheckItems(const uint8_t* frame, uint32_t length, uint32_t* contentOffset) {
    uint16_t count = DxmpGetLe16(frame + DXMP_HDR_ITEM_COUNT);
    uint64_t offset = DXMP_FIXED_HEADER_LEN;
    for (uint16_t i = 0; i < count; ++i) {
        if (offset + DXMP_ITEM_HEADER_LEN > length) {
            return -1;
        }
        offset += DXMP_ITEM_HEADER_LEN + DxmpGetLe16(frame + offset + 2);
        if (offset > length) {
            return -1;
        }
    }
    *contentOffset = static_cast<uint32_t>(offset);
    return 0;
}

// Copies the items and content of a checked frame into payload (empty on entry); -1 when out of memory.
int ReadPayload(const uint8_t* frame, uint32_t length, uint32_t contentOffset, DxmpPayload* payload) {
    uint16_t count = DxmpGetLe16(frame + DXMP_HDR_ITEM_COUNT);
    const uint8_t* p = frame + DXMP_FIXED_HEADER_LEN;
    for (uint16_t i = 0; i < count; ++i) {
        DxmpItem* item = &payload->items[i];
        item->type = DxmpGetLe16(p);
        item->length = DxmpGetLe16(p + 2);
        item->value = static_cast<uint8_t*>(malloc(item->length > 0 ? item->length : 1));
        if (item->value == nullptr) {
            return -1;
        }
        payload->itemCount = static_cast<uint16_t>(i + 1);
        memcpy(item->value, p + DXMP_ITEM_HEADER_LEN, item->length);
        p += DXMP_ITEM_HEADER_LEN + item->length;
    }
    uint32_t contentLen = length - contentOffset;
    if (contentLen > 0) {
        payload->content = static_cast<uint8_t*>(malloc(contentLen));
        if (payload->content == nullptr) {
            return -1;
        }
        memcpy(payload->content, frame + contentOffset, contentLen);
        payload->contentLen = contentLen;
        payload->contentCap = contentLen;
    }
    return 0;
}

// The fields the library owns; bytes 2 to 7 stay as the caller wrote them.
void StampFixedHeader(uint8_t* header, uint32_t frameLength, uint16_t itemCount) {
    header[DXMP_HDR_MAGIC0] = 'D';
    header[DXMP_HDR_MAGIC1] = 'X';
    DxmpPutLe32(header + DXMP_HDR_FRAME_LEN, frameLength);
    DxmpPutLe16(header + DXMP_HDR_ITEM_COUNT, itemCount);
    header[14] = 0;
    header[15] = 0;
}

}  // namespace

int dxmp_frame_length(const uint8_t* fixedHeader, uint32_t* length) {
    if (fixedHeader == nullptr || length == nullptr) {
        return -1;
    }
    return CheckFixedHeader(fixedHeader, length) == 0 ? 0 : -1;
}

uint8_t* dxmp_message_encode(dxmp_message* msg, uint32_t* length) {
    if (msg == nullptr || length == nullptr) {
        return nullptr;
    }
    DxmpMessageImpl* impl = DxmpImpl(msg);
    const DxmpPayload* payload = &impl->payload;
    uint64_t frameLength = DxmpPayloadFrameLength(payload);
    if (frameLength > DXMP_MAX_FRAME_LEN) {
        return nullptr;
    }
    auto* frame = static_cast<uint8_t*>(malloc(frameLength));
    if (frame == nullptr) {
        return nullptr;
    }
    StampFixedHeader(impl->fixedHeader, static_cast<uint32_t>(frameLength), payload->itemCount);
    memcpy(frame, impl->fixedHeader, DXMP_FIXED_HEADER_LEN);
    uint8_t* p = frame + DXMP_FIXED_HEADER_LEN;
    for (uint16_t i = 0; i < payload->itemCount; ++i) {
        const DxmpItem* item = &payload->items[i];
        DxmpPutLe16(p, item->type);
        DxmpPutLe16(p + 2, item->length);
        memcpy(p + DXMP_ITEM_HEADER_LEN, item->value, item->length);
        p += DXMP_ITEM_HEADER_LEN + item->length;
    }
    if (payload->contentLen > 0) {
        memcpy(p, payload->content, payload->contentLen);
    }
    *length = static_cast<uint32_t>(frameLength);
    return frame;
}

int dxmp_message_decode(dxmp_message* msg, const uint8_t* data, uint32_t length) {
    if (msg == nullptr || data == nullptr || length < DXMP_FIXED_HEADER_LEN) {
        return -1;
    }
    uint32_t frameLength = 0;
    uint32_t contentOffset = 0;
    if (CheckFixedHeader(data, &frameLength) != 0 || frameLength != length ||
        CheckItems(data, length, &contentOffset) != 0) {
        return -1;
    }
    DxmpPayload decoded{};
    if (ReadPayload(data, length, contentOffset, &decoded) != 0) {
        DxmpPayloadFree(&decoded);
        return -1;
    }
    DxmpMessageImpl* impl = DxmpImpl(msg);
    DxmpPayloadFree(&impl->payload);
    impl->payload = decoded;
    memcpy(impl->fixedHeader, data, DXMP_FIXED_HEADER_LEN);
    return 0;
}

int dxmp_message_sendfd(dxmp_message* msg, int fd) {
    uint32_t length = 0;
    uint8_t* frame = dxmp_message_encode(msg, &length);
    if (frame == nullptr) {
        errno = msg == nullptr ? EINVAL : EMSGSIZE;
        return -1;
    }
    // One write call for the whole frame where the descriptor takes it: the service file system
    // treats each write as (part of) a request.
    int rc = FdWriteFull(fd, frame, length);
    int savedErrno = errno;
    free(frame);
    errno = savedErrno;
    return rc;
}

namespace {

// Large enough for every reply of the module's resources in one read.
const size_t kFirstReadLen = 4096;

// The service file system keeps each reply frame whole: a read returns bytes of one frame only, all
// of it when the buffer is large enough. On its files one read takes a whole reply; a stream (pipe,
// socket) is read exactly, fixed header first, so that the frame after it stays in the stream.
// The type comes from the attributes the kernel holds (AT_STATX_DONT_SYNC): fstat() would ask the
// file system again after every write, a round trip as dear as the read it spares.
bool KeepsFrames(int fd) {
    struct statx stx;
    if (statx(fd, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_TYPE, &stx) == 0) {
        return S_ISREG(stx.stx_mode);
    }
    struct stat st;
    return errno == ENOSYS && fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
}

// The first bytes of a frame: up to sizeof(*first) of a frame-keeping file, else the fixed header.
ssize_t ReadFirst(int fd, uint8_t (*first)[kFirstReadLen]) {
    if (!KeepsFrames(fd)) {
        return FdReadFull(fd, *first, DXMP_FIXED_HEADER_LEN);
    }
    ssize_t n;
    do {
        n = read(fd, *first, sizeof(*first));
    } while (n < 0 && errno == EINTR);
    if (n <= 0 || n >= static_cast<ssize_t>(DXMP_FIXED_HEADER_LEN)) {
        return n;
    }
    ssize_t more = FdReadFull(fd, *first + n, DXMP_FIXED_HEADER_LEN - static_cast<size_t>(n));
    return more < 0 && errno != EAGAIN && errno != EWOULDBLOCK ? more : n + (more > 0 ? more : 0);
}

}  // namespace

int dxmp_message_recvfd(dxmp_message* msg, int fd) {
    if (msg == nullptr) {
        errno = EINVAL;
        return -1;
    }
    uint8_t first[kFirstReadLen];
    ssize_t got = ReadFirst(fd, &first);
    if (got < static_cast<ssize_t>(DXMP_FIXED_HEADER_LEN)) {
        if (got >= 0) {
            errno = got == 0 ? ENODATA : EPROTO;  // clean end of stream, or a frame cut short
        }
        return -1;
    }
    uint32_t frameLength = 0;
    int why = CheckFixedHeader(first, &frameLength);
    if (why != 0 || static_cast<size_t>(got) > frameLength) {
        errno = why != 0 ? why : EPROTO;  // refused before anything is allocated or read further
        return -1;
    }
    if (static_cast<size_t>(got) == frameLength) {
        int rc = dxmp_message_decode(msg, first, frameLength);
        errno = rc != 0 ? EPROTO : errno;
        return rc;
    }
    auto* frame = static_cast<uint8_t*>(malloc(frameLength));
    if (frame == nullptr) {
        errno = ENOMEM;
        return -1;
    }
    memcpy(frame, first, static_cast<size_t>(got));
    size_t rest = frameLength - static_cast<size_t>(got);
    ssize_t n = FdReadFull(fd, frame + got, rest);
    int rc = -1;
    if (n == static_cast<ssize_t>(rest)) {
        rc = dxmp_message_decode(msg, frame, frameLength);
        if (rc != 0) {
            errno = EPROTO;
        }
    } else if (n >= 0) {
        // A frame cut short, on a non-blocking descriptor too: EAGAIN means that nothing was read.
        errno = EPROTO;
    }
    int savedErrno = errno;
    free(frame);
    errno = savedErrno;
    return rc;
}
