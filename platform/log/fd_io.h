// Whole-buffer reads and writes on a descriptor: pipes, sockets and the service file system may move
// fewer bytes than asked, and a signal handler installed without SA_RESTART interrupts a blocked call.
#ifndef VKS_FD_IO_H
#define VKS_FD_IO_H

#include <stddef.h>
#include <sys/types.h>

// Reads until length bytes are in buf, end of file, or an error other than EINTR. Returns the number
// of bytes read (less than length only at end of file, or when a non-blocking descriptor ran dry
// after some bytes), or -1 with errno (EAGAIN: a non-blocking descriptor had nothing).
ssize_t FdReadFull(int fd, void* buf, size_t length);

// Writes all length bytes, retrying short writes and EINTR. A socket whose peer has gone fails with
// EPIPE instead of raising SIGPIPE. Returns 0, or -1 with errno.
int FdWriteFull(int fd, const void* buf, size_t length);

#endif
