// The emulator's reader of DXMP requests and its enable-list request block check: whatever the
// frame, uri and method are those of the fixed header.
#include <cstring>

#include "analysis_request.h"
#include "dxmp_message.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<uint8_t> frame(data, data + size);
    analysis::Request request;
    if (analysis::DecodeRequest(frame, &request) == 0 && request.hasBlock) {
        analysis::ValidRequestBlock(request.block);
    }
    if (size >= DXMP_FIXED_HEADER_LEN) {
        uint16_t uri = 0;
        memcpy(&uri, data + DXMP_HDR_URI, sizeof(uri));
        FUZZ_CHECK(request.uri == uri && request.method == (data[DXMP_HDR_FLAGS_METHOD] & 0x7F));
    }
    analysis::ValidRequestBlock(frame);  // the block check on arbitrary bytes as well
    return 0;
}
