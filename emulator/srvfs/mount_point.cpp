#include "srvfs/mount_point.h"

#include <errno.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace srvfs {
namespace {

int MakeDirs(const std::string& path, std::string* error) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        std::string prefix = path.substr(0, slash);
        if (!prefix.empty() && mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) {
            *error = "cannot create " + prefix + ": " + strerror(errno);
            return -1;
        }
        if (slash == std::string::npos) {
            return 0;
        }
    }
}

}  // namespace

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
    if (MakeDirs(path, error) != 0) {
        return -1;
    }
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *error = path + " is not a directory";
        return -1;
    }
    return 0;
}

}  // namespace srvfs
