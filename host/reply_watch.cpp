#include "reply_watch.h"

#include <event2/event.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace vks_host {

ReplyWatch::~ReplyWatch() {
    Stop();
}

int ReplyWatch::Start(struct event_base* base, Handler handler, void* arg) {
    handler_ = handler;
    arg_ = arg;
    epoll_ = epoll_create1(EPOLL_CLOEXEC);
    watch_ =
        epoll_ >= 0 ? event_new(base, epoll_, EV_READ | EV_PERSIST, &ReplyWatch::OnReadable, this) : nullptr;
    return watch_ != nullptr && event_add(watch_, nullptr) == 0 ? 0 : -1;
}

bool ReplyWatch::Add(int fd, void* item) {
    struct epoll_event ev;
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.ptr = item;
    return epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &ev) == 0;
}

void ReplyWatch::Remove(int fd) {
    epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr);
}

// Takes what is ready without waiting; the loop calls again while the instance stays readable.
void ReplyWatch::OnReadable(int, short, void* self) {
    auto* w = static_cast<ReplyWatch*>(self);
    struct epoll_event ready[64];
    int n = epoll_wait(w->epoll_, ready, 64, 0);
    for (int i = 0; i < n; ++i) {
        w->handler_(ready[i].data.ptr, w->arg_);
    }
}

void ReplyWatch::Stop() {
    if (watch_ != nullptr) {
        event_free(watch_);
        watch_ = nullptr;
    }
    if (epoll_ >= 0) {
        close(epoll_);
        epoll_ = -1;
    }
}

}  // namespace vks_host
