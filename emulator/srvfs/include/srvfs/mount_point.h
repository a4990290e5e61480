// Getting a mount point ready: created when missing, and a dead mount left by a crashed server
// (stat fails with ENOTCONN) detached.
#ifndef SRVFS_MOUNT_POINT_H
#define SRVFS_MOUNT_POINT_H

#include <string>

namespace srvfs {

// 0 when the directory exists (created with its parents if needed) and is not a dead mount; a stale
// mount is detached and reported in *note. -1 with the reason in *error otherwise, also when a live
// service file system (another server's) is mounted there.
int PrepareMountPoint(const std::string& path, std::string* note, std::string* error);

}  // namespace srvfs

#endif
