// The service file system: a FUSE mount with one regular file per registered service. Each open of a
// service file is a connection; written bytes are cut into DXMP frames and handed to the service, and
// the service's reply frames are read back as a byte stream.
#ifndef SRVFS_FILE_SYSTEM_H
#define SRVFS_FILE_SYSTEM_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "srvfs/service.h"

struct fuse_session;

namespace srvfs {
namespace detail {
class Core;
class FuseRing;
struct SessionData;
}  // namespace detail

#define SRVFS_DEFAULT_MOUNT "/mnt/srvfs"
// Read time-out of a connection whose client never set one: the value every known client sets.
#define SRVFS_DEFAULT_TIMEOUT_MS 30000UL

struct MountOptions {
    std::string mountPoint = SRVFS_DEFAULT_MOUNT;
    unsigned long defaultTimeoutMs = SRVFS_DEFAULT_TIMEOUT_MS;
    // Serve requests from the kernel's per-CPU io_uring queues when it offers them (the fuse
    // module's enable_uring parameter); otherwise, or when false, through the device alone.
    bool ioUring = true;
};

class FileSystem {
public:
    // Mounts and starts serving on its own threads. Null with the reason in *error when it cannot.
    static std::unique_ptr<FileSystem> Mount(const MountOptions& options, std::string* error);
    ~FileSystem();  // Unmount()
    FileSystem(const FileSystem&) = delete;
    FileSystem& operator=(const FileSystem&) = delete;

    // Stops serving, fails reads still waiting, joins the threads and unmounts. Idempotent.
    void Unmount();

    // Registers (or replaces) the service behind file `name`. False for an empty name or one with '/'.
    bool AddService(const std::string& name, std::shared_ptr<Service> service);
    // Removes the file; connections already open keep their service until they are closed.
    void RemoveService(const std::string& name);
    int OpenConnections(const std::string& name) const;
    // Caps the read time-out of every connection (0: no cap). For tests of clients that set long
    // time-outs; the ioctl is still recorded with the value the client sent.
    void SetTimeoutCapMs(unsigned long capMs);
    // Requests served from the io_uring queues so far (0: the device alone serves).
    uint64_t RingRequests() const;

private:
    FileSystem() = default;
    void Loop();
    bool SelfCheck(std::string* error);

    std::shared_ptr<detail::Core> core_;
    std::unique_ptr<detail::FuseRing> ring_;
    std::unique_ptr<detail::SessionData> sessionData_;
    fuse_session* session_ = nullptr;
    std::string mountPoint_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> loopDone_{false};
    std::thread loop_;
};

}  // namespace srvfs

#endif
