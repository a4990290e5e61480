#include "fd_io.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

ssize_t FdReadFull(int fd, void* buf, size_t length) {
    auto* bytes = static_cast<unsigned char*>(buf);
    size_t done = 0;
    while (done < length) {
        ssize_t n = read(fd, bytes + done, length - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && done > 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;  // a non-blocking descriptor ran dry mid-way: what was read is gone from it
        }
        if (n < 0) {
            return -1;
        }
        if (n == 0) {
            break;
        }
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

int FdWriteFull(int fd, const void* buf, size_t length) {
    // send() spares a socket whose reader left the SIGPIPE; anything else refuses it with ENOTSOCK
    // and gets write(). Asking first (fstat) would cost a file-system round trip on a service file.
    bool socket = true;
    const auto* bytes = static_cast<const unsigned char*>(buf);
    size_t done = 0;
    while (done < length) {
        ssize_t n = socket ? send(fd, bytes + done, length - done, MSG_NOSIGNAL)
                           : write(fd, bytes + done, length - done);
        if (n < 0 && errno == ENOTSOCK && socket) {
            socket = false;
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return -1;
        }
        if (n == 0) {
            // A descriptor that takes nothing and reports no error would loop forever.
            errno = EIO;
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    return 0;
}
