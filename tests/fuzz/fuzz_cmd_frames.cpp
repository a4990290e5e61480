// The command-channel frame readers: the client's reply reader for each operation and the
// emulator's request reader. A frame that reads writes back as the same bytes (a reply's unused
// ones aside).
#include <cstring>
#include <vector>

#include "cmd_channel_frame.h"
#include "fuzz_support.h"

namespace {

// The bytes a writer produces for what was read.
template <typename Frame, typename Write>
std::vector<uint8_t> Written(const Frame& frame, Write write) {
    int fds[2];
    FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, fds) == 0);
    int buffer = 1 << 20;
    setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &buffer, sizeof(buffer));
    FUZZ_CHECK(write(fds[0], frame, cmdframe::DeadlineAfter(1000)) == cmdframe::kIoOk);
    close(fds[0]);
    std::vector<uint8_t> bytes;
    uint8_t chunk[4096];
    for (ssize_t n; (n = read(fds[1], chunk, sizeof(chunk))) > 0;) {
        bytes.insert(bytes.end(), chunk, chunk + n);
    }
    close(fds[1]);
    return bytes;
}

// A reply's bytes 6-7 are written 0 and not read: they are left out of the comparison.
void SamePrefix(std::vector<uint8_t> written, const uint8_t* data, size_t size, bool reply) {
    FUZZ_CHECK(written.size() >= 8 && written.size() <= size);
    if (reply) {
        written[6] = data[6];
        written[7] = data[7];
    }
    FUZZ_CHECK(memcmp(written.data(), data, written.size()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vks_fuzz::QuietLogs();
    int fd = vks_fuzz::SocketWith(data, size);
    cmdframe::Request request;
    if (fd >= 0 && cmdframe::ReadRequest(fd, &request, cmdframe::DeadlineAfter(1000)) == cmdframe::kIoOk) {
        const cmdframe::OutgoingRequest out{request.op, request.msgType, request.cmd, request.payload.data(),
                                            request.payload.size()};
        SamePrefix(Written(out, cmdframe::WriteRequest), data, size, false);
    }
    close(fd);
    for (uint16_t op : {cmdframe::kOpGet, cmdframe::kOpSet, cmdframe::kOpMsg}) {
        fd = vks_fuzz::SocketWith(data, size);
        cmdframe::Reply reply;
        if (fd >= 0 &&
            cmdframe::ReadReply(fd, op, &reply, cmdframe::DeadlineAfter(1000)) == cmdframe::kIoOk) {
            SamePrefix(Written(reply, cmdframe::WriteReply), data, size, true);
        }
        close(fd);
    }
    return 0;
}
