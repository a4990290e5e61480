// The DXMP frame decoder, from memory and through a descriptor: a frame that decodes re-encodes to
// the same bytes (the reserved ones aside) and declares its length, a refused one leaves the message
// as it was. The refused_* seeds are one damage each to a valid frame.
#include <cstring>

#include "dxmp_message.h"
#include "fuzz_support.h"

namespace {

void ReencodesTo(dxmp_message* msg, const uint8_t* frame, size_t size) {
    uint32_t length = 0;
    uint8_t* again = dxmp_message_encode(msg, &length);
    // Bytes 14-15 are reserved: readers ignore them, writers put 0 there.
    FUZZ_CHECK(again != nullptr && length == size && memcmp(again, frame, 14) == 0 &&
               memcmp(again + 16, frame + 16, size - 16) == 0);
    free(again);
}

// A message that already holds an item and content: decoding must replace all of it.
dxmp_message* UsedMessage() {
    dxmp_message* msg = dxmp_message_new(0);
    dxmp_header_set(msg, 0x7777, "old", 3);
    dxmp_content_add(msg, "old content", 11, 0);
    return msg;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    dxmp_message* msg = UsedMessage();
    uint32_t declared = 0;
    const bool lengthRead = size >= DXMP_FIXED_HEADER_LEN && dxmp_frame_length(data, &declared) == 0;
    if (dxmp_message_decode(msg, data, static_cast<uint32_t>(size)) == 0) {
        // A frame that decodes declares its own length in its fixed header.
        FUZZ_CHECK(lengthRead && declared == size);
        ReencodesTo(msg, data, size);
    } else {
        // A refused frame leaves the message as it was.
        dxmp_message* untouched = UsedMessage();
        uint32_t wasLength = 0;
        uint8_t* was = dxmp_message_encode(untouched, &wasLength);
        ReencodesTo(msg, was, wasLength);
        free(was);
        dxmp_message_put(untouched);
    }
    dxmp_message_put(msg);

    // recvfd takes the first frame of the stream: when it decodes, it is the input's prefix.
    int fd = vks_fuzz::FdWith(data, size);
    if (fd >= 0) {
        msg = UsedMessage();
        if (dxmp_message_recvfd(msg, fd) == 0) {
            uint32_t frameLength = 0;
            FUZZ_CHECK(dxmp_frame_length(data, &frameLength) == 0 && frameLength <= size);
            ReencodesTo(msg, data, frameLength);
        }
        dxmp_message_put(msg);
        close(fd);
    }
    return 0;
}
