// The reply side of the core: reply bytes meet the reads that wait for them, and a read that waits
// too long, is interrupted or outlives the file system fails.
#include <errno.h>

#include <algorithm>
#include <chrono>

#include "core.h"
#include "dxmp_message.h"

namespace srvfs {
namespace detail {

// Where the reply frame starting at the read position ends: its declared length, or all that is
// there when the bytes do not start a frame (a service's garbage is read as a plain stream).
size_t FrameLengthAt(const Connection& conn) {
    uint32_t length = 0;
    bool frame = conn.Available() >= DXMP_FIXED_HEADER_LEN &&
                 dxmp_frame_length(conn.output.data() + conn.outputPos, &length) == 0;
    return frame ? length : conn.Available();
}

// A read never crosses from one reply frame into the next: a reader with a buffer as large as the
// frame gets it whole with one call, and the next frame stays for the next read.
bool Core::AnswerLocked(Connection& conn, fuse_req_t req, size_t size) {
    size_t available = conn.Available();
    if (available == 0) {
        return false;
    }
    if (conn.frameLeft == 0) {
        conn.frameLeft = FrameLengthAt(conn);
    }
    size_t count = std::min({size, available, conn.frameLeft});
    fuse_reply_buf(req, reinterpret_cast<const char*>(conn.output.data() + conn.outputPos), count);
    conn.outputPos += count;
    conn.frameLeft -= count;
    if (conn.outputPos == conn.output.size()) {
        conn.output.clear();
        conn.outputPos = 0;
    }
    return true;
}

void Core::SetTimeoutCapMs(unsigned long capMs) {
    std::lock_guard<std::mutex> lock(mutex_);
    timeoutCapMs_ = capMs;
}

unsigned long Core::TimeoutLocked(const Connection& conn) const {
    // A day bounds any value a client may send, so the deadline never overflows the clock.
    constexpr unsigned long kLongestMs = 24UL * 3600UL * 1000UL;
    unsigned long timeout = std::min(conn.settings.timeoutMs, kLongestMs);
    return timeoutCapMs_ != 0 ? std::min(timeout, timeoutCapMs_) : timeout;
}

void Core::ParkLocked(Connection& conn, fuse_req_t req, size_t size) {
    uint64_t readId = nextReadId_++;
    conn.reads.push_back(PendingRead{readId, req, size});
    parked_[req] = conn.id;
    uint64_t connId = conn.id;
    auto deadline = ReplyTimer::Clock::now() + std::chrono::milliseconds(TimeoutLocked(conn));
    timer_.At(deadline, [this, connId, readId] { Expire(connId, readId); });
}

void Core::Read(fuse_req_t req, uint64_t connId, size_t size, bool nonBlocking) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        Connection* conn = FindLocked(connId);
        if (conn == nullptr) {
            fuse_reply_err(req, EBADF);
            return;
        }
        if (AnswerLocked(*conn, req, size)) {
            return;
        }
        if (nonBlocking || TimeoutLocked(*conn) == 0) {
            fuse_reply_err(req, nonBlocking ? EAGAIN : ETIMEDOUT);
            return;
        }
    }
    // Registered before the request becomes visible to other threads (once parked, a reply may
    // complete and free it) and outside our lock (libfuse calls OnInterrupt under the request's lock).
    fuse_req_interrupt_func(req, &Core::OnInterrupt, this);
    std::lock_guard<std::mutex> lock(mutex_);
    Connection* conn = FindLocked(connId);
    if (conn == nullptr || shutdown_) {
        fuse_reply_err(req, conn == nullptr ? EBADF : ENOTCONN);
    } else if (!AnswerLocked(*conn, req, size)) {
        // An interrupt that came before this check found nothing parked: answer it here.
        if (fuse_req_interrupted(req)) {
            fuse_reply_err(req, EINTR);
        } else {
            ParkLocked(*conn, req, size);
        }
    }
}

void Core::ServeReadsLocked(Connection& conn) {
    while (!conn.reads.empty() && conn.Available() > 0) {
        PendingRead read = conn.reads.front();
        conn.reads.pop_front();
        parked_.erase(read.req);
        AnswerLocked(conn, read.req, read.size);
    }
    if (conn.Available() > 0 && conn.poll != nullptr) {
        fuse_lowlevel_notify_poll(conn.poll);
        fuse_pollhandle_destroy(conn.poll);
        conn.poll = nullptr;
    }
}

bool Core::Deliver(uint64_t connId, std::vector<uint8_t> frame) {
    std::lock_guard<std::mutex> lock(mutex_);
    Connection* conn = shutdown_ ? nullptr : FindLocked(connId);
    if (conn == nullptr) {
        return false;
    }
    conn->output.insert(conn->output.end(), frame.begin(), frame.end());
    ServeReadsLocked(*conn);
    return true;
}

void Core::OnInterrupt(fuse_req_t req, void* data) {
    static_cast<Core*>(data)->Interrupt(req);
}

void Core::Interrupt(fuse_req_t req) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto parked = parked_.find(req);
    if (parked == parked_.end()) {
        return;
    }
    Connection* conn = FindLocked(parked->second);
    parked_.erase(parked);
    if (conn != nullptr) {
        auto& reads = conn->reads;
        reads.erase(
            std::remove_if(reads.begin(), reads.end(), [req](const PendingRead& r) { return r.req == req; }),
            reads.end());
    }
    fuse_reply_err(req, EINTR);
}

void Core::Expire(uint64_t connId, uint64_t readId) {
    std::lock_guard<std::mutex> lock(mutex_);
    Connection* conn = FindLocked(connId);
    if (conn == nullptr) {
        return;
    }
    auto& reads = conn->reads;
    auto found =
        std::find_if(reads.begin(), reads.end(), [readId](const PendingRead& r) { return r.id == readId; });
    if (found == reads.end()) {
        return;
    }
    fuse_req_t req = found->req;
    reads.erase(found);
    parked_.erase(req);
    fuse_reply_err(req, ETIMEDOUT);
}

void Core::Shutdown(int err) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        shutdown_ = true;
        for (auto& entry : connections_) {
            Connection& conn = *entry.second;
            for (const PendingRead& read : conn.reads) {
                fuse_reply_err(read.req, err);
            }
            conn.reads.clear();
            if (conn.poll != nullptr) {
                fuse_pollhandle_destroy(conn.poll);
                conn.poll = nullptr;
            }
        }
        parked_.clear();
    }
    timer_.Stop();
}

}  // namespace detail

bool ReplyHandle::Reply(std::vector<uint8_t> frame) const {
    std::shared_ptr<detail::Core> core = core_.lock();
    return core != nullptr && core->Deliver(connId_, std::move(frame));
}

void ReplyHandle::ReplyAfter(std::vector<uint8_t> frame, int delayMs) const {
    std::shared_ptr<detail::Core> core = core_.lock();
    if (core == nullptr) {
        return;
    }
    if (delayMs <= 0) {
        core->Deliver(connId_, std::move(frame));
        return;
    }
    auto deadline = detail::ReplyTimer::Clock::now() + std::chrono::milliseconds(delayMs);
    core->Timer().At(deadline, [weak = core_, id = connId_, bytes = std::move(frame)]() mutable {
        if (auto alive = weak.lock()) {
            alive->Deliver(id, std::move(bytes));
        }
    });
}

}  // namespace srvfs
