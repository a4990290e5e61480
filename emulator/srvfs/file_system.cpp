// Mounting, serving and unmounting. The loop is our own rather than fuse_session_loop, so that
// stopping never depends on the kernel aborting the connection: a client that still holds a
// service file open cannot keep the server alive. It waits in read() on the FUSE device, one system
// call per request; stopping interrupts that read with a signal (see Unmount). Where the kernel
// offers io_uring queues, they carry the requests instead and the device only the rest (fuse_ring.h).
#include "srvfs/file_system.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "core.h"
#include "fuse_ops.h"
#include "fuse_ring.h"
#include "srvfs/mount_point.h"

namespace srvfs {
namespace {

// Interrupts the loop's read of the FUSE device. Its handler does nothing; installed without
// SA_RESTART, it makes the read fail with EINTR. Only the loop thread takes it.
const int kWakeSignal = SIGUSR2;

void Nothing(int) {}

void InstallWakeHandler() {
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = Nothing;
    sigemptyset(&action.sa_mask);
    sigaction(kWakeSignal, &action, nullptr);
}

}  // namespace

std::unique_ptr<FileSystem> FileSystem::Mount(const MountOptions& options, std::string* error) {
    std::string note;
    if (PrepareMountPoint(options.mountPoint, &note, error) != 0) {
        return nullptr;
    }
    std::unique_ptr<FileSystem> fs(new FileSystem());
    fs->core_ = std::make_shared<detail::Core>(options.defaultTimeoutMs);
    fs->ring_ = std::make_unique<detail::FuseRing>(options.ioUring);
    fs->sessionData_.reset(new detail::SessionData{fs->core_.get(), fs->ring_.get()});
    fs->mountPoint_ = options.mountPoint;
    std::vector<const char*> argv{"srvfs", "-o", "fsname=srvfs,subtype=srvfs,allow_other"};
    fuse_args args = FUSE_ARGS_INIT(static_cast<int>(argv.size()), const_cast<char**>(argv.data()));
    const fuse_lowlevel_ops& ops = detail::ServiceFileOps();
    fs->session_ = fuse_session_new(&args, &ops, sizeof(ops), fs->sessionData_.get());
    fuse_opt_free_args(&args);  // option parsing may have copied the arguments
    if (fs->session_ == nullptr) {
        *error = "fuse_session_new failed";
        return nullptr;
    }
    if (fuse_session_mount(fs->session_, options.mountPoint.c_str()) != 0) {
        *error = "mounting " + options.mountPoint + " failed (needs root and /dev/fuse)";
        fuse_session_destroy(fs->session_);
        fs->session_ = nullptr;
        return nullptr;
    }
    if (fs->ring_->Attach(fs->session_) != 0) {
        *error = "cannot take over the FUSE device's reads and writes";
        return nullptr;  // the destructor unmounts
    }
    InstallWakeHandler();
    fs->loop_ = std::thread(&FileSystem::Loop, fs.get());
    if (!fs->SelfCheck(error)) {
        return nullptr;
    }
    // The self-check's open needed INIT answered; the io_uring queues start just after the answer.
    if (!fs->ring_->WaitForInit(10000)) {
        *error = "the FUSE connection's set-up did not finish";
        return nullptr;
    }
    if (fs->ring_->Broken()) {
        *error = "the kernel took the io_uring queues but not all of them started (run with --no-io-uring)";
        return nullptr;  // unmounting ends the connection: callers fail instead of waiting
    }
    return fs;
}

namespace {
struct SelfCheckService : Service {
    void OnRequest(const ReplyHandle& /*conn*/, std::vector<uint8_t> /*frame*/) override {}
};
}  // namespace

// Opens and closes one file through the kernel. That proves the mount answers, and the first close
// teaches the kernel that we have no flush (ENOSYS), so no later close ever waits for us: a process
// that serves its own mount and dies must not hang in exit flushing files on the thread that died.
bool FileSystem::SelfCheck(std::string* error) {
    const std::string name = ".srvfs-selfcheck";
    AddService(name, std::make_shared<SelfCheckService>());
    int fd = open((mountPoint_ + "/" + name).c_str(), O_RDWR | O_CLOEXEC);
    int openErrno = errno;
    if (fd >= 0) {
        close(fd);
    }
    RemoveService(name);
    if (fd < 0) {
        *error = "the mount at " + mountPoint_ + " does not answer: " + strerror(openErrno);
        return false;
    }
    return true;
}

FileSystem::~FileSystem() {
    Unmount();
}

void FileSystem::Loop() {
    sigset_t wake;
    sigemptyset(&wake);
    sigaddset(&wake, kWakeSignal);
    pthread_sigmask(SIG_UNBLOCK, &wake, nullptr);
    fuse_buf buf;
    memset(&buf, 0, sizeof(buf));
    while (!stop_ && !fuse_session_exited(session_)) {
        int res = fuse_session_receive_buf(session_, &buf);
        if (res == -EINTR || res == -EAGAIN) {
            continue;
        }
        if (res <= 0) {
            break;  // unmounted from outside, or the device failed
        }
        fuse_session_process_buf(session_, &buf);
    }
    free(buf.mem);
    loopDone_ = true;
}

void FileSystem::Unmount() {
    if (session_ == nullptr) {
        return;
    }
    if (loop_.joinable()) {
        // A signal that lands just before the loop enters read() interrupts nothing: repeat it
        // until the loop has seen the stop.
        stop_ = true;
        while (!loopDone_) {
            pthread_kill(loop_.native_handle(), kWakeSignal);
            usleep(1000);
        }
        loop_.join();
    }
    // Reads still parked get an answer while the kernel still listens; then nothing runs any more.
    core_->Shutdown(ENOTCONN);
    ring_->Stop();  // after the answers above have gone out through it
    fuse_session_unmount(session_);
    fuse_session_destroy(session_);
    session_ = nullptr;
}

bool FileSystem::AddService(const std::string& name, std::shared_ptr<Service> service) {
    if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..") {
        return false;
    }
    core_->AddService(name, std::move(service));
    return true;
}

void FileSystem::RemoveService(const std::string& name) {
    core_->RemoveService(name);
    // The kernel caches names (fuse_ops.cpp): make it forget this one, so that the next open looks
    // it up and finds it gone (or, once added again, under its new inode). Called from outside the
    // loop thread, never inside a file-system operation.
    if (session_ != nullptr && loop_.joinable()) {
        fuse_lowlevel_notify_inval_entry(session_, FUSE_ROOT_ID, name.c_str(), name.size());
    }
}

int FileSystem::OpenConnections(const std::string& name) const {
    return core_->OpenConnections(name);
}

uint64_t FileSystem::RingRequests() const {
    return ring_ != nullptr ? ring_->RingRequests() : 0;
}

void FileSystem::SetTimeoutCapMs(unsigned long capMs) {
    core_->SetTimeoutCapMs(capMs);
}

}  // namespace srvfs
