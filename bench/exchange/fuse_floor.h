// The least a service-file-system exchange can cost: a libfuse low-level file system with one file
// that answers every request at once (open, ioctl, write, release) and every read with the same
// canned bytes. No flush, like the emulator: after the first close the kernel sends none. Every name
// not starting with a dot is that file. Served by one thread of this process.
#ifndef VKS_FUSE_FLOOR_H
#define VKS_FUSE_FLOOR_H

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "task_counts.h"

struct fuse_session;

class FuseFloor {
public:
    // Mounts at dir (which must exist). False when the mount fails.
    bool Mount(const std::string& dir, std::vector<uint8_t> reply);
    ~FuseFloor();  // unmounts
    const std::vector<uint8_t>& Reply() const { return reply_; }
    // The thread that serves the mount.
    vks_bench::Task Server() const;

private:
    fuse_session* session_ = nullptr;
    std::thread loop_;
    std::atomic<pid_t> loopTid_{0};
    std::vector<uint8_t> reply_;
};

#endif
