#include "srvfs/mount_point.h"

#include <errno.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include <filesystem>
#include <system_error>

namespace srvfs {
namespace {

const decltype(statfs::f_type) kFuseSuperMagic = 0x65735546;  // a mount that a live server answers

// What an access to the mount of a server that died gives: ENOTCONN once the kernel has ended the
// connection; ECANCELED or ECONNABORTED while it still tears down the server's io_uring queues,
// which it does in the background for a moment after the process is gone.
bool ServerGone(int err) {
    return err == ENOTCONN || err == ECANCELED || err == ECONNABORTED;
}

}  // namespace

int PrepareMountPoint(const std::string& path, std::string* note, std::string* error) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0 && ServerGone(errno)) {
        // A server that died without unmounting leaves a mount whose every access fails.
        if (umount2(path.c_str(), MNT_DETACH) != 0) {
            *error = "stale mount at " + path +
                     " (transport endpoint not connected) and umount failed: " + strerror(errno) +
                     "; run: umount -l " + path;
            return -1;
        }
        *note = "cleared a stale mount at " + path;
    }
    struct statfs fs;
    if (statfs(path.c_str(), &fs) == 0 && fs.f_type == kFuseSuperMagic) {
        *error = "another service file system is mounted on " + path;
        return -1;
    }
    std::error_code ec;
    if (!std::filesystem::create_directories(path, ec) && ec) {
        *error = "cannot create " + path + ": " + ec.message();
        return -1;
    }
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *error = path + " is not a directory";
        return -1;
    }
    return 0;
}

}  // namespace srvfs
