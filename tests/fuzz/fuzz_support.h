// Shared pieces of the fuzz targets: the libFuzzer entry point, a descriptor that reads back given
// bytes, quiet logs.
#ifndef VKS_FUZZ_SUPPORT_H
#define VKS_FUZZ_SUPPORT_H

#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "vw_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace vks_fuzz {

// An in-memory file holding the bytes, positioned at its start; -1 when it cannot be made.
inline int FdWith(const uint8_t* data, size_t size) {
    int fd = memfd_create("fuzz", 0);
    if (fd < 0 || write(fd, data, size) != static_cast<ssize_t>(size) || lseek(fd, 0, SEEK_SET) != 0) {
        if (fd >= 0) {
            close(fd);
        }
        return -1;
    }
    return fd;
}

// A stream socket from which the bytes (at most 256 KiB of them) can be read, then end of stream;
// -1 when it cannot be made.
inline int SocketWith(const uint8_t* data, size_t size) {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
        return -1;
    }
    int buffer = 1 << 20;
    setsockopt(fds[1], SOL_SOCKET, SO_SNDBUF, &buffer, sizeof(buffer));
    size = size < (256u << 10) ? size : (256u << 10);
    bool sent = size == 0 || send(fds[1], data, size, MSG_DONTWAIT) == static_cast<ssize_t>(size);
    close(fds[1]);
    if (!sent) {
        close(fds[0]);
        return -1;
    }
    return fds[0];
}

// Writes no debug line: a lot faster while fuzzing.
inline void QuietLogs() {
    VW_SetLogLevel(99);
}

// A broken invariant: the fuzzer and the corpus replay both report a crash.
#define FUZZ_CHECK(cond)  \
    do {                  \
        if (!(cond)) {    \
            std::abort(); \
        }                 \
    } while (0)

}  // namespace vks_fuzz

#endif
