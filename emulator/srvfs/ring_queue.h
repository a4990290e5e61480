// One CPU's FUSE ring: the thread that serves it, pinned to that CPU, and the entries it has handed
// to the kernel. Entries are added as requests keep them (a read that waits for its reply holds
// one), so that a queue never runs out while callers wait on it.
#ifndef SRVFS_RING_QUEUE_H
#define SRVFS_RING_QUEUE_H

#include <sys/uio.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "ring_abi.h"
#include "uring.h"

namespace srvfs {
namespace detail {

class FuseRing;
class RingQueue;

// A request's place in a ring: its two buffers, registered once, and the request it holds.
struct RingEntry {
    RingEntry(RingQueue* owner, size_t payloadSize);
    ~RingEntry();
    RingEntry(const RingEntry&) = delete;
    RingEntry& operator=(const RingEntry&) = delete;
    bool Mapped() const { return header != nullptr; }

    RingQueue* queue;
    ring_abi::RequestHeader* header = nullptr;  // page-aligned, with the payload after it
    char* payload = nullptr;
    size_t payloadSize;
    iovec iov[2];
    uint64_t commitId = 0;
};

class RingQueue {
public:
    RingQueue(FuseRing& ring, unsigned qid);
    ~RingQueue();  // Stop()
    RingQueue(const RingQueue&) = delete;
    RingQueue& operator=(const RingQueue&) = delete;

    // Before INIT is answered: starts the thread, which creates its ring and first entries, and
    // waits for that. True when they are ready; the kernel has not seen them yet.
    bool Prepare();
    // Once the INIT answer that takes the ring is written: hands the entries to the kernel and
    // waits until they are there. True when they are.
    bool Start();
    // Sends the replies already given, ends the thread and closes the ring.
    void Stop();
    // Queues the entry's reply for the kernel; callable from any thread.
    void Commit(RingEntry* entry);

private:
    void Run(std::promise<bool>* prepared);
    bool Create();
    bool Register();
    void Go(bool go);
    void Wake();
    void Pin() const;
    bool AddEntries(unsigned count);
    io_uring_sqe* Sqe();
    void PrepareCommand(io_uring_sqe* sqe, uint32_t command, RingEntry* entry) const;
    void ArmWake();
    bool SubmitCommits();  // true when there were replies to commit
    void Complete(const io_uring_cqe& cqe);
    void Dispatch(RingEntry* entry);
    void Refuse(RingEntry* entry, uint64_t unique, int error);

    FuseRing& ring_;
    const unsigned qid_;
    std::vector<std::unique_ptr<RingEntry>> entries_;
    Uring uring_;               // after the entries: the ring closes before their memory goes
    bool fixedDevice_ = false;  // the device is the ring's fixed file 0
    int wakeFd_ = -1;
    uint64_t wakeValue_ = 0;
    unsigned idle_ = 0;              // entries in the kernel, waiting for a request
    bool failed_ = false;            // the kernel refused an entry: add no more
    std::vector<char> request_;      // one request laid out as the device delivers it
    std::vector<RingEntry*> local_;  // replies given on this thread
    std::mutex mutex_;
    std::vector<RingEntry*> replied_;  // replies given on other threads
    std::atomic<bool> stop_{false};
    std::promise<bool> go_;  // set once: start serving, or give up before the kernel saw anything
    bool goGiven_ = false;
    std::promise<bool> started_;
    std::thread thread_;
};

}  // namespace detail
}  // namespace srvfs

#endif
