// Test main shared by every suite. It enters a private mount namespace before any thread exists
// (unshare(CLONE_NEWNS) refuses a multi-threaded process), so that service file systems mounted at
// /mnt/srvfs by one test binary are invisible to the host and to test binaries running in parallel.
#include <errno.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>

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

int main(int argc, char** argv) {
    if (unshare(CLONE_NEWNS) != 0) {
        g_namespaceError = std::string("unshare(CLONE_NEWNS) failed: ") + strerror(errno) +
                           " (tests that mount the service file system need root and /dev/fuse)";
    } else if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0) {
        g_namespaceError = std::string("making / private failed: ") + strerror(errno);
    } else {
        g_namespaceError.clear();
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
