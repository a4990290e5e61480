// A command-channel server for any handler: accepts connections on a unix socket and answers each
// request frame with the handler's reply. Every connection is served on a thread of its own, so a
// client that stalls mid-frame delays nobody else; the handler may therefore run on several threads
// at once. The emulator serves its commands with it, and tests script a peer with it over a real
// socket.
#ifndef CMDCHAN_FRAME_SERVER_H
#define CMDCHAN_FRAME_SERVER_H

#include <atomic>
#include <sys/types.h>

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "cmd_channel_frame.h"

namespace cmdchan {

// Fills the reply to one request; false leaves the request unanswered (the connection stays open).
using FrameHandler = std::function<bool(const cmdframe::Request& request, cmdframe::Reply* reply)>;

class FrameServer {
public:
    // Binds socketPath and starts serving. A socket file that another server still answers on is
    // left alone and the start fails; one that nobody answers on is replaced. Null with *error on
    // failure.
    static std::unique_ptr<FrameServer> Start(const std::string& socketPath, FrameHandler handler,
                                              std::string* error);
    ~FrameServer();  // stops serving, closes every connection and removes the socket file it made
    FrameServer(const FrameServer&) = delete;
    FrameServer& operator=(const FrameServer&) = delete;

private:
    FrameServer() = default;
    struct Connection {
        int fd = -1;
        std::atomic<bool> done{false};
        std::thread thread;
    };
    void Serve();
    void Accept();
    void Reap();  // joins the threads of connections that ended
    void ServeConnection(Connection* conn);
    // One request read and answered; false: drop the connection.
    bool Answer(int fd, cmdframe::FrameReader* reader, cmdframe::Request* request);

    std::string path_;
    FrameHandler handler_;
    int listenFd_ = -1;
    int wakeFd_ = -1;  // readable once the server stops: the accepting thread watches it
    dev_t socketDev_ = 0;
    ino_t socketIno_ = 0;  // the socket file this server made, the only one it removes
    std::list<std::unique_ptr<Connection>> conns_;  // the accepting thread's
    std::thread thread_;
};

}  // namespace cmdchan

#endif
