// Test main shared by every suite. It enters a private mount namespace before any thread exists
// (unshare(CLONE_NEWNS) refuses a multi-threaded process), so that service file systems mounted at
// /mnt/srvfs by one test binary are invisible to the host and to test binaries running in parallel.
// Run by a user other than root, it makes that user root of a user namespace of its own first.
#include <gtest/gtest.h>

#include "own_namespace.h"
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
    g_namespaceError = vks_test::EnterOwnMountNamespace();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
