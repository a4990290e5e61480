#include "dxmp_peer.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "dxmp_message.h"

namespace vks_test {

DxmpPeer::~DxmpPeer() {
    if (listenFd_ >= 0) {
        close(listenFd_);
        unlink(path_.c_str());
    }
}

bool DxmpPeer::Listen(const std::string& path) {
    path_ = path;
    listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
    return listenFd_ >= 0 && bind(listenFd_, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) == 0 &&
           listen(listenFd_, 64) == 0;
}

int DxmpPeer::AcceptRequest(int timeoutMs) {
    struct pollfd p = {listenFd_, POLLIN, 0};
    int fd = poll(&p, 1, timeoutMs) == 1 ? accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC) : -1;
    dxmp_message* msg = fd >= 0 ? dxmp_message_new(0) : nullptr;
    bool ok = msg != nullptr && dxmp_message_recvfd(msg, fd) == 0;
    if (ok) {
        uint16_t uri = 0;
        memcpy(&uri, msg->pFixedHeader + DXMP_HDR_URI, sizeof(uri));
        ok = uri == 1201 && (msg->pFixedHeader[DXMP_HDR_FLAGS_METHOD] & 0x7F) == DXMP_METHOD_GET;
    }
    dxmp_message_put(msg);
    if (!ok && fd >= 0) {
        close(fd);
        fd = -1;
    }
    return fd;
}

bool DxmpPeer::Reply(int fd, const std::string& content, int32_t result) {
    dxmp_message* msg = dxmp_message_new(0);
    if (msg == nullptr) {
        return false;
    }
    const uint16_t uri = 1201;
    const uint16_t status = 200;
    memcpy(msg->pFixedHeader + DXMP_HDR_URI, &uri, sizeof(uri));
    memcpy(msg->pFixedHeader + DXMP_HDR_STATUS, &status, sizeof(status));
    msg->pFixedHeader[DXMP_HDR_FLAGS_METHOD] = 0x80 | DXMP_METHOD_GET;
    bool ok = dxmp_header_set(msg, DXMP_ITEM_RESULT, &result, sizeof(result)) == 0 &&
              (content.empty() ||
               dxmp_content_add(msg, content.data(), static_cast<uint32_t>(content.size()), 0) == 0) &&
              dxmp_message_sendfd(msg, fd) == 0;
    dxmp_message_put(msg);
    return ok;
}

bool DxmpPeer::WaitForClose(int fd, int timeoutMs) {
    struct pollfd p = {fd, POLLIN, 0};
    char byte = 0;
    return poll(&p, 1, timeoutMs) == 1 && recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
}

}  // namespace vks_test
