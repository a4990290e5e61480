// A mount namespace of the process's own, so that what it mounts at /mnt/srvfs stays invisible to the
// host and to other runs. Shared by the tests and the benchmarks.
#ifndef VKS_OWN_NAMESPACE_H
#define VKS_OWN_NAMESPACE_H

#include <string>

namespace vks_test {

// Enters it; to be called before any thread starts (unshare refuses a multi-threaded process). A
// user other than root first becomes root of a user namespace of its own, which owns the new mount
// namespace: FUSE may be mounted there (Linux 4.18 and later), and a tmpfs covers /mnt so that
// /mnt/srvfs can be made. "" on success, else the reason.
std::string EnterOwnMountNamespace();

}  // namespace vks_test

#endif
