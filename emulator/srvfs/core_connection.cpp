// The connection side of the core: what open, write, ioctl, poll and release do to a connection.
#include <errno.h>
#include <poll.h>

#include "core.h"
#include "srvfs_ioctl.h"

namespace srvfs {
namespace detail {

Connection* Core::FindLocked(uint64_t connId) {
    auto found = connections_.find(connId);
    return found == connections_.end() ? nullptr : found->second.get();
}

int Core::Open(fuse_ino_t ino, uint64_t* connId, std::shared_ptr<Service>* service) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : services_) {
        if (entry.second.ino != ino) {
            continue;
        }
        auto conn = std::make_shared<Connection>();
        conn->id = nextConnId_++;
        conn->serviceName = entry.first;
        conn->service = entry.second.service;
        conn->settings.timeoutMs = defaultTimeoutMs_;
        connections_.emplace(conn->id, conn);
        *connId = conn->id;
        *service = conn->service;
        return 0;
    }
    return ino == FUSE_ROOT_ID ? EISDIR : ENOENT;
}

int Core::Write(uint64_t connId, const uint8_t* data, size_t size, std::vector<std::vector<uint8_t>>* frames,
                std::shared_ptr<Service>* service) {
    std::lock_guard<std::mutex> lock(mutex_);
    Connection* conn = FindLocked(connId);
    if (conn == nullptr) {
        return EBADF;
    }
    *service = conn->service;
    return conn->input.Feed(data, size, frames) == 0 ? 0 : EPROTO;
}

int Core::Ioctl(uint64_t connId, unsigned int cmd, unsigned long arg, std::shared_ptr<Service>* service) {
    std::lock_guard<std::mutex> lock(mutex_);
    Connection* conn = FindLocked(connId);
    if (conn == nullptr) {
        return EBADF;
    }
    switch (cmd) {
        case SRVFS_CONN_SETTIMEOUT:
            conn->settings.timeoutMs = arg;
            break;
        case SRVFS_BUFF_SETRDSIZE:
            conn->settings.readSize = arg;
            break;
        case SRVFS_BUFF_SETWRSIZE:
            conn->settings.writeSize = arg;
            break;
        default:
            return ENOTTY;
    }
    *service = conn->service;
    return 0;
}

unsigned Core::Poll(uint64_t connId, fuse_pollhandle* ph) {
    std::lock_guard<std::mutex> lock(mutex_);
    Connection* conn = FindLocked(connId);
    if (conn == nullptr) {
        if (ph != nullptr) {
            fuse_pollhandle_destroy(ph);
        }
        return POLLERR;
    }
    unsigned events = POLLOUT | POLLWRNORM;
    if (conn->Available() > 0) {
        events |= POLLIN | POLLRDNORM;
    }
    if (ph != nullptr) {
        // Only the newest handle is kept: the kernel asks again after every notification.
        if (conn->poll != nullptr) {
            fuse_pollhandle_destroy(conn->poll);
        }
        conn->poll = ph;
    }
    return events;
}

std::shared_ptr<Service> Core::Release(uint64_t connId) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = connections_.find(connId);
    if (found == connections_.end()) {
        return nullptr;
    }
    std::shared_ptr<Connection> conn = found->second;
    connections_.erase(found);
    // A read holds the file open, so none can be parked here; be safe anyway.
    for (const PendingRead& read : conn->reads) {
        parked_.erase(read.req);
        fuse_reply_err(read.req, EBADF);
    }
    if (conn->poll != nullptr) {
        fuse_pollhandle_destroy(conn->poll);
    }
    return conn->service;
}

}  // namespace detail
}  // namespace srvfs
