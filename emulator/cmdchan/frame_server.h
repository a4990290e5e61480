// A command-channel server for any handler: accepts connections on a unix socket and answers each
// request frame with the handler's reply, on a thread of its own. The emulator serves its commands
// with it, and tests script a peer with it over a real socket.
#ifndef CMDCHAN_FRAME_SERVER_H
#define CMDCHAN_FRAME_SERVER_H

#include <functional>
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
    // Binds socketPath (replacing a stale socket file) and starts serving. Null with *error on failure.
    static std::unique_ptr<FrameServer> Start(const std::string& socketPath, FrameHandler handler,
                                              std::string* error);
    ~FrameServer();  // stops serving, closes every connection and removes the socket file
    FrameServer(const FrameServer&) = delete;
    FrameServer& operator=(const FrameServer&) = delete;

    const std::string& SocketPath() const { return path_; }

private:
    FrameServer() = default;
    void Serve();
    void Accept();
    bool Answer(int fd);  // false: drop the connection

    std::string path_;
    FrameHandler handler_;
    int listenFd_ = -1;
    int wakeFd_ = -1;
    std::vector<int> conns_;
    std::thread thread_;
};

}  // namespace cmdchan

#endif
