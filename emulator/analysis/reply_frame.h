// Encoding of a service's reply frame: the request's uri and method with the reply flag, a status, an
// optional result-code item and the content. Shared by the emulated service and scripted test peers.
#ifndef VKS_REPLY_FRAME_H
#define VKS_REPLY_FRAME_H

#include <cstdint>
#include <vector>

namespace analysis {

#define DXMP_REPLY_FLAG 0x80

struct ReplySpec {
    uint16_t status = 200;
    uint16_t uri = 0;
    uint8_t method = 0;               // low 7 bits; the reply flag is added
    const int32_t* result = nullptr;  // null: no 0xB001 item
    uint16_t resultLen = 4;           // item length; *result fills its first bytes, the rest is 0
    std::vector<uint8_t> content;
};

// The encoded frame, or empty when the message library refuses it.
std::vector<uint8_t> EncodeReply(const ReplySpec& spec);

}  // namespace analysis

#endif
