#include "frame_splitter.h"

#include "dxmp_message.h"

namespace srvfs {
namespace detail {

int FrameSplitter::Feed(const uint8_t* data, size_t size, std::vector<std::vector<uint8_t>>* frames) {
    buffer_.insert(buffer_.end(), data, data + size);
    size_t start = 0;
    int rc = 0;
    while (buffer_.size() - start >= DXMP_FIXED_HEADER_LEN) {
        uint32_t length = 0;
        if (dxmp_frame_length(buffer_.data() + start, &length) != 0) {
            rc = -1;
            start = buffer_.size();
            break;
        }
        if (buffer_.size() - start < length) {
            break;
        }
        frames->emplace_back(buffer_.begin() + static_cast<std::ptrdiff_t>(start),
                             buffer_.begin() + static_cast<std::ptrdiff_t>(start + length));
        start += length;
    }
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(start));
    return rc;
}

}  // namespace detail
}  // namespace srvfs
