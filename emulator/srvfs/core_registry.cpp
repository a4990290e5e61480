// The registry side of the core: which services have a file, and under which inode.
#include "core.h"

namespace srvfs {
namespace detail {

void Core::AddService(const std::string& name, std::shared_ptr<Service> service) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = services_.find(name);
    if (found != services_.end()) {
        found->second.service = std::move(service);
        return;
    }
    services_.emplace(name, ServiceEntry{nextIno_++, std::move(service)});
}

void Core::RemoveService(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex_);
    services_.erase(name);
}

int Core::OpenConnections(const std::string& name) const {
    std::lock_guard<std::mutex> lock(mutex_);
    int count = 0;
    for (const auto& entry : connections_) {
        count += entry.second->serviceName == name ? 1 : 0;
    }
    return count;
}

bool Core::FindService(const std::string& name, fuse_ino_t* ino) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = services_.find(name);
    if (found == services_.end()) {
        return false;
    }
    *ino = found->second.ino;
    return true;
}

bool Core::IsService(fuse_ino_t ino) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : services_) {
        if (entry.second.ino == ino) {
            return true;
        }
    }
    return false;
}

std::vector<std::pair<std::string, fuse_ino_t>> Core::Services() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::pair<std::string, fuse_ino_t>> list;
    for (const auto& entry : services_) {
        list.emplace_back(entry.first, entry.second.ino);
    }
    return list;
}

}  // namespace detail
}  // namespace srvfs
