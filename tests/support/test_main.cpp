// Test main shared by every suite. It enters a private mount namespace before any thread exists
// (unshare(CLONE_NEWNS) refuses a multi-threaded process), so that service file systems mounted at
// /mnt/srvfs by one test binary are invisible to the host and to test binaries running in parallel.
// Run by a user other than root, it makes that user root of a user namespace of its own first.
#include <errno.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>

#include <gtest/gtest.h>

#include "test_env.h"

namespace {
std::string g_namespaceError = "not initialised";
}

namespace vks_test {
bool InPrivateMountNamespace(std::string* why) {
    if (g_namespaceError.empty()) {
        return true;
    }
    if (why != nullptr) {
        *why = g_namespaceError;
    }
    return false;
}
}  // namespace vks_test

namespace {

bool WriteFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    return static_cast<bool>(file << text << std::flush);
}

// Another user becomes root of a user namespace of its own, which owns the new mount namespace: FUSE
// may be mounted there (Linux 4.18 and later). /mnt is covered with a tmpfs, so that /mnt/srvfs can
// be made where the real /mnt is root's.
std::string EnterUserNamespace() {
    std::string uid = std::to_string(geteuid());
    std::string gid = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return std::string("unshare(CLONE_NEWUSER | CLONE_NEWNS) failed: ") + strerror(errno) +
               " (are user namespaces off? scripts/setup.sh says)";
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

std::string EnterMountNamespace() {
    if (geteuid() != 0) {
        return EnterUserNamespace();
    }
    if (unshare(CLONE_NEWNS) != 0) {
        return std::string("unshare(CLONE_NEWNS) failed: ") + strerror(errno) +
               " (tests that mount the service file system need root and /dev/fuse)";
    }
    if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0) {
        return std::string("making / private failed: ") + strerror(errno);
    }
    return "";
}

}  // namespace

int main(int argc, char** argv) {
    g_namespaceError = EnterMountNamespace();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
