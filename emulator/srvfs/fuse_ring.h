// FUSE over io_uring, under libfuse. Where the kernel offers it, requests arrive on one ring per CPU
// instead of through read() on /dev/fuse: the queue thread of a CPU serves the callers running on
// that CPU, so a round trip is two switches on one CPU rather than wake-ups across CPUs.
//
// libfuse (3.14) knows nothing of the ring. It keeps parsing requests and building replies; this
// file only moves the bytes. The device hooks see the INIT exchange and add the ring to the reply
// when the kernel offered it; each request taken from a ring is laid out as the device would have
// delivered it and handed to fuse_session_process_buf, and its reply (from whichever thread sends
// it, now or later) is written back into the ring entry it came on. Everything the ring does not
// carry (INIT, interrupts, forgets, notifications) keeps going through the device.
#ifndef SRVFS_FUSE_RING_H
#define SRVFS_FUSE_RING_H

#include <fuse_lowlevel.h>
#include <sys/uio.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace srvfs {
namespace detail {

struct RingEntry;
class RingQueue;

class FuseRing {
public:
    // allowRing false: the hooks still run but never ask for the ring.
    explicit FuseRing(bool allowRing);
    ~FuseRing();  // Stop()
    FuseRing(const FuseRing&) = delete;
    FuseRing& operator=(const FuseRing&) = delete;

    // Puts the hooks on a mounted session. The session's userdata must lead to this object
    // through SessionData (fuse_ops.h). 0 or -errno.
    int Attach(fuse_session* session);
    // Waits until INIT has been answered and, where the kernel offered the ring, every queue has
    // started: from then on every request comes through a ring. False after timeoutMs.
    bool WaitForInit(int timeoutMs);
    // Ends the queue threads after they have sent every reply already given. Requests that reach
    // a ring afterwards wait until the connection is aborted, which closing the session does.
    void Stop();
    // The kernel took the ring but not every queue could hand it entries: requests would wait for
    // good, so the mount must not be used.
    bool Broken() const { return broken_; }
    // Requests served from a ring so far: 0 when the kernel did not offer it.
    uint64_t RingRequests() const { return ringRequests_.load(std::memory_order_relaxed); }

    // The device hooks (fuse_custom_io).
    static ssize_t Read(int fd, void* buf, size_t len, void* userdata);
    static ssize_t Writev(int fd, iovec* iov, int count, void* userdata);

    // For the queues.
    fuse_session* Session() const { return session_; }
    int DeviceFd() const { return fd_; }
    size_t PayloadSize() const { return payloadSize_; }
    // A request taken from a ring: its reply goes back into this entry.
    void Track(uint64_t unique, RingEntry* entry);

private:
    void NoteInit(const void* request, size_t size);
    bool OfferRing(iovec* iov, int count);
    bool PrepareQueues();
    static ssize_t CommitReply(RingEntry* entry, const iovec* iov, int count);
    void StartQueues(bool answered);
    void InitAnswered();
    RingEntry* Take(uint64_t unique);

    const bool allowRing_;
    fuse_session* session_ = nullptr;
    int fd_ = -1;
    uint64_t initUnique_ = 0;  // INIT and its reply pass on the device thread alone
    bool offered_ = false;
    std::mutex initMutex_;
    std::condition_variable initDone_;
    bool initAnswered_ = false;
    bool broken_ = false;  // written before InitAnswered, read after WaitForInit
    size_t payloadSize_ = 0;
    std::vector<std::unique_ptr<RingQueue>> queues_;
    std::mutex pendingMutex_;
    // Requests taken, reply not yet sent: few at a time, so a flat list that never allocates once
    // it has grown to the number of requests that wait at once.
    std::vector<std::pair<uint64_t, RingEntry*>> pending_;
    std::atomic<uint64_t> ringRequests_{0};
};

}  // namespace detail
}  // namespace srvfs

#endif
