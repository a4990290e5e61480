// A service behind one file of the service file system: request frames in, reply frames out.
#ifndef SRVFS_SERVICE_H
#define SRVFS_SERVICE_H

#include <cstdint>
#include <memory>
#include <vector>

namespace srvfs {

namespace detail {
class Core;
}

// Settings a client made on its connection with the SRVFS_* ioctls.
struct ConnSettings {
    unsigned long timeoutMs;  // read time-out (SRVFS_CONN_SETTIMEOUT), milliseconds
    unsigned long readSize;   // SRVFS_BUFF_SETRDSIZE, 0 until set
    unsigned long writeSize;  // SRVFS_BUFF_SETWRSIZE, 0 until set
};

// Names the connection a request came on. Copyable and safe to keep on any thread: a reply to a
// connection that has been closed (or a file system that has been unmounted) is dropped.
class ReplyHandle {
public:
    ReplyHandle() = default;
    ReplyHandle(std::weak_ptr<detail::Core> core, uint64_t connId)
        : core_(std::move(core)), connId_(connId) {}

    uint64_t ConnId() const { return connId_; }
    // Queues one reply frame for the client's reads. False when the connection is gone.
    bool Reply(std::vector<uint8_t> frame) const;
    // The same after delayMs, from the file system's timer thread (never blocks the caller).
    void ReplyAfter(std::vector<uint8_t> frame, int delayMs) const;

private:
    std::weak_ptr<detail::Core> core_;
    uint64_t connId_ = 0;
};

// Called from the file system's thread: implementations must not block (defer slow answers with
// ReplyAfter or their own threads) and must never touch the mount themselves.
class Service {
public:
    virtual ~Service() = default;
    // One complete request frame (fixed header included).
    virtual void OnRequest(const ReplyHandle& conn, std::vector<uint8_t> frame) = 0;
    virtual void OnOpen(const ReplyHandle& /*conn*/) {}
    // An accepted ioctl, after it was recorded in the connection's settings.
    virtual void OnIoctl(const ReplyHandle& /*conn*/, unsigned int /*cmd*/, unsigned long /*arg*/) {}
    virtual void OnClose(uint64_t /*connId*/) {}
};

}  // namespace srvfs

#endif
