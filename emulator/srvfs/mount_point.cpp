#include "srvfs/mount_point.h"

#include <errno.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>

namespace srvfs {

int PrepareMountPoint(const std::string& path, std::string* note, std::string* error) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0 && errno == ENOTCONN) {
        // A server that died without unmounting leaves a mount whose every access fails.
        if (umount2(path.c_str(), MNT_DETACH) != 0) {
            *error = "stale mount at " + path +
                     " (transport endpoint not connected) and umount failed: " + strerror(errno) +
                     "; run: umount -l " + path;
            return -1;
        }
        *note = "cleared a stale mount at " + path;
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
