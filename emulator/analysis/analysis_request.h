// A request to the analysis service, taken apart: the fixed-header fields it answers to, the header
// items of the multi-task commands and the content.
#ifndef VKS_ANALYSIS_REQUEST_H
#define VKS_ANALYSIS_REQUEST_H

#include <cstdint>
#include <vector>

namespace analysis {

struct Request {
    uint16_t uri = 0;
    uint8_t method = 0;  // low 7 bits of byte 3
    bool hasChannel = false;
    uint64_t channelId = 0;  // item 0xB002, 8 bytes
    bool hasGroup = false;
    int32_t channelGroup = 0;  // item 0xB011, 4 bytes
    bool hasBlock = false;
    std::vector<uint8_t> block;  // item 0xB010, the enable-list request block
    std::vector<uint8_t> content;
};

// Reads the fixed header (always, the frame was cut by its length) and then the items and content.
// -1 when the body does not decode or a known item has the wrong length; uri and method are still set.
int DecodeRequest(const std::vector<uint8_t>& frame, Request* out);
// The enable-list request block: a 288-byte fixed part, bufferLen (byte 256) = the text's length with
// its NUL and the block's tail exactly, 1 at byte 268, and a text that starts with "GET ".
bool ValidRequestBlock(const std::vector<uint8_t>& block);

}  // namespace analysis

#endif
