// Cuts the byte stream a client writes into whole DXMP frames: a frame may arrive over several
// writes and one write may carry several frames.
#ifndef SRVFS_FRAME_SPLITTER_H
#define SRVFS_FRAME_SPLITTER_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace srvfs {
namespace detail {

class FrameSplitter {
public:
    // Appends bytes and moves every completed frame to *frames. -1 when a fixed header is not a valid
    // frame header: the buffered bytes are dropped (the stream cannot be resynchronised), frames
    // completed before it are still returned.
    int Feed(const uint8_t* data, size_t size, std::vector<std::vector<uint8_t>>* frames);
    size_t Buffered() const { return buffer_.size(); }

private:
    std::vector<uint8_t> buffer_;
};

}  // namespace detail
}  // namespace srvfs

#endif
