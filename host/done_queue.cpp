#include "done_queue.h"

#include <sys/eventfd.h>
#include <unistd.h>

namespace vks_host {

DoneQueue::~DoneQueue() {
    Stop();
}

int DoneQueue::Start(struct event_base* base, Handler handler, void* arg) {
    handler_ = handler;
    arg_ = arg;
    return wake_.Start(base, eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), &DoneQueue::OnWake, this);
}

void DoneQueue::Push(void* item) {
    bool wasEmpty = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        wasEmpty = items_.empty();
        items_.push_back(item);
    }
    if (wasEmpty) {
        uint64_t one = 1;
        ssize_t n = write(wake_.fd(), &one, sizeof(one));
        (void)n;  // an eventfd write fails only when the counter would overflow: it is readable then
    }
}

// The counter is read before the queue is taken: a push after the take finds the queue empty and
// wakes the loop again, so no item waits for a wake-up that was already spent.
void DoneQueue::OnWake(int fd, short, void* self) {
    auto* q = static_cast<DoneQueue*>(self);
    uint64_t count = 0;
    ssize_t n = read(fd, &count, sizeof(count));
    (void)n;
    {
        std::lock_guard<std::mutex> lock(q->mutex_);
        q->taking_.swap(q->items_);
    }
    for (void* item : q->taking_) {
        q->handler_(item, q->arg_);
    }
    q->taking_.clear();
}

void DoneQueue::Stop() {
    wake_.Stop();
    std::lock_guard<std::mutex> lock(mutex_);
    items_.clear();
}

}  // namespace vks_host
