#include "reply_watch.h"

#include <sys/epoll.h>

namespace vks_host {

int ReplyWatch::Start(struct event_base* base, Handler handler, void* arg) {
    handler_ = handler;
    arg_ = arg;
    for (int i = 0; i < kShards; ++i) {
        if (shards_[i].Start(base, epoll_create1(EPOLL_CLOEXEC), &ReplyWatch::OnReadable, this) != 0) {
            return -1;
        }
    }
    return 0;
}

bool ReplyWatch::Add(int fd, void* item) {
    struct epoll_event ev;
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.ptr = item;
    return epoll_ctl(shards_[fd % kShards].fd(), EPOLL_CTL_ADD, fd, &ev) == 0;
}

void ReplyWatch::Remove(int fd) {
    epoll_ctl(shards_[fd % kShards].fd(), EPOLL_CTL_DEL, fd, nullptr);
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
    for (OwnedFdWatch& shard : shards_) {
        shard.Stop();
    }
}

}  // namespace vks_host
