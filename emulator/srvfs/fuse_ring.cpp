#include "fuse_ring.h"

#include <errno.h>
#include <linux/fuse.h>
#include <stdio.h>
#include <string.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "fuse_ops.h"
#include "ring_queue.h"

namespace srvfs {
namespace detail {
namespace {

const size_t kMinReadBuffer = 8192;    // the kernel's least request buffer
const uint16_t kDefaultMaxPages = 32;  // when INIT does not negotiate max_pages

FuseRing& RingOf(void* userdata) {
    return *static_cast<SessionData*>(userdata)->ring;
}

size_t TotalLength(const iovec* iov, int count) {
    size_t total = 0;
    for (int i = 0; i < count; ++i) {
        total += iov[i].iov_len;
    }
    return total;
}

}  // namespace

FuseRing::FuseRing(bool allowRing) : allowRing_(allowRing) {}

FuseRing::~FuseRing() {
    Stop();
}

int FuseRing::Attach(fuse_session* session) {
    session_ = session;
    fd_ = fuse_session_fd(session);
    fuse_custom_io io;
    memset(&io, 0, sizeof(io));
    io.read = &FuseRing::Read;
    io.writev = &FuseRing::Writev;
    return fuse_session_custom_io(session, &io, fd_);
}

void FuseRing::Stop() {
    for (auto& queue : queues_) {
        queue->Stop();
    }
}

ssize_t FuseRing::Read(int fd, void* buf, size_t len, void* userdata) {
    ssize_t res = read(fd, buf, len);  // errno as read() leaves it: libfuse reads it from there
    if (res > 0) {
        RingOf(userdata).NoteInit(buf, static_cast<size_t>(res));
    }
    return res;
}

// The session's INIT, and whether the kernel offers the ring in it. Only the first INIT counts.
void FuseRing::NoteInit(const void* request, size_t size) {
    const auto* in = static_cast<const fuse_in_header*>(request);
    if (initUnique_ != 0 || size < sizeof(*in) + sizeof(fuse_init_in) || in->opcode != FUSE_INIT) {
        return;
    }
    const auto* init = reinterpret_cast<const fuse_init_in*>(in + 1);
    initUnique_ = in->unique;
    offered_ = allowRing_ && (init->flags & FUSE_INIT_EXT) != 0 &&
               (init->flags2 & ring_abi::kInitFlags2OverIoUring) != 0;
}

ssize_t FuseRing::Writev(int fd, iovec* iov, int count, void* userdata) {
    FuseRing& self = RingOf(userdata);
    const auto* out = static_cast<const fuse_out_header*>(iov[0].iov_base);
    RingEntry* entry = out->unique != 0 ? self.Take(out->unique) : nullptr;
    if (entry != nullptr) {
        return CommitReply(entry, iov, count);
    }
    bool init = self.initUnique_ != 0 && out->unique == self.initUnique_;
    bool ring = init && self.OfferRing(iov, count);
    ssize_t res = writev(fd, iov, count);
    if (ring) {
        self.StartQueues(res >= 0);  // the kernel has the reply: it now takes ring entries
    }
    if (init) {
        self.InitAnswered();
    }
    return res;
}

// A reply to a request that came on a ring: the out header where the in header was, every
// argument after it in the payload, and the entry back to its queue.
ssize_t FuseRing::CommitReply(RingEntry* entry, const iovec* iov, int count) {
    auto* out = reinterpret_cast<fuse_out_header*>(entry->header->inOut);
    *out = *static_cast<const fuse_out_header*>(iov[0].iov_base);
    size_t total = TotalLength(iov, count);
    size_t payload = total - iov[0].iov_len;
    if (payload > entry->payloadSize) {
        out->error = -EIO;  // cannot happen within max_write; never a truncated reply
        payload = 0;
    }
    size_t at = 0;
    for (int i = 1; i < count && payload != 0; ++i) {
        memcpy(entry->payload + at, iov[i].iov_base, iov[i].iov_len);
        at += iov[i].iov_len;
    }
    out->len = static_cast<uint32_t>(sizeof(*out) + payload);
    entry->header->entry.payloadSz = static_cast<uint32_t>(payload);
    entry->queue->Commit(entry);
    return static_cast<ssize_t>(total);
}

// Adds the ring to libfuse's INIT reply when the kernel offered it and every queue has its ring and
// first entries ready. Once the kernel has taken the ring, a request waits until every queue has an
// entry in the kernel, so a queue that could not even be set up must keep the ring out of the answer.
bool FuseRing::OfferRing(iovec* iov, int count) {
    const auto* out = static_cast<const fuse_out_header*>(iov[0].iov_base);
    if (!offered_ || out->error != 0 || count < 2 ||
        iov[1].iov_len < offsetof(fuse_init_out, flags2) + sizeof(uint32_t)) {
        return false;
    }
    auto* init = static_cast<fuse_init_out*>(iov[1].iov_base);
    // Every entry holds the largest payload a request or reply can carry.
    size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_t pages = (init->flags & FUSE_MAX_PAGES) != 0 ? init->max_pages : kDefaultMaxPages;
    payloadSize_ = std::max({kMinReadBuffer, static_cast<size_t>(init->max_write), pages * page});
    if (!PrepareQueues()) {
        fprintf(stderr, "srvfs: io_uring queues cannot be set up: the FUSE device serves\n");
        return false;
    }
    init->flags |= FUSE_INIT_EXT;
    init->flags2 |= ring_abi::kInitFlags2OverIoUring;
    return true;
}

// One queue per CPU the kernel may run a caller on; it takes the ring into use once every queue
// has an entry.
bool FuseRing::PrepareQueues() {
    int cpus = get_nprocs_conf();
    for (int qid = 0; qid < cpus; ++qid) {
        queues_.push_back(std::make_unique<RingQueue>(*this, static_cast<unsigned>(qid)));
        if (!queues_.back()->Prepare()) {
            Stop();
            queues_.clear();
            return false;
        }
    }
    return true;
}

// Called on the device thread, which waits until every queue has its entries in the kernel, so
// that every request after INIT already finds the ring.
void FuseRing::StartQueues(bool answered) {
    if (!answered) {
        Stop();  // the INIT answer did not reach the kernel: the connection is over
        return;
    }
    int started = 0;
    for (auto& queue : queues_) {
        started += queue->Start() ? 1 : 0;
    }
    int cpus = static_cast<int>(queues_.size());
    if (started == cpus) {
        fprintf(stderr, "srvfs: requests come through io_uring, one queue per CPU (%d)\n", cpus);
    } else {
        fprintf(stderr, "srvfs: %d of %d io_uring queues started after the kernel took the ring\n", started,
                cpus);
        broken_ = true;
    }
}

void FuseRing::InitAnswered() {
    std::lock_guard<std::mutex> lock(initMutex_);
    initAnswered_ = true;
    initDone_.notify_all();
}

bool FuseRing::WaitForInit(int timeoutMs) {
    std::unique_lock<std::mutex> lock(initMutex_);
    return initDone_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return initAnswered_; });
}

void FuseRing::Track(uint64_t unique, RingEntry* entry) {
    ringRequests_.fetch_add(1, std::memory_order_relaxed);
    std::lock_guard<std::mutex> lock(pendingMutex_);
    pending_.emplace_back(unique, entry);
}

RingEntry* FuseRing::Take(uint64_t unique) {
    std::lock_guard<std::mutex> lock(pendingMutex_);
    for (size_t i = pending_.size(); i-- > 0;) {  // the newest first: most replies come at once
        if (pending_[i].first == unique) {
            RingEntry* entry = pending_[i].second;
            pending_[i] = pending_.back();
            pending_.pop_back();
            return entry;
        }
    }
    return nullptr;
}

}  // namespace detail
}  // namespace srvfs
