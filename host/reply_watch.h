// Awaited replies are watched on epoll instances of their own, which the event loop watches as a
// few descriptors. The worker that parks a request registers its service file there: registering a
// service file asks the service file system whether it is readable (a round trip to the service),
// which on the loop would stall every other connection once per parked request. An instance is
// locked for the length of that round trip, so descriptors are spread over kShards instances: the
// workers' registrations and the loop's collection rarely wait for each other.
#ifndef VKS_HOST_REPLY_WATCH_H
#define VKS_HOST_REPLY_WATCH_H

#include "loop_events.h"

struct event_base;

namespace vks_host {

class ReplyWatch {
public:
    using Handler = void (*)(void* item, void* arg);

    ReplyWatch() = default;
    ReplyWatch(const ReplyWatch&) = delete;
    ReplyWatch& operator=(const ReplyWatch&) = delete;

    // handler runs on the loop thread for each item whose descriptor became readable. 0, or -1.
    int Start(struct event_base* base, Handler handler, void* arg);
    // Any thread: reports item once when fd is readable. False when fd cannot be watched.
    bool Add(int fd, void* item);
    // Any thread, before fd is closed: item is not reported any more.
    void Remove(int fd);
    void Stop();  // loop thread, at shutdown

private:
    static void OnReadable(int fd, short what, void* self);
    static constexpr int kShards = 8;

    OwnedFdWatch shards_[kShards];  // epoll instances
    Handler handler_ = nullptr;
    void* arg_ = nullptr;
};

}  // namespace vks_host

#endif
