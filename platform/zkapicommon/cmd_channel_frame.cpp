#include "cmd_channel_frame.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

namespace cmdframe {
namespace {

void PutU16(unsigned char* p, uint16_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
}

void PutU32(unsigned char* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        p[i] = static_cast<unsigned char>(v >> (8 * i));
    }
}

uint16_t GetU16(const unsigned char* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

uint32_t GetU32(const unsigned char* p) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) {
        v = (v << 8) | p[i];
    }
    return v;
}

// Header words: magic, op, aux (message type or 0), word (command or result), payload length.
void EncodeHeader(unsigned char* out, uint32_t magic, uint16_t op, uint16_t aux, uint32_t word,
                  uint32_t length) {
    PutU32(out, magic);
    PutU16(out + 4, op);
    PutU16(out + 6, aux);
    PutU32(out + 8, word);
    PutU32(out + 12, length);
}

// Waits until fd is ready for events or the deadline passes.
IoStatus WaitReady(int fd, short events, int64_t deadlineMs) {
    for (;;) {
        int64_t left = deadlineMs - NowMs();
        if (left <= 0) {
            return kIoTimeout;
        }
        struct pollfd pfd = {fd, events, 0};
        int n = poll(&pfd, 1, static_cast<int>(left > 60000 ? 60000 : left));
        if (n > 0) {
            return kIoOk;
        }
        if (n < 0 && errno != EINTR) {
            return kIoError;
        }
    }
}

// Header and payload go out in one call (one entry into the kernel, one wake-up of the peer);
// whatever that call did not take follows piece by piece, waiting for room as needed.
IoStatus WriteFrame(int fd, const unsigned char* header, const void* payload, size_t length,
                    int64_t deadlineMs) {
    struct iovec iov[2] = {{const_cast<unsigned char*>(header), kHeaderLen},
                           {const_cast<void*>(payload), length}};
    struct msghdr msg;
    memset(&msg, 0, sizeof(msg));
    msg.msg_iov = iov;
    msg.msg_iovlen = length > 0 ? 2 : 1;
    ssize_t n = 0;
    do {
        n = sendmsg(fd, &msg, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (n < 0 && errno == EINTR);
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
        return kIoError;
    }
    size_t sent = n > 0 ? static_cast<size_t>(n) : 0;
    if (sent < kHeaderLen) {
        IoStatus st = WriteAll(fd, header + sent, kHeaderLen - sent, deadlineMs);
        if (st != kIoOk) {
            return st;
        }
        sent = kHeaderLen;
    }
    size_t done = sent - kHeaderLen;
    return WriteAll(fd, static_cast<const unsigned char*>(payload) + done, length - done, deadlineMs);
}

// Receives into buf (room bytes, *have of them filled) until at least want are there, waiting for
// each further part until the deadline. kIoClosed when the peer closed before the first byte.
IoStatus RecvAtLeast(int fd, unsigned char* buf, size_t room, size_t want, size_t* have, int64_t deadlineMs) {
    while (*have < want) {
        ssize_t n = recv(fd, buf + *have, room - *have, MSG_DONTWAIT);
        if (n > 0) {
            *have += static_cast<size_t>(n);
        } else if (n == 0) {
            return *have == 0 ? kIoClosed : kIoError;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            IoStatus st = WaitReady(fd, POLLIN, deadlineMs);
            if (st != kIoOk) {
                return st;
            }
        } else if (errno != EINTR) {
            return kIoError;
        }
    }
    return kIoOk;
}

}  // namespace

uint32_t ReplyLimit(uint16_t op) {
    switch (op) {
        case kOpGet:
            return VW_CMD_BODY_LEN;
        case kOpSet:
            return 0;
        case kOpMsg:
            return VW_MSG_DATA_LEN;
        default:
            return 0;
    }
}

const char* IoStatusText(IoStatus status) {
    switch (status) {
        case kIoOk:
            return "ok";
        case kIoClosed:
            return "peer closed";
        case kIoTimeout:
            return "timed out";
        case kIoError:
            return "socket error";
        case kIoMalformed:
            return "malformed frame";
        case kIoTooLong:
            return "frame too long";
    }
    return "unknown";
}

int64_t NowMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

int64_t DeadlineAfter(int timeoutMs) {
    return NowMs() + (timeoutMs > 0 ? timeoutMs : 0);
}

IoStatus WriteAll(int fd, const void* data, size_t len, int64_t deadlineMs) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    while (len > 0) {
        ssize_t n = send(fd, p, len, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            p += n;
            len -= static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            IoStatus st = WaitReady(fd, POLLOUT, deadlineMs);
            if (st != kIoOk) {
                return st;
            }
            continue;
        }
        return kIoError;
    }
    return kIoOk;
}

IoStatus ReadAll(int fd, void* data, size_t len, int64_t deadlineMs) {
    size_t got = 0;
    return RecvAtLeast(fd, static_cast<unsigned char*>(data), len, len, &got, deadlineMs);
}

IoStatus WriteRequest(int fd, const OutgoingRequest& request, int64_t deadlineMs) {
    unsigned char header[kHeaderLen];
    EncodeHeader(header, kRequestMagic, request.op, request.msgType, request.cmd,
                 static_cast<uint32_t>(request.length));
    return WriteFrame(fd, header, request.payload, request.length, deadlineMs);
}

IoStatus WriteReply(int fd, const Reply& reply, int64_t deadlineMs) {
    unsigned char header[kHeaderLen];
    EncodeHeader(header, kReplyMagic, reply.op, 0, static_cast<uint32_t>(reply.result),
                 static_cast<uint32_t>(reply.payload.size()));
    return WriteFrame(fd, header, reply.payload.data(), reply.payload.size(), deadlineMs);
}

IoStatus FrameReader::Fill(int fd) {
    ssize_t n = recv(fd, buf_.data() + have_, buf_.size() - have_, 0);
    if (n > 0) {
        have_ += static_cast<size_t>(n);
        return kIoOk;
    }
    if (n == 0) {
        return have_ == 0 ? kIoClosed : kIoError;
    }
    return errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK ? kIoOk : kIoError;
}

IoStatus FrameReader::ReadAtLeast(int fd, size_t want, int64_t deadlineMs) {
    return RecvAtLeast(fd, buf_.data(), buf_.size(), want, &have_, deadlineMs);
}

// Takes the payload of the frame whose header heads the buffer and drops the frame from it.
IoStatus FrameReader::ReadPayload(int fd, uint32_t length, uint32_t limit,
                                  std::vector<unsigned char>* payload, int64_t deadlineMs) {
    if (length > limit) {
        return kIoTooLong;
    }
    IoStatus st = ReadAtLeast(fd, kHeaderLen + length, deadlineMs);
    if (st != kIoOk) {
        return st == kIoClosed ? kIoError : st;
    }
    const unsigned char* start = buf_.data() + kHeaderLen;
    payload->assign(start, start + length);
    have_ -= kHeaderLen + length;
    memmove(buf_.data(), start + length, have_);
    return kIoOk;
}

IoStatus FrameReader::ReadRequest(int fd, Request* request, int64_t deadlineMs) {
    IoStatus st = ReadAtLeast(fd, kHeaderLen, deadlineMs);
    if (st != kIoOk) {
        return st;
    }
    const unsigned char* header = buf_.data();
    uint16_t op = GetU16(header + 4);
    if (GetU32(header) != kRequestMagic || (op != kOpGet && op != kOpSet && op != kOpMsg)) {
        return kIoMalformed;
    }
    request->op = op;
    request->msgType = GetU16(header + 6);
    request->cmd = GetU32(header + 8);
    return ReadPayload(fd, GetU32(header + 12), kMaxRequestPayload, &request->payload, deadlineMs);
}

IoStatus FrameReader::ReadReply(int fd, uint16_t op, Reply* reply, int64_t deadlineMs) {
    IoStatus st = ReadAtLeast(fd, kHeaderLen, deadlineMs);
    if (st != kIoOk) {
        return st;
    }
    const unsigned char* header = buf_.data();
    if (GetU32(header) != kReplyMagic || GetU16(header + 4) != op) {
        return kIoMalformed;
    }
    reply->op = op;
    reply->result = static_cast<int32_t>(GetU32(header + 8));
    return ReadPayload(fd, GetU32(header + 12), ReplyLimit(op), &reply->payload, deadlineMs);
}

IoStatus ReadRequest(int fd, Request* request, int64_t deadlineMs) {
    FrameReader reader(kMaxRequestPayload);
    return reader.ReadRequest(fd, request, deadlineMs);
}

IoStatus ReadReply(int fd, uint16_t op, Reply* reply, int64_t deadlineMs) {
    FrameReader reader(ReplyLimit(op));
    return reader.ReadReply(fd, op, reply, deadlineMs);
}

}  // namespace cmdframe
