#include "shrink_watcher.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cmdchan {

std::unique_ptr<ShrinkWatcher> ShrinkWatcher::Start(const std::string& path, std::string* error) {
    std::unique_ptr<ShrinkWatcher> w(new ShrinkWatcher);
    w->fileFd_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    w->fanFd_ = fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY | O_CLOEXEC);
    w->wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (w->fileFd_ < 0 || w->fanFd_ < 0 || w->wakeFd_ < 0 ||
        fanotify_mark(w->fanFd_, FAN_MARK_ADD, FAN_OPEN_PERM, AT_FDCWD, path.c_str()) != 0) {
        *error = "watch " + path + ": " + strerror(errno);
        return nullptr;
    }
    w->thread_ = std::thread(&ShrinkWatcher::Watch, w.get());
    return w;
}

ShrinkWatcher::~ShrinkWatcher() {
    if (thread_.joinable()) {
        uint64_t one = 1;
        ssize_t n = write(wakeFd_, &one, sizeof(one));
        (void)n;
        thread_.join();
    }
    for (int fd : {fanFd_, fileFd_, wakeFd_}) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

void ShrinkWatcher::Watch() {
    for (;;) {
        struct pollfd fds[2] = {{wakeFd_, POLLIN, 0}, {fanFd_, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR) {
            return;
        }
        if (fds[0].revents != 0 || (fds[1].revents != 0 && !Handle())) {
            return;
        }
    }
}

bool ShrinkWatcher::Handle() {
    alignas(struct fanotify_event_metadata) char buf[4096];
    ssize_t len = read(fanFd_, buf, sizeof(buf));
    if (len <= 0) {
        return len < 0 && errno == EINTR;
    }
    auto* event = reinterpret_cast<struct fanotify_event_metadata*>(buf);
    for (; FAN_EVENT_OK(event, len); event = FAN_EVENT_NEXT(event, len)) {
        if ((event->mask & FAN_OPEN_PERM) != 0 && ++opens_ == 2) {
            // The reader took the size on its first open; it reads on the second.
            struct stat st;
            if (fstat(fileFd_, &st) == 0) {
                int rc = ftruncate(fileFd_, st.st_size / 2);
                (void)rc;  // a refused cut leaves the whole file, which the reader then reads
            }
        }
        struct fanotify_response response = {event->fd, FAN_ALLOW};
        ssize_t n = write(fanFd_, &response, sizeof(response));
        (void)n;
        if (event->fd >= 0) {
            close(event->fd);
        }
    }
    return true;
}

}  // namespace cmdchan
