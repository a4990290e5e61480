// A scripted service on a real unix socket: accepts the connections the module under test hands to
// the access server, reads their DXMP requests and answers (or not) as a test decides.
#ifndef VKS_DXMP_PEER_H
#define VKS_DXMP_PEER_H

#include <cstdint>
#include <string>

namespace vks_test {

class DxmpPeer {
public:
    DxmpPeer() = default;
    ~DxmpPeer();
    DxmpPeer(const DxmpPeer&) = delete;
    DxmpPeer& operator=(const DxmpPeer&) = delete;

    bool Listen(const std::string& path);
    // A connection within timeoutMs that carried one request frame with uri 1201 and method 2 (get),
    // or -1. The caller closes it.
    int AcceptRequest(int timeoutMs);
    // Writes a reply: status 200, uri 1201, method 2, the content and result item 0xB001.
    static bool Reply(int fd, const std::string& content, int32_t result);
    // True when the other side closed the connection within timeoutMs.
    static bool WaitForClose(int fd, int timeoutMs);

private:
    int listenFd_ = -1;
    std::string path_;
};

}  // namespace vks_test

#endif
