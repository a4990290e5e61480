// One thread that runs callbacks at their deadlines: read time-outs and delayed replies, so that no
// FUSE request ever sleeps on the file system's own thread.
#ifndef SRVFS_REPLY_TIMER_H
#define SRVFS_REPLY_TIMER_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace srvfs {
namespace detail {

class ReplyTimer {
public:
    using Clock = std::chrono::steady_clock;

    ReplyTimer();
    ~ReplyTimer();  // Stop()
    ReplyTimer(const ReplyTimer&) = delete;
    ReplyTimer& operator=(const ReplyTimer&) = delete;

    // Runs fn on the timer thread at (or soon after) deadline. Ignored once stopped.
    void At(Clock::time_point deadline, std::function<void()> fn);
    // Joins the thread; callbacks not yet due are dropped without running.
    void Stop();

private:
    void Run();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::multimap<Clock::time_point, std::function<void()>> due_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace detail
}  // namespace srvfs

#endif
