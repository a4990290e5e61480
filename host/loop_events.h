// Small pieces every user of the access server's event loop needs.
#ifndef VKS_HOST_LOOP_EVENTS_H
#define VKS_HOST_LOOP_EVENTS_H

#include <sys/time.h>

struct event;
struct event_base;

namespace vks_host {

timeval Millis(int ms);

// Frees *e when there is one and forgets it.
void FreeEvent(struct event** e);

// A descriptor of the watch's own (an eventfd, an epoll instance), watched for reading on the loop
// until Stop, which also closes it.
class OwnedFdWatch {
public:
    using Callback = void (*)(int fd, short what, void* arg);

    OwnedFdWatch() = default;
    ~OwnedFdWatch() { Stop(); }
    OwnedFdWatch(const OwnedFdWatch&) = delete;
    OwnedFdWatch& operator=(const OwnedFdWatch&) = delete;

    // Takes fd, even when it is -1 (a failed creation) or the watch cannot start. 0, or -1.
    int Start(struct event_base* base, int fd, Callback callback, void* arg);
    void Stop();
    int fd() const { return fd_; }

private:
    int fd_ = -1;
    struct event* watch_ = nullptr;
};

}  // namespace vks_host

#endif
