#include "reply_timer.h"

namespace srvfs {
namespace detail {

ReplyTimer::ReplyTimer() : thread_(&ReplyTimer::Run, this) {}

ReplyTimer::~ReplyTimer() {
    Stop();
}

void ReplyTimer::At(Clock::time_point deadline, std::function<void()> fn) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) {
        return;
    }
    due_.emplace(deadline, std::move(fn));
    wake_.notify_one();
}

void ReplyTimer::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        wake_.notify_one();
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    due_.clear();
}

void ReplyTimer::Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        if (due_.empty()) {
            wake_.wait(lock);
            continue;
        }
        auto first = due_.begin();
        if (first->first > Clock::now()) {
            wake_.wait_until(lock, first->first);
            continue;
        }
        std::function<void()> fn = std::move(first->second);
        due_.erase(first);
        // The callback takes the file system's lock; never hold ours meanwhile.
        lock.unlock();
        fn();
        lock.lock();
    }
}

}  // namespace detail
}  // namespace srvfs
