// A service file system mounted at /mnt/srvfs inside the test process's private mount namespace,
// with services whose replies the test scripts. Served from the process's own threads: the test
// thread is the file system's client and the server never waits on it.
#ifndef VKS_SRVFS_FIXTURE_H
#define VKS_SRVFS_FIXTURE_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace srvfs {
class FileSystem;
}

namespace vks_test {

struct ScriptedReply {
    std::vector<uint8_t> frame;  // encoded reply frame (see BuildReply)
    int delayMs = 0;             // answer after this delay
    bool never = false;          // never answer
};
using ScriptFn = std::function<ScriptedReply(const std::vector<uint8_t>& requestFrame)>;
struct IoctlCall {
    unsigned int cmd;
    unsigned long arg;
};

class ScriptedService;

class SrvfsMount {
public:
    // Mounts the service file system at /mnt/srvfs in this test process's private mount namespace.
    // Null with the reason in *why when it cannot (not root, no /dev/fuse, no private namespace).
    // ioUring: take the kernel's io_uring queues when it offers them.
    static std::unique_ptr<SrvfsMount> Create(std::string* why, bool ioUring = true);
    ~SrvfsMount();  // unmounts
    void AddService(const std::string& name, ScriptFn fn);
    void RemoveService(const std::string& name);
    std::vector<std::vector<uint8_t>> Requests(const std::string& name) const;  // frames received, in order
    std::vector<IoctlCall> Ioctls(const std::string& name) const;               // in order, all connections
    int OpenConnections(const std::string& name) const;                         // currently open
    // Caps every connection's read time-out (0: no cap), so that a client that sets 30000 ms can be
    // tested against a silent service in a fraction of that. The ioctl is still recorded as sent.
    void SetTimeoutCapMs(unsigned long capMs);
    srvfs::FileSystem& FileSystem() { return *fs_; }

private:
    SrvfsMount() = default;
    std::shared_ptr<ScriptedService> Find(const std::string& name) const;

    std::unique_ptr<srvfs::FileSystem> fs_;
    mutable std::mutex mutex_;
    std::map<std::string, std::shared_ptr<ScriptedService>> services_;
};

// Reply frame: status, uri, method bits (reply flag set), an optional result item 0xB001 holding
// *result in its first 4 bytes and resultLen bytes long (null result: no item), and the content.
std::vector<uint8_t> BuildReply(uint16_t status, uint16_t uri, uint8_t method, const int32_t* result,
                                const std::vector<uint8_t>& content, uint16_t resultLen = 4);

// gtest base: SetUp mounts (FAILs with the reason when it cannot); srvfs() gives the mount.
class SrvfsTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    SrvfsMount& srvfs();

private:
    std::unique_ptr<SrvfsMount> mount_;
};

}  // namespace vks_test

#endif
