#include "frame_server.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <system_error>

namespace cmdchan {
namespace {

// A client gets this long to deliver a whole request once its first byte is there, and to take
// the reply: a stalled client cannot hold the server longer.
const int kFrameTimeoutMs = 2000;

bool SomeoneAnswers(const struct sockaddr_un& addr) {
    int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool answers =
        probe >= 0 && connect(probe, reinterpret_cast<const struct sockaddr*>(&addr), sizeof(addr)) == 0;
    if (probe >= 0) {
        close(probe);
    }
    return answers;
}

int Listen(const std::string& path, struct stat* made, std::string* error) {
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(addr.sun_path)) {
        *error = "socket path empty or too long: " + path;
        return -1;
    }
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    if (SomeoneAnswers(addr)) {
        *error = "another server answers on " + path;
        return -1;
    }
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        *error = std::string("socket: ") + strerror(errno);
        return -1;
    }
    unlink(path.c_str());  // nobody answers on it: a file left by a server that died
    if (bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 64) != 0 ||
        stat(path.c_str(), made) != 0) {
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
    struct stat made;
    server->listenFd_ = Listen(socketPath, &made, error);
    if (server->listenFd_ < 0) {
        return nullptr;
    }
    server->socketDev_ = made.st_dev;
    server->socketIno_ = made.st_ino;
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
    // Connection threads wait in recv(): shutting their sockets down ends those waits.
    for (const std::unique_ptr<Connection>& conn : conns_) {
        shutdown(conn->fd, SHUT_RDWR);
    }
    for (const std::unique_ptr<Connection>& conn : conns_) {
        conn->thread.join();
        close(conn->fd);
    }
    if (wakeFd_ >= 0) {
        close(wakeFd_);
    }
    if (listenFd_ >= 0) {
        close(listenFd_);
        struct stat now;
        if (stat(path_.c_str(), &now) == 0 && now.st_dev == socketDev_ && now.st_ino == socketIno_) {
            unlink(path_.c_str());
        }
    }
}

void FrameServer::Serve() {
    for (;;) {
        struct pollfd fds[2] = {{wakeFd_, POLLIN, 0}, {listenFd_, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR) {
            return;
        }
        if (fds[0].revents != 0) {
            return;
        }
        if (fds[1].revents != 0) {
            Accept();
        }
    }
}

void FrameServer::Reap() {
    for (auto it = conns_.begin(); it != conns_.end();) {
        if ((*it)->done) {
            (*it)->thread.join();
            close((*it)->fd);
            it = conns_.erase(it);
        } else {
            ++it;
        }
    }
}

void FrameServer::Accept() {
    Reap();
    // Blocking: a connection's thread waits for the next request in recv(), one call per request.
    int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
        return;
    }
    std::unique_ptr<Connection> conn(new Connection);
    conn->fd = fd;
    try {
        conn->thread = std::thread(&FrameServer::ServeConnection, this, conn.get());
    } catch (const std::system_error&) {
        close(fd);  // out of threads: this client is refused, the others go on
        return;
    }
    conns_.push_back(std::move(conn));
}

// The socket stays open until the thread is joined (Reap, or the destructor's shutdown()), so its
// number cannot be reused under a shutdown() aimed at it.
void FrameServer::ServeConnection(Connection* conn) {
    cmdframe::FrameReader reader(cmdframe::kMaxRequestPayload);
    cmdframe::Request request;  // reused: its payload keeps the room of the 21,208-byte bodies
    while ((reader.Pending() != 0 || reader.Fill(conn->fd) == cmdframe::kIoOk) &&
           Answer(conn->fd, &reader, &request)) {
    }
    shutdown(conn->fd, SHUT_RDWR);  // the client learns at once that its connection was dropped
    conn->done = true;
}

bool FrameServer::Answer(int fd, cmdframe::FrameReader* reader, cmdframe::Request* request) {
    if (reader->ReadRequest(fd, request, cmdframe::DeadlineAfter(kFrameTimeoutMs)) != cmdframe::kIoOk) {
        return false;
    }
    cmdframe::Reply reply;
    reply.op = request->op;
    if (!handler_(*request, &reply)) {
        return true;
    }
    return cmdframe::WriteReply(fd, reply, cmdframe::DeadlineAfter(kFrameTimeoutMs)) == cmdframe::kIoOk;
}

}  // namespace cmdchan
