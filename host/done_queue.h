// How finished jobs get back to the event loop: workers push them here and the loop takes them all
// at once. Only a push onto an empty queue wakes the loop (one eventfd write), so a busy loop
// takes several jobs per wake-up, and no worker ever takes a lock the loop holds for long. The
// event base is touched by the loop thread alone and needs no locking of its own.
#ifndef VKS_HOST_DONE_QUEUE_H
#define VKS_HOST_DONE_QUEUE_H

#include <mutex>
#include <vector>

#include "loop_events.h"

struct event_base;

namespace vks_host {

class DoneQueue {
public:
    using Handler = void (*)(void* item, void* arg);

    DoneQueue() = default;
    ~DoneQueue();
    DoneQueue(const DoneQueue&) = delete;
    DoneQueue& operator=(const DoneQueue&) = delete;

    // Watches the queue on base; handler runs on the loop thread once per item. 0, or -1.
    int Start(struct event_base* base, Handler handler, void* arg);
    // Any thread.
    void Push(void* item);
    // Loop thread, at shutdown: items still queued are dropped (their owner releases them).
    void Stop();

private:
    static void OnWake(int fd, short what, void* self);

    std::mutex mutex_;
    std::vector<void*> items_;   // under mutex_
    std::vector<void*> taking_;  // loop thread only
    OwnedFdWatch wake_;          // an eventfd
    Handler handler_ = nullptr;
    void* arg_ = nullptr;
};

}  // namespace vks_host

#endif
