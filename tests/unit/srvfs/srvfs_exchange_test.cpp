// Requests in, replies out: what a client writes reaches the service frame by frame, and what the
// service answers reaches the client byte for byte.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "dxmp_message.h"
#include "srvfs_client.h"
#include "srvfs/file_system.h"
#include "srvfs_fixture.h"
#include "srvfs_ioctl.h"

namespace vks_test {
namespace {

class SrvfsExchangeTest : public SrvfsTest {
protected:
    void SetUp() override {
        SrvfsTest::SetUp();
        srvfs().AddService(TEST_SERVICE, [](const std::vector<uint8_t>& request) {
            return ScriptedReply{EchoReply(request), 0, false};
        });
        fd_ = open(ServicePath(TEST_SERVICE).c_str(), O_RDWR);
        ASSERT_GE(fd_, 0) << strerror(errno);
    }
    void TearDown() override {
        if (fd_ >= 0) {
            close(fd_);
        }
        SrvfsTest::TearDown();
    }
    int fd_ = -1;
};

// Whole requests and their replies are in the golden transcript (tests/transcript), every case's frames
// through this file system.
TEST_F(SrvfsExchangeTest, FramesWrittenInPiecesOrTogetherAreRequestsInOrder) {
    std::vector<uint8_t> first = RequestFrame(229, DXMP_METHOD_PUT, std::vector<uint8_t>(300, 0x5A));
    std::vector<uint8_t> second = RequestFrame(1203, DXMP_METHOD_GET, {2, 2});
    std::vector<uint8_t> both = first;
    both.insert(both.end(), second.begin(), second.end());
    // Cuts inside the fixed header, at its end, inside the content; the last write holds the end of
    // the first frame and all of the second.
    const size_t cuts[] = {0, 3, 16, 17, 200, both.size()};
    for (size_t i = 1; i < sizeof(cuts) / sizeof(cuts[0]); ++i) {
        ASSERT_EQ(0, WriteAll(fd_, std::vector<uint8_t>(both.begin() + static_cast<long>(cuts[i - 1]),
                                                        both.begin() + static_cast<long>(cuts[i]))));
        EXPECT_EQ(cuts[i] == both.size() ? 2u : 0u, srvfs().Requests(TEST_SERVICE).size()) << "piece " << i;
    }
    EXPECT_EQ((std::vector<std::vector<uint8_t>>{first, second}), srvfs().Requests(TEST_SERVICE));
    // Both replies are there: a read as large as both takes one whole reply, never bytes of the next.
    std::vector<uint8_t> reply(both.size() * 2);
    for (const std::vector<uint8_t>* frame : {&first, &second}) {
        ssize_t n = read(fd_, reply.data(), reply.size());
        ASSERT_GT(n, 0) << strerror(errno);
        EXPECT_EQ(EchoReply(*frame), std::vector<uint8_t>(reply.begin(), reply.begin() + n));
    }
}

TEST_F(SrvfsExchangeTest, ReadsSmallerThanTheReplyTakeItInOrder) {
    std::vector<uint8_t> request = RequestFrame(1201, DXMP_METHOD_GET, std::vector<uint8_t>(1304, 7));
    ASSERT_EQ(0, WriteAll(fd_, request));
    std::vector<uint8_t> got;
    uint8_t chunk[7];
    size_t expectedSize = EchoReply(request).size();
    while (got.size() < expectedSize) {
        ssize_t n = read(fd_, chunk, sizeof(chunk));
        ASSERT_GT(n, 0) << strerror(errno);
        EXPECT_LE(static_cast<size_t>(n), sizeof(chunk));
        got.insert(got.end(), chunk, chunk + n);
    }
    EXPECT_EQ(EchoReply(request), got);
    // The reply is consumed once: nothing is left for another read.
    ASSERT_EQ(0, SetTimeout(fd_, 50));
    EXPECT_EQ(ETIMEDOUT, FailedReadErrno(fd_));
}

TEST_F(SrvfsExchangeTest, BadFrameHeaderFailsTheWriteAndTheStreamRecovers) {
    std::vector<uint8_t> garbage(DXMP_FIXED_HEADER_LEN, 0xEE);
    EXPECT_EQ(-1, WriteAll(fd_, garbage));
    EXPECT_EQ(EPROTO, errno);
    EXPECT_TRUE(srvfs().Requests(TEST_SERVICE).empty());

    std::vector<uint8_t> request = RequestFrame(1202, DXMP_METHOD_GET, {});
    ASSERT_EQ(0, WriteAll(fd_, request));
    std::vector<uint8_t> reply;
    ASSERT_EQ(0, ReadFrame(fd_, &reply));
    EXPECT_EQ(EchoReply(request), reply);
}

// The three the module makes are recorded in every case of the golden transcript (tests/transcript).
TEST_F(SrvfsExchangeTest, IoctlsAreRecordedWithTheirValuesAndOthersRefused) {
    for (unsigned int cmd : {0x302u, 0x212u, 0x300u}) {
        EXPECT_EQ(-1, ioctl(fd_, cmd, 1UL)) << std::hex << cmd;
        EXPECT_EQ(ENOTTY, errno) << std::hex << cmd;
    }
    int second = open(ServicePath(TEST_SERVICE).c_str(), O_RDWR);
    ASSERT_GE(second, 0);
    EXPECT_EQ(0, ioctl(second, SRVFS_CONN_SETTIMEOUT, 7UL));
    close(second);
    std::vector<IoctlCall> calls = srvfs().Ioctls(TEST_SERVICE);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(static_cast<unsigned int>(SRVFS_CONN_SETTIMEOUT), calls[0].cmd);
    EXPECT_EQ(7ul, calls[0].arg);
}

bool KernelOffersRing() {
    std::ifstream param("/sys/module/fuse/parameters/enable_uring");
    std::string value;
    return std::getline(param, value) && value == "Y";
}

// Through the kernel's per-CPU io_uring queues (where it offers them) and through the device alone,
// concurrent connections whose replies come late each get their own. More reads wait at once than
// the queues start with entries, so the queues grow while requests hold them.
TEST(SrvfsTransport, ConcurrentConnectionsGetTheirOwnRepliesEitherWay) {
    for (bool ring : {true, false}) {
        std::string why;
        auto mount = SrvfsMount::Create(&why, ring);
        ASSERT_NE(nullptr, mount) << why;
        mount->AddService(TEST_SERVICE, [](const std::vector<uint8_t>& request) {
            return ScriptedReply{EchoReply(request), 50, false};
        });
        std::atomic<int> good{0};
        std::vector<std::thread> clients;
        for (int i = 0; i < 40; ++i) {
            clients.emplace_back([i, &good] {
                int fd = open(ServicePath(TEST_SERVICE).c_str(), O_RDWR);
                std::vector<uint8_t> request =
                    RequestFrame(1201, 2, std::vector<uint8_t>(10, static_cast<uint8_t>(i)));
                std::vector<uint8_t> reply;
                if (fd >= 0 && WriteAll(fd, request) == 0 && ReadFrame(fd, &reply) == 0 &&
                    reply == EchoReply(request)) {
                    ++good;
                }
                close(fd);
            });
        }
        for (auto& client : clients) {
            client.join();
        }
        EXPECT_EQ(40, good.load()) << "ring " << ring;
        // open, write, read and release of each: at least 160 requests, all through the ring.
        uint64_t served = mount->FileSystem().RingRequests();
        if (ring && KernelOffersRing()) {
            EXPECT_LE(160u, served);
        } else {
            EXPECT_EQ(0u, served);
        }
    }
}

// The kernel offers the ring, but no queue can be set up (io_uring is switched off for the machine):
// the mount serves through the device all the same, without a word of the ring to the kernel. The
// switch is machine-wide, so ctest runs this case alone, and it is put back however the case ends.
// A kernel without the switch (before 6.6) has no FUSE ring either: the device serves there too.
TEST(SrvfsTransport, QueuesThatCannotStartLeaveTheDeviceServing) {
    struct Switch {
        const char* path = "/proc/sys/kernel/io_uring_disabled";
        std::string before;
        bool exists = bool(std::getline(std::ifstream(path), before));
        bool Put(const std::string& value) const { return bool(std::ofstream(path) << value); }
        ~Switch() {
            if (exists) {
                Put(before);
            }
        }
    } ioUring;
    if (ioUring.exists) {
        ASSERT_TRUE(ioUring.Put("2"));
    }
    std::string why;
    auto mount = SrvfsMount::Create(&why);
    ASSERT_NE(nullptr, mount) << why;
    mount->AddService(TEST_SERVICE, [](const std::vector<uint8_t>& request) {
        return ScriptedReply{EchoReply(request), 0, false};
    });
    for (int i = 0; i < 5; ++i) {
        std::vector<uint8_t> request =
            RequestFrame(1201, 2, std::vector<uint8_t>(4, static_cast<uint8_t>(i)));
        std::vector<uint8_t> reply;
        ASSERT_EQ(0, Exchange(TEST_SERVICE, request, &reply, 3000)) << strerror(errno);
        EXPECT_EQ(EchoReply(request), reply);
    }
    EXPECT_EQ(0u, mount->FileSystem().RingRequests());
}

TEST_F(SrvfsExchangeTest, PollIsReadableOnlyOnceTheReplyIsThere) {
    srvfs().AddService(TEST_SERVICE, [](const std::vector<uint8_t>& request) {
        return ScriptedReply{EchoReply(request), 300, false};
    });
    int fd = open(ServicePath(TEST_SERVICE).c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    pollfd pfd{fd, POLLIN, 0};
    EXPECT_EQ(0, poll(&pfd, 1, 0)) << "readable before any request";
    std::vector<uint8_t> request = RequestFrame(1201, 2, {});
    ASSERT_EQ(0, WriteAll(fd, request));
    pfd.revents = 0;
    EXPECT_EQ(0, poll(&pfd, 1, 0)) << "readable before the reply";
    pfd.revents = 0;
    ASSERT_EQ(1, poll(&pfd, 1, 10000));
    EXPECT_TRUE(pfd.revents & POLLIN);
    std::vector<uint8_t> reply;
    ASSERT_EQ(0, ReadFrame(fd, &reply));
    EXPECT_EQ(EchoReply(request), reply);
    pfd.revents = 0;
    EXPECT_EQ(0, poll(&pfd, 1, 0)) << "still readable after the reply was read";
    close(fd);
}

}  // namespace
}  // namespace vks_test
