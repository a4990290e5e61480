#include "kit_dir.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace kitdir {
namespace {

const char kFolderName[] = "vks-kit";

bool IsFolder(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string AbsoluteEnv(const char* name) {
    const char* value = getenv(name);
    return value != nullptr && value[0] == '/' ? value : "";
}

std::string Octal(mode_t mode) {
    char text[8];
    snprintf(text, sizeof(text), "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

// Why someone else could change what lies in this folder; empty when nobody but its owner can.
std::string Exposure(const struct stat& st) {
    uid_t me = geteuid();
    if (st.st_uid != me) {
        return "owned by uid " + std::to_string(st.st_uid) + ", not by this user (uid " + std::to_string(me) +
               ")";
    }
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "writable by group or others (mode " + Octal(st.st_mode) + ")";
    }
    return "";
}

// The same for a folder above ours, more lenient: its owner and group are trusted, as whoever chose
// to work there trusts them already (root in a user's clone, CI under a runner's folder, a user's
// private group of umask 002). Everybody else must not be able to rename entries there, unless the
// folder is sticky (/tmp), where nobody may rename what another user made.
std::string AncestorExposure(const struct stat& st) {
    if ((st.st_mode & S_IWOTH) != 0 && (st.st_mode & S_ISVTX) == 0) {
        return "writable by others (mode " + Octal(st.st_mode) + ")";
    }
    return "";
}

int Refuse(const std::string& path, const std::string& reason, std::string* why) {
    *why = "folder " + path + ": " + reason;
    return -1;
}

// Every folder above path: someone who may rename entries there could swap the folder itself.
int CheckAncestors(const std::string& path, std::string* why) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        std::string above = path.substr(0, slash);
        struct stat st;
        if (stat(above.c_str(), &st) != 0) {
            return Refuse(path, "cannot look at " + above + ": " + strerror(errno), why);
        }
        std::string exposure = AncestorExposure(st);
        if (!exposure.empty()) {
            return Refuse(path, "the folder above it, " + above + ", is " + exposure, why);
        }
    }
    return 0;
}

int CheckOpen(int fd, const std::string& path, std::string* why) {
    struct stat st;
    if (fstat(fd, &st) != 0) {
        return Refuse(path, strerror(errno), why);
    }
    std::string exposure = Exposure(st);
    return exposure.empty() ? 0 : Refuse(path, exposure, why);
}

std::string Absolute(const std::string& path) {
    if (!path.empty() && path[0] == '/') {
        return path;
    }
    char cwd[4096];
    return getcwd(cwd, sizeof(cwd)) != nullptr ? std::string(cwd) + "/" + path : path;
}

}  // namespace

std::string PrivateFolder() {
    if (geteuid() == 0) {
        return std::string("/run/") + kFolderName;
    }
    std::string base = AbsoluteEnv("XDG_RUNTIME_DIR");
    std::string perUser = "/run/user/" + std::to_string(geteuid());
    if (base.empty() && IsFolder(perUser)) {
        base = perUser;
    }
    if (base.empty() && IsFolder(AbsoluteEnv("HOME"))) {
        base = AbsoluteEnv("HOME") + "/.local/state";
    }
    return base.empty() ? "" : base + "/" + kFolderName;
}

std::string DefaultCmdSocket() {
    std::string folder = PrivateFolder();
    return folder.empty() ? "" : folder + "/cmd.sock";
}

std::string DefaultResultDir() {
    std::string folder = PrivateFolder();
    return folder.empty() ? "" : folder + "/results";
}

std::string DefaultStateFile(const std::string& name) {
    if (geteuid() == 0) {
        return "/var/lib/vks-emulator/" + name;
    }
    std::string base = AbsoluteEnv("XDG_STATE_HOME");
    if (base.empty() && !AbsoluteEnv("HOME").empty()) {
        base = AbsoluteEnv("HOME") + "/.local/state";
    }
    return base.empty() ? "" : base + "/" + kFolderName + "/" + name;
}

std::string DescribeDefault(const std::string& path) {
    return std::string("in the private folder: /run/") + kFolderName + " for root, else $XDG_RUNTIME_DIR/" +
           kFolderName + "; here: " + (path.empty() ? "none, give the option" : path);
}

std::string FolderOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

int EnsurePrivateFolder(const std::string& given, std::string* why) {
    if (given.empty()) {
        *why = "no private folder: set XDG_RUNTIME_DIR or HOME, or name the paths with the options";
        return -1;
    }
    std::string path = Absolute(given);
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        std::string part = path.substr(0, slash);
        if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) {
            return Refuse(path, "cannot create " + part + ": " + strerror(errno), why);
        }
        if (slash == std::string::npos) {
            break;
        }
    }
    int fd = OpenPrivateFolder(path, why);
    if (fd < 0) {
        return -1;
    }
    close(fd);
    return CheckAncestors(path, why);
}

int OpenPrivateFolder(const std::string& path, std::string* why) {
    int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return Refuse(
            path, errno == ELOOP || errno == ENOTDIR ? "not a folder (a link or a file)" : strerror(errno),
            why);
    }
    if (CheckOpen(fd, path, why) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

}  // namespace kitdir
