#include "own_namespace.h"

#include <errno.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>

namespace vks_test {
namespace {

bool WriteFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    return static_cast<bool>(file << text << std::flush);
}

std::string EnterUserNamespace() {
    std::string uid = std::to_string(geteuid());
    std::string gid = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return std::string("unshare(CLONE_NEWUSER | CLONE_NEWNS) failed: ") + strerror(errno) +
               " (user namespaces off? scripts/setup.sh names the fix)";
    }
    if (!WriteFile("/proc/self/setgroups", "deny") || !WriteFile("/proc/self/uid_map", "0 " + uid + " 1") ||
        !WriteFile("/proc/self/gid_map", "0 " + gid + " 1")) {
        return std::string("cannot map this user to root of its namespace: ") + strerror(errno);
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/mnt", "tmpfs", 0, "mode=0755") != 0) {
        return std::string("making / private or /mnt a tmpfs failed: ") + strerror(errno);
    }
    return "";
}

}  // namespace

std::string EnterOwnMountNamespace() {
    if (geteuid() != 0) {
        return EnterUserNamespace();
    }
    if (unshare(CLONE_NEWNS) != 0) {
        return std::string("unshare(CLONE_NEWNS) failed: ") + strerror(errno) +
               " (mounting the service file system needs root or a user namespace, and /dev/fuse)";
    }
    if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0) {
        return std::string("making / private failed: ") + strerror(errno);
    }
    return "";
}

}  // namespace vks_test
