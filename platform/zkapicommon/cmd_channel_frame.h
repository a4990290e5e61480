// Framing of the unix-socket command channel, shared by the host's client and the emulator's server.
// Every frame is a 16-byte little-endian header followed by `length` payload bytes; the layout and
// limits are described in docs/command-channel.md. All I/O is bounded by an absolute deadline on the
// monotonic clock, so a silent or half-dead peer fails the exchange instead of blocking it.
#ifndef CMD_CHANNEL_FRAME_H
#define CMD_CHANNEL_FRAME_H

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "unix_cmd_channel.h"

namespace cmdframe {

constexpr uint32_t kRequestMagic = 0x31434B56u;  // "VKC1" on the wire
constexpr uint32_t kReplyMagic = 0x52434B56u;    // "VKCR" on the wire
constexpr size_t kHeaderLen = 16;

// What the peer is asked to do; the reply echoes it.
enum Op : uint16_t {
    kOpGet = 1,  // GetCommon: payload is a command body, the reply carries the record read back
    kOpSet = 2,  // SetCommon: payload is the record to store, the reply carries nothing
    kOpMsg = 3,  // RestSendSynUnixMsg: payload is a command body, the reply carries a MSG_DATA
};

constexpr uint32_t kMaxRequestPayload = VW_CMD_BODY_LEN;

enum IoStatus {
    kIoOk = 0,
    kIoClosed,     // the peer closed the connection before the first byte of a frame
    kIoTimeout,    // the deadline passed
    kIoError,      // a socket error, or the peer closed in the middle of a frame
    kIoMalformed,  // wrong magic, or an operation this side does not know
    kIoTooLong,    // the announced payload exceeds the limit for its operation
};

struct Request {
    uint16_t op = 0;
    uint16_t msgType = 0;
    uint32_t cmd = 0;
    std::vector<unsigned char> payload;
};

// A request as the client sends it: the payload is the caller's own bytes, written without a copy.
struct OutgoingRequest {
    uint16_t op = 0;
    uint16_t msgType = 0;
    uint32_t cmd = 0;
    const void* payload = nullptr;
    size_t length = 0;
};

struct Reply {
    uint16_t op = 0;
    int32_t result = 0;
    std::vector<unsigned char> payload;
};

// Longest reply payload accepted for an operation; 0 for an unknown one.
uint32_t ReplyLimit(uint16_t op);
const char* IoStatusText(IoStatus status);

// Milliseconds on the monotonic clock, and the deadline timeoutMs from now.
int64_t NowMs();
int64_t DeadlineAfter(int timeoutMs);

IoStatus WriteAll(int fd, const void* data, size_t len, int64_t deadlineMs);
IoStatus ReadAll(int fd, void* data, size_t len, int64_t deadlineMs);

// Reads frames from one stream through a buffer as large as the longest frame, so that a frame
// that is already there costs one read however long it is. Bytes read past a frame stay for the
// next one.
class FrameReader {
public:
    explicit FrameReader(uint32_t maxPayload) : buf_(kHeaderLen + maxPayload) {}

    // One read of whatever the peer sent, waiting in the kernel when the descriptor blocks (the
    // caller bounds that wait: SO_RCVTIMEO, or shutdown() from another thread). kIoOk also when
    // the read was interrupted or timed out: the Read* call that follows waits with the deadline.
    IoStatus Fill(int fd);
    // Completes the next request frame within the deadline.
    IoStatus ReadRequest(int fd, Request* request, int64_t deadlineMs);
    // Completes the reply to a request of operation op: a reply for another operation is malformed.
    IoStatus ReadReply(int fd, uint16_t op, Reply* reply, int64_t deadlineMs);
    // Bytes buffered past the frames read so far, and dropping them (a new connection).
    size_t Pending() const { return have_; }
    void Reset() { have_ = 0; }

private:
    IoStatus ReadAtLeast(int fd, size_t want, int64_t deadlineMs);
    IoStatus ReadPayload(int fd, uint32_t length, uint32_t limit, std::vector<unsigned char>* payload,
                         int64_t deadlineMs);

    std::vector<unsigned char> buf_;
    size_t have_ = 0;
};

IoStatus WriteRequest(int fd, const OutgoingRequest& request, int64_t deadlineMs);
IoStatus WriteReply(int fd, const Reply& reply, int64_t deadlineMs);
// One frame from a stream that carries nothing else (whatever follows it is dropped).
IoStatus ReadRequest(int fd, Request* request, int64_t deadlineMs);
IoStatus ReadReply(int fd, uint16_t op, Reply* reply, int64_t deadlineMs);

}  // namespace cmdframe

#endif
