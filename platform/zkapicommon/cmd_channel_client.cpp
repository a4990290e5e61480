// Host side of the unix-socket command channel: one connection per handle, one exchange at a time.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "cmd_channel_frame.h"
#include "kit_dir.h"
#include "unix_cmd_channel.h"
#include "vw_log.h"

struct tagUNIX_SOCKET_S {
    std::string path;
    int fd = -1;
    int timeoutMs = VW_CMD_TIMEOUT_DEFAULT_MS;
    std::mutex mutex;                               // a connection carries one exchange at a time
    std::unique_ptr<cmdframe::FrameReader> reader;  // made at the first exchange
};

#define CMD_LOG(fmt, ...) VW_WriteLog(0, 3, g_enDebugFlag, 0, __FILE__, __LINE__, (fmt), ##__VA_ARGS__)

namespace {

void Disconnect(tagUNIX_SOCKET_S* sock) {
    if (sock->fd >= 0) {
        close(sock->fd);
        sock->fd = -1;
    }
}

// The server the socket reaches runs as this user or as root. Its folder was checked at start, but
// a user who owns a folder above it can swap it since, and a server of that user's could then name
// any file as a result for the module to read and remove.
bool TrustedPeer(int fd, const std::string& path) {
    struct ucred peer = {};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return false;
    }
    if (peer.uid != 0 && peer.uid != geteuid()) {
        CMD_LOG("[CMDCHAN]:%s served by uid %u, neither this user nor root: refused", path.c_str(),
                static_cast<unsigned>(peer.uid));
        return false;
    }
    return true;
}

cmdframe::IoStatus Connect(tagUNIX_SOCKET_S* sock, int64_t deadlineMs) {
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (sock->path.size() >= sizeof(addr.sun_path)) {
        return cmdframe::kIoError;
    }
    memcpy(addr.sun_path, sock->path.c_str(), sock->path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return cmdframe::kIoError;
    }
    bool connected = connect(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) == 0;
    // A full backlog answers EAGAIN on a non-blocking unix socket: retry until the deadline.
    while (!connected && errno == EAGAIN && cmdframe::NowMs() < deadlineMs) {
        usleep(1000);
        connected = connect(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) == 0;
    }
    // Connected, the socket blocks, at most the handle's time-out: a reply that comes at once is
    // then read with one call, not a failed read, a poll and a read again.
    struct timeval wait = {sock->timeoutMs / 1000, (sock->timeoutMs % 1000) * 1000};
    if (!connected || !TrustedPeer(fd, sock->path) || fcntl(fd, F_SETFL, 0) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) != 0) {
        cmdframe::IoStatus st = !connected && errno == EAGAIN ? cmdframe::kIoTimeout : cmdframe::kIoError;
        close(fd);
        return st;
    }
    sock->fd = fd;
    sock->reader->Reset();
    return cmdframe::kIoOk;
}

// The reply, read through the handle's buffer. Bytes past it were sent unasked: the stream is no
// longer in step with the exchanges.
cmdframe::IoStatus ReadReply(tagUNIX_SOCKET_S* sock, uint16_t op, cmdframe::Reply* reply,
                             int64_t deadlineMs) {
    cmdframe::IoStatus st = sock->reader->Fill(sock->fd);
    if (st == cmdframe::kIoOk) {
        st = sock->reader->ReadReply(sock->fd, op, reply, deadlineMs);
    }
    return st == cmdframe::kIoOk && sock->reader->Pending() != 0 ? cmdframe::kIoMalformed : st;
}

cmdframe::IoStatus SendOnce(tagUNIX_SOCKET_S* sock, const cmdframe::OutgoingRequest& request,
                            int64_t deadlineMs, bool* reused) {
    *reused = sock->fd >= 0;
    if (sock->fd < 0) {
        cmdframe::IoStatus st = Connect(sock, deadlineMs);
        if (st != cmdframe::kIoOk) {
            return st;
        }
    }
    return cmdframe::WriteRequest(sock->fd, request, deadlineMs);
}

// Sends the request and reads its reply within the handle's time-out. Any failure drops the
// connection: after a partial frame the stream can no longer be trusted.
cmdframe::IoStatus Exchange(tagUNIX_SOCKET_S* sock, const cmdframe::OutgoingRequest& request,
                            cmdframe::Reply* reply) {
    std::lock_guard<std::mutex> lock(sock->mutex);
    int64_t deadlineMs = cmdframe::DeadlineAfter(sock->timeoutMs);
    if (!sock->reader) {
        sock->reader.reset(new cmdframe::FrameReader(
            std::max(cmdframe::ReplyLimit(cmdframe::kOpGet), cmdframe::ReplyLimit(cmdframe::kOpMsg))));
    }
    bool reused = false;
    cmdframe::IoStatus st = SendOnce(sock, request, deadlineMs, &reused);
    if (st == cmdframe::kIoError && reused) {
        // The peer closed the idle connection (restarted, or dropped it): the write failed with
        // EPIPE before anything went out. One fresh attempt.
        Disconnect(sock);
        st = SendOnce(sock, request, deadlineMs, &reused);
    }
    if (st == cmdframe::kIoOk) {
        st = ReadReply(sock, request.op, reply, deadlineMs);
    }
    if (st != cmdframe::kIoOk) {
        CMD_LOG("[CMDCHAN]:%s cmd[%u] op[%u] failed: %s", sock->path.c_str(), request.cmd, request.op,
                cmdframe::IoStatusText(st));
        Disconnect(sock);
    }
    return st;
}

// The request refers to the caller's body, which outlives the exchange: no copy of its 21,208 bytes.
cmdframe::OutgoingRequest MakeRequest(cmdframe::Op op, uint16_t msgType, VW_CMD_TYPE cmd, const void* data,
                                      size_t len) {
    cmdframe::OutgoingRequest request;
    request.op = op;
    request.msgType = msgType;
    request.cmd = static_cast<uint32_t>(cmd);
    request.payload = data;
    request.length = len;
    return request;
}

// The record a read command gives back: GetCommon never hands over a shorter block, because the
// caller reads the whole record from it.
size_t MinRecordLength(VW_CMD_TYPE cmd) {
    switch (cmd) {
        case VW_CMD_HISTORY_SWITCH:
            return VW_CMD_HISTORY_SWITCH_RECORD_LEN;
        case VW_CMD_DISPLAY_RECOG_INFOS:
            return VW_CMD_DISPLAY_RECOG_INFOS_RECORD_LEN;
        default:
            return 1;  // a command we know no record of: at least something
    }
}

// One exchange. Running out of memory while framing is a failed exchange, never an exception across
// the C interface; the connection is dropped as after any failure, a frame may be half read.
cmdframe::IoStatus Call(tagUNIX_SOCKET_S* sock, cmdframe::Op op, uint16_t msgType, VW_CMD_TYPE cmd,
                        const void* data, size_t len, cmdframe::Reply* reply) {
    try {
        return Exchange(sock, MakeRequest(op, msgType, cmd, data, len), reply);
    } catch (const std::bad_alloc&) {
        CMD_LOG("[CMDCHAN]:%s cmd[%d] failed: out of memory", sock->path.c_str(), static_cast<int>(cmd));
        std::lock_guard<std::mutex> lock(sock->mutex);
        Disconnect(sock);
        return cmdframe::kIoError;
    }
}

}  // namespace

tagUNIX_SOCKET_S* UnixSocketOpen(const char* path, int timeoutMs) {
    tagUNIX_SOCKET_S* sock = new (std::nothrow) tagUNIX_SOCKET_S;
    if (sock == nullptr) {
        return nullptr;
    }
    sock->path = path != nullptr ? path : kitdir::DefaultCmdSocket();
    sock->timeoutMs = timeoutMs > 0 ? timeoutMs : VW_CMD_TIMEOUT_DEFAULT_MS;
    return sock;
}

void UnixSocketClose(tagUNIX_SOCKET_S* sock) {
    if (sock == nullptr) {
        return;
    }
    Disconnect(sock);
    delete sock;
}

VW_RESULT_TYPE GetCommon(tagHTTP_HEADER_S* /*header*/, tagUNIX_SOCKET_S* sock, VW_CMD_TYPE cmd,
                         vwCmdBody const* body, void** out, unsigned long long /*reserved*/,
                         char const* /*tag*/) {
    if (sock == nullptr || body == nullptr || out == nullptr) {
        return VW_INVALID_PARAM;
    }
    cmdframe::Reply reply;
    if (Call(sock, cmdframe::kOpGet, 0, cmd, body, sizeof(*body), &reply) != cmdframe::kIoOk) {
        return VW_FAILED;
    }
    if (reply.result != 0) {
        return reply.result;
    }
    if (reply.payload.empty()) {
        CMD_LOG("[CMDCHAN]:cmd[%d] answered success without a record", static_cast<int>(cmd));
        return VW_FAILED;
    }
    if (reply.payload.size() < MinRecordLength(cmd)) {
        CMD_LOG("[CMDCHAN]:cmd[%d] answered a record of %zu bytes, expected at least %zu",
                static_cast<int>(cmd), reply.payload.size(), MinRecordLength(cmd));
        return VW_MEMORY_ERROR;
    }
    void* record = malloc(reply.payload.size());
    if (record == nullptr) {
        return VW_MEMORY_ERROR;
    }
    memcpy(record, reply.payload.data(), reply.payload.size());
    *out = record;
    return VW_SUCCESS;
}

VW_RESULT_TYPE SetCommon(tagHTTP_HEADER_S* /*header*/, void* data, unsigned int length,
                         tagUNIX_SOCKET_S* sock, VW_CMD_TYPE cmd, unsigned long long /*reserved*/,
                         char const* /*tag*/) {
    if (sock == nullptr || (data == nullptr && length != 0) || length > cmdframe::kMaxRequestPayload) {
        return VW_INVALID_PARAM;
    }
    cmdframe::Reply reply;
    if (Call(sock, cmdframe::kOpSet, 0, cmd, data, length, &reply) != cmdframe::kIoOk) {
        return VW_FAILED;
    }
    return reply.result;
}

long long RestSendSynUnixMsg(char const* /*tag*/, VW_MSG_TYPE msgType, VW_CMD_TYPE cmd, vwCmdBody const* body,
                             tagUNIX_SOCKET_S* sock, MSG_DATA* reply, unsigned long long /*reserved*/) {
    if (sock == nullptr || body == nullptr || reply == nullptr) {
        return VW_INVALID_PARAM;
    }
    cmdframe::Reply answer;
    if (Call(sock, cmdframe::kOpMsg, static_cast<uint16_t>(msgType), cmd, body, sizeof(*body), &answer) !=
        cmdframe::kIoOk) {
        return VW_FAILED;
    }
    if (answer.result != 0) {
        return answer.result;
    }
    // A shorter MSG_DATA fills the record's start; the rest keeps what the caller put there.
    if (!answer.payload.empty()) {
        memcpy(reply, answer.payload.data(), answer.payload.size());
    }
    return VW_SUCCESS;
}
