#include "frame_server.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>

namespace cmdchan {
namespace {

// A client gets this long to deliver a whole request once its first byte is there, and to take
// the reply: a stalled client cannot hold the server longer.
const int kFrameTimeoutMs = 2000;

int Listen(const std::string& path, std::string* error) {
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(addr.sun_path)) {
        *error = "socket path empty or too long: " + path;
        return -1;
    }
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        *error = std::string("socket: ") + strerror(errno);
        return -1;
    }
    unlink(path.c_str());
    if (bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 64) != 0) {
        *error = "bind/listen " + path + ": " + strerror(errno);
        close(fd);
        return -1;
    }
    return fd;
}

}  // namespace

std::unique_ptr<FrameServer> FrameServer::Start(const std::string& socketPath, FrameHandler handler,
                                                std::string* error) {
    std::unique_ptr<FrameServer> server(new FrameServer);
    server->path_ = socketPath;
    server->handler_ = std::move(handler);
    server->listenFd_ = Listen(socketPath, error);
    if (server->listenFd_ < 0) {
        return nullptr;
    }
    server->wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (server->wakeFd_ < 0) {
        *error = std::string("eventfd: ") + strerror(errno);
        return nullptr;
    }
    server->thread_ = std::thread(&FrameServer::Serve, server.get());
    return server;
}

FrameServer::~FrameServer() {
    if (thread_.joinable()) {
        uint64_t one = 1;
        ssize_t n = write(wakeFd_, &one, sizeof(one));
        (void)n;
        thread_.join();
    }
    for (int fd : conns_) {
        close(fd);
    }
    if (wakeFd_ >= 0) {
        close(wakeFd_);
    }
    if (listenFd_ >= 0) {
        close(listenFd_);
        unlink(path_.c_str());
    }
}

void FrameServer::Serve() {
    for (;;) {
        std::vector<struct pollfd> fds;
        fds.push_back({wakeFd_, POLLIN, 0});
        fds.push_back({listenFd_, POLLIN, 0});
        for (int fd : conns_) {
            fds.push_back({fd, POLLIN, 0});
        }
        if (poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR) {
            return;
        }
        if (fds[0].revents != 0) {
            return;
        }
        if (fds[1].revents != 0) {
            Accept();
        }
        for (size_t i = 2; i < fds.size(); ++i) {
            if (fds[i].revents != 0 && !Answer(fds[i].fd)) {
                close(fds[i].fd);
                conns_.erase(std::find(conns_.begin(), conns_.end(), fds[i].fd));
            }
        }
    }
}

void FrameServer::Accept() {
    int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd >= 0) {
        conns_.push_back(fd);
    }
}

bool FrameServer::Answer(int fd) {
    cmdframe::Request request;
    if (cmdframe::ReadRequest(fd, &request, cmdframe::DeadlineAfter(kFrameTimeoutMs)) != cmdframe::kIoOk) {
        return false;
    }
    cmdframe::Reply reply;
    reply.op = request.op;
    if (!handler_(request, &reply)) {
        return true;
    }
    return cmdframe::WriteReply(fd, reply, cmdframe::DeadlineAfter(kFrameTimeoutMs)) == cmdframe::kIoOk;
}

}  // namespace cmdchan
