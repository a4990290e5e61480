#include "loop_events.h"

#include <event2/event.h>
#include <unistd.h>

namespace vks_host {

timeval Millis(int ms) {
    return {ms / 1000, (ms % 1000) * 1000};
}

void FreeEvent(struct event** e) {
    if (*e != nullptr) {
        event_free(*e);
        *e = nullptr;
    }
}

int OwnedFdWatch::Start(struct event_base* base, int fd, Callback callback, void* arg) {
    fd_ = fd;
    watch_ = fd_ >= 0 ? event_new(base, fd_, EV_READ | EV_PERSIST, callback, arg) : nullptr;
    return watch_ != nullptr && event_add(watch_, nullptr) == 0 ? 0 : -1;
}

void OwnedFdWatch::Stop() {
    FreeEvent(&watch_);
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
}

}  // namespace vks_host
