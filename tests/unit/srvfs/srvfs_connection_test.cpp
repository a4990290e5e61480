// Connections that do not end in a tidy reply: silent services, early closes, interrupts, unknown
// files, and a file system that goes away under its clients.
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <chrono>
#include <thread>

#include "dxmp_message.h"
#include "srvfs/file_system.h"
#include "srvfs_client.h"
#include "srvfs_fixture.h"
#include "srvfs_ioctl.h"
#include "test_env.h"

namespace vks_test {
namespace {

ScriptedReply Never(const std::vector<uint8_t>&) {
    return ScriptedReply{{}, 0, true};
}

bool WaitFor(const std::function<bool()>& done) {
    for (int i = 0; i < 500 && !done(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return done();
}

TEST_F(SrvfsTest, UnknownServiceIsNotFound) {
    srvfs().AddService(TEST_SERVICE, Never);
    EXPECT_EQ(0, access(ServicePath(TEST_SERVICE).c_str(), F_OK));
    EXPECT_EQ(-1, access(ServicePath("no.such.service").c_str(), F_OK));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(-1, open(ServicePath("no.such.service").c_str(), O_RDWR));
    EXPECT_EQ(ENOENT, errno);

    srvfs().RemoveService(TEST_SERVICE);
    EXPECT_EQ(-1, access(ServicePath(TEST_SERVICE).c_str(), F_OK));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(-1, open(ServicePath(TEST_SERVICE).c_str(), O_RDWR));
    EXPECT_EQ(ENOENT, errno);
}

struct SilentReadCase {
    const char* what;
    int openFlags;
    unsigned long clientTimeoutMs;  // 0: no ioctl
    unsigned long capMs;            // 0: no cap
    int expectedErrno;
};

TEST_F(SrvfsTest, ReadFromASilentServiceFails) {
    const SilentReadCase cases[] = {
        {"time-out set by ioctl", O_RDWR, 100, 0, ETIMEDOUT},
        {"long time-out under the fixture's cap", O_RDWR, 30000, 100, ETIMEDOUT},
        {"non-blocking read", O_RDWR | O_NONBLOCK, 30000, 0, EAGAIN},
    };
    for (const SilentReadCase& c : cases) {
        srvfs().AddService(TEST_SERVICE, Never);
        srvfs().SetTimeoutCapMs(c.capMs);
        int fd = open(ServicePath(TEST_SERVICE).c_str(), c.openFlags);
        ASSERT_GE(fd, 0) << c.what;
        if (c.clientTimeoutMs != 0) {
            ASSERT_EQ(0, SetTimeout(fd, c.clientTimeoutMs)) << c.what;
        }
        ASSERT_EQ(0, WriteAll(fd, RequestFrame(1202, 2, {}))) << c.what;
        EXPECT_EQ(c.expectedErrno, FailedReadErrno(fd)) << c.what;
        close(fd);
        ASSERT_EQ(c.clientTimeoutMs != 0 ? 1u : 0u, srvfs().Ioctls(TEST_SERVICE).size()) << c.what;
    }
}

TEST_F(SrvfsTest, CloseWhileReplyPendingDropsTheLateReply) {
    srvfs().AddService(TEST_SERVICE, [](const std::vector<uint8_t>& request) {
        return ScriptedReply{EchoReply(request), 150, false};
    });
    int fd = open(ServicePath(TEST_SERVICE).c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(1, srvfs().OpenConnections(TEST_SERVICE));
    ASSERT_EQ(0, WriteAll(fd, RequestFrame(1201, 2, {9})));
    close(fd);
    EXPECT_TRUE(WaitFor([this] { return srvfs().OpenConnections(TEST_SERVICE) == 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the late reply fires meanwhile

    // A new connection starts empty: the dropped reply does not leak into it.
    int again = open(ServicePath(TEST_SERVICE).c_str(), O_RDWR);
    ASSERT_GE(again, 0);
    ASSERT_EQ(0, SetTimeout(again, 50));
    EXPECT_EQ(ETIMEDOUT, FailedReadErrno(again));
    close(again);
}

TEST_F(SrvfsTest, ExchangesLeaveNoDescriptorOrConnectionBehind) {
    srvfs().AddService(TEST_SERVICE, [](const std::vector<uint8_t>& request) {
        return ScriptedReply{EchoReply(request), 0, false};
    });
    int before = CountOpenDescriptors();
    for (int i = 0; i < 50; ++i) {
        int fd = open(ServicePath(TEST_SERVICE).c_str(), O_RDWR);
        ASSERT_GE(fd, 0);
        std::vector<uint8_t> reply;
        ASSERT_EQ(0, WriteAll(fd, RequestFrame(1202, 2, {})));
        ASSERT_EQ(0, ReadFrame(fd, &reply));
        close(fd);
    }
    EXPECT_EQ(before, CountOpenDescriptors());
    EXPECT_TRUE(WaitFor([this] { return srvfs().OpenConnections(TEST_SERVICE) == 0; }));
}

void IgnoreSignal(int) {}

TEST_F(SrvfsTest, InterruptedReadFailsWithEintr) {
    srvfs().AddService(TEST_SERVICE, Never);
    struct sigaction action {};
    action.sa_handler = IgnoreSignal;  // no SA_RESTART: the read must come back
    struct sigaction previous {};
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, &previous));
    int fd = open(ServicePath(TEST_SERVICE).c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(0, SetTimeout(fd, 20000));
    std::atomic<bool> done{false};
    int readErrno = 0;
    std::thread reader([&] {
        uint8_t byte;
        if (read(fd, &byte, 1) < 0) {
            readErrno = errno;
        }
        done = true;
    });
    pthread_t handle = reader.native_handle();
    for (int i = 0; i < 100 && !done; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        pthread_kill(handle, SIGUSR1);
    }
    reader.join();
    EXPECT_EQ(EINTR, readErrno);
    close(fd);
    sigaction(SIGUSR1, &previous, nullptr);
}

TEST(SrvfsTeardown, UnmountFailsWaitingReadsAndDetachesWithFilesOpen) {
    std::string why;
    ASSERT_TRUE(InPrivateMountNamespace(&why)) << why;
    srvfs::MountOptions options;
    options.mountPoint = "/mnt/srvfs-teardown";
    auto fs = srvfs::FileSystem::Mount(options, &why);
    ASSERT_NE(nullptr, fs) << why;
    struct Silent : srvfs::Service {
        void OnRequest(const srvfs::ReplyHandle&, std::vector<uint8_t>) override {}
    };
    ASSERT_TRUE(fs->AddService("silent", std::make_shared<Silent>()));
    int fd = open("/mnt/srvfs-teardown/silent", O_RDWR);
    ASSERT_GE(fd, 0);
    int readErrno = 0;
    std::thread reader([&] {
        uint8_t byte;
        if (read(fd, &byte, 1) < 0) {
            readErrno = errno;
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    fs->Unmount();
    reader.join();
    EXPECT_EQ(ENOTCONN, readErrno);
    uint8_t byte;
    EXPECT_EQ(-1, read(fd, &byte, 1)) << "the connection outlived the file system";
    close(fd);
    struct stat st;
    EXPECT_EQ(0, stat("/mnt/srvfs-teardown", &st)) << "mount point left dead: " << strerror(errno);
}

}  // namespace
}  // namespace vks_test
