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
    for (int i = 0; i < kShards; ++i) {
        epoll_[i] = epoll_create1(EPOLL_CLOEXEC);
        watch_[i] = epoll_[i] >= 0
                        ? event_new(base, epoll_[i], EV_READ | EV_PERSIST, &ReplyWatch::OnReadable, this)
                        : nullptr;
        if (watch_[i] == nullptr || event_add(watch_[i], nullptr) != 0) {
            return -1;
        }
    }
    return 0;
}

bool ReplyWatch::Add(int fd, void* item) {
    struct epoll_event ev;
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.ptr = item;
    return epoll_ctl(epoll_[fd % kShards], EPOLL_CTL_ADD, fd, &ev) == 0;
}

void ReplyWatch::Remove(int fd) {
    epoll_ctl(epoll_[fd % kShards], EPOLL_CTL_DEL, fd, nullptr);
}

// Takes what is ready without waiting; the loop calls again while the instance stays readable.
void ReplyWatch::OnReadable(int fd, short, void* self) {
    auto* w = static_cast<ReplyWatch*>(self);
    struct epoll_event ready[64];
    int n = epoll_wait(fd, ready, 64, 0);
    for (int i = 0; i < n; ++i) {
        w->handler_(ready[i].data.ptr, w->arg_);
    }
}

void ReplyWatch::Stop() {
    for (int i = 0; i < kShards; ++i) {
        if (watch_[i] != nullptr) {
            event_free(watch_[i]);
            watch_[i] = nullptr;
        }
        if (epoll_[i] >= 0) {
            close(epoll_[i]);
            epoll_[i] = -1;
        }
    }
}

}  // namespace vks_host
