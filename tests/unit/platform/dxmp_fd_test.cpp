// DXMP messages over a descriptor: a real socket pair with a scripted peer thread that writes in
// pieces, interrupts the reader or writer with a signal, or hangs up mid-frame.
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "dxmp_message.h"
#include "dxmp_test_util.h"

#if defined(__SANITIZE_ADDRESS__)
// A reader that trusted a declared length of 0xFFFFFFFF would ask for 4 GiB: make any allocation
// above 16 MiB (far above DXMP_MAX_FRAME_LEN) abort the sanitizer build.
extern "C" const char* __asan_default_options() {
    return "max_allocation_size_mb=16";
}
#endif

namespace {

using namespace vks_test;

std::atomic<int> g_signals{0};

// glibc's send() is the send system call where there is one (32-bit ARM), else sendto.
#ifdef SYS_send
const long kSendCall = SYS_send;
#else
const long kSendCall = SYS_sendto;
#endif

// A peer that lost its script fails the test instead of leaving a read or send blocked for good.
void LimitBlocking(int fd, int option) {
    struct timeval limit = {15, 0};
    setsockopt(fd, SOL_SOCKET, option, &limit, sizeof(limit));
}

void CountSignal(int) {
    g_signals.fetch_add(1);
}

// SIGUSR1 handled without SA_RESTART, so a blocked read or write returns EINTR; restored afterwards.
class InterruptingSignal {
public:
    InterruptingSignal() {
        struct sigaction action = {};
        action.sa_handler = CountSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = 0;
        sigaction(SIGUSR1, &action, &previous_);
        g_signals = 0;
    }
    ~InterruptingSignal() { sigaction(SIGUSR1, &previous_, nullptr); }

private:
    struct sigaction previous_;
};

// Delivers SIGUSR1 to a thread blocked in system call nr and waits until its handler ran.
bool Interrupt(pthread_t thread, pid_t tid, long nr) {
    if (!WaitBlockedIn(tid, nr)) {
        return false;
    }
    int before = g_signals.load();
    pthread_kill(thread, SIGUSR1);
    while (g_signals.load() == before) {
        std::this_thread::yield();
    }
    return true;
}

MessagePtr SampleReply(size_t contentLen = 5) {
    MessagePtr msg =
        BuildMessage(1201, 0x82, {{DXMP_ITEM_RESULT, std::string("\0\0\0\0", 4)}, {0xB002, "channel!"}},
                     std::string(contentLen, 'r'));
    msg->pFixedHeader[DXMP_HDR_STATUS] = 200;
    return msg;
}

bool WriteAll(int fd, const uint8_t* data, size_t length) {
    return write(fd, data, length) == static_cast<ssize_t>(length);
}

TEST(DxmpFd, SendAndReceiveOneFrame) {
    SocketPair pair;
    MessagePtr sent = SampleReply(1000);
    ASSERT_EQ(0, dxmp_message_sendfd(sent.get(), pair.first));
    MessagePtr received = NewMessage();
    ASSERT_EQ(0, dxmp_message_recvfd(received.get(), pair.second));
    EXPECT_EQ(Encode(sent.get()), Encode(received.get()));
    EXPECT_EQ(200, received->pFixedHeader[DXMP_HDR_STATUS]);
    EXPECT_EQ(0x82, received->pFixedHeader[DXMP_HDR_FLAGS_METHOD]);
}

TEST(DxmpFd, FramesOnAStreamStaySeparable) {
    SocketPair pair;
    MessagePtr first = BuildMessage(1, 2, {{1, "one"}}, "first content");
    MessagePtr second = BuildMessage(2, 3, {{2, "two"}}, "");
    ASSERT_EQ(0, dxmp_message_sendfd(first.get(), pair.first));
    ASSERT_EQ(0, dxmp_message_sendfd(second.get(), pair.first));
    MessagePtr received = BuildMessage(9, 9, {{9, "stale"}}, "stale");
    ASSERT_EQ(0, dxmp_message_recvfd(received.get(), pair.second));
    EXPECT_EQ(Encode(first.get()), Encode(received.get()));
    ASSERT_EQ(0, dxmp_message_recvfd(received.get(), pair.second));
    EXPECT_EQ(Encode(second.get()), Encode(received.get()));
    EXPECT_EQ("", Content(received.get())) << "the second frame's empty content replaced the first";
}

// Receives one frame on fd while peer() scripts the other end, and expects exactly frame.
void ExpectReceivedWhile(int fd, const std::vector<uint8_t>& frame, const std::function<bool()>& peer) {
    bool peerOk = false;
    LimitBlocking(fd, SO_RCVTIMEO);
    std::thread thread([&] { peerOk = peer(); });
    MessagePtr received = NewMessage();
    int rc = dxmp_message_recvfd(received.get(), fd);
    thread.join();
    ASSERT_TRUE(peerOk);
    ASSERT_EQ(0, rc);
    EXPECT_EQ(frame, Encode(received.get()));
}

TEST(DxmpFd, ReceivesAFrameWrittenOneByteAtATime) {
    SocketPair pair;
    const std::vector<uint8_t> frame = Encode(SampleReply().get());
    const pid_t reader = vks_test::ThreadId();
    ExpectReceivedWhile(pair.second, frame, [&] {
        for (uint8_t byte : frame) {
            // Each byte arrives while the reader is blocked, so every read returns one byte.
            if (!WaitBlockedIn(reader, SYS_read) || !WriteAll(pair.first, &byte, 1)) {
                return false;
            }
        }
        return true;
    });
}

TEST(DxmpFd, ReceiveCompletesAcrossInterruptions) {
    InterruptingSignal signal;
    SocketPair pair;
    const std::vector<uint8_t> frame = Encode(SampleReply().get());
    const pthread_t readerThread = pthread_self();
    const pid_t reader = vks_test::ThreadId();
    ExpectReceivedWhile(pair.second, frame, [&] {
        // Interrupted before any byte, inside the fixed header and inside the rest of the frame.
        return Interrupt(readerThread, reader, SYS_read) && WriteAll(pair.first, frame.data(), 5) &&
               Interrupt(readerThread, reader, SYS_read) && WriteAll(pair.first, frame.data() + 5, 15) &&
               Interrupt(readerThread, reader, SYS_read) &&
               WriteAll(pair.first, frame.data() + 20, frame.size() - 20);
    });
    EXPECT_EQ(3, g_signals.load());
}

// Fills the socket until it takes no more, so that the next send blocks before moving a byte.
size_t FillSocket(int fd) {
    const char junk[512] = {};
    size_t total = 0;
    for (;;) {
        ssize_t n = send(fd, junk, sizeof(junk), MSG_DONTWAIT);
        if (n <= 0) {
            return total;
        }
        total += static_cast<size_t>(n);
    }
}

TEST(DxmpFd, SendCompletesAcrossInterruptionsAndShortWrites) {
    InterruptingSignal signal;
    SocketPair pair;
    int small = 4096;
    ASSERT_EQ(0, setsockopt(pair.first, SOL_SOCKET, SO_SNDBUF, &small, sizeof(small)));
    ASSERT_EQ(0, setsockopt(pair.second, SOL_SOCKET, SO_RCVBUF, &small, sizeof(small)));
    const size_t junk = FillSocket(pair.first);
    LimitBlocking(pair.first, SO_SNDTIMEO);
    LimitBlocking(pair.second, SO_RCVTIMEO);
    MessagePtr sent = SampleReply(400000);  // far more than the socket holds: short writes follow
    const pthread_t writerThread = pthread_self();
    const pid_t writer = vks_test::ThreadId();
    MessagePtr received = NewMessage();
    bool peerOk = true;
    int peerRc = -1;
    std::thread peer([&] {
        // First interrupted before any byte moved (EINTR), then again once bytes move (short write).
        std::vector<uint8_t> drained(junk);
        peerOk =
            Interrupt(writerThread, writer, kSendCall) && recv(pair.second, drained.data(), 1, 0) == 1 &&
            Interrupt(writerThread, writer, kSendCall) &&
            recv(pair.second, drained.data() + 1, junk - 1, MSG_WAITALL) == static_cast<ssize_t>(junk - 1);
        peerRc = dxmp_message_recvfd(received.get(), pair.second);
    });
    int rc = dxmp_message_sendfd(sent.get(), pair.first);
    peer.join();
    ASSERT_TRUE(peerOk);
    EXPECT_EQ(0, rc);
    ASSERT_EQ(0, peerRc);
    EXPECT_EQ(Encode(sent.get()), Encode(received.get()));
    EXPECT_EQ(2, g_signals.load());
}

TEST(DxmpFd, EndOfStreamBeforeACompleteFrameFails) {
    const std::vector<uint8_t> frame = Encode(SampleReply().get());
    const size_t cuts[] = {0, 1, 5, DXMP_FIXED_HEADER_LEN, DXMP_FIXED_HEADER_LEN + 3, frame.size() - 1};
    for (size_t cut : cuts) {
        SCOPED_TRACE(cut);
        SocketPair pair;
        ASSERT_TRUE(cut == 0 || WriteAll(pair.first, frame.data(), cut));
        close(pair.first);
        pair.first = -1;
        MessagePtr msg = BuildMessage(3, 2, {{0x55, "keep"}}, "kept");
        const std::vector<uint8_t> before = Encode(msg.get());
        errno = 0;
        EXPECT_EQ(-1, dxmp_message_recvfd(msg.get(), pair.second));
        EXPECT_EQ(cut == 0 ? ENODATA : EPROTO, errno);
        EXPECT_EQ(before, Encode(msg.get()));
    }
}

// The reader stops after the fixed header: the bytes behind it are still in the socket, and the
// call returns although the peer keeps the connection open.
TEST(DxmpFd, RefusesAnOversizedOrMalformedHeaderWithoutReadingOn) {
    struct Case {
        const char* name;
        uint32_t declaredLength;
        uint16_t items;
        char magic1;
        int expectedErrno;
    };
    const Case cases[] = {
        {"length 0xFFFFFFFF", 0xFFFFFFFFu, 0, 'X', EMSGSIZE},
        {"length above the limit", DXMP_MAX_FRAME_LEN + 1, 0, 'X', EMSGSIZE},
        {"too many items", 1000, DXMP_MAX_ITEMS + 1, 'X', EPROTO},
        {"bad magic", 100, 0, 'Z', EPROTO},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SocketPair pair;
        uint8_t header[DXMP_FIXED_HEADER_LEN] = {'D', static_cast<uint8_t>(c.magic1)};
        for (int i = 0; i < 4; ++i) {
            header[DXMP_HDR_FRAME_LEN + i] = static_cast<uint8_t>(c.declaredLength >> (8 * i));
        }
        header[DXMP_HDR_ITEM_COUNT] = static_cast<uint8_t>(c.items);
        header[DXMP_HDR_ITEM_COUNT + 1] = static_cast<uint8_t>(c.items >> 8);
        ASSERT_TRUE(WriteAll(pair.first, header, sizeof(header)));
        ASSERT_TRUE(WriteAll(pair.first, reinterpret_cast<const uint8_t*>("tail"), 4));
        // A reader that waited for the declared bytes fails with EAGAIN instead of hanging the suite.
        struct timeval limit = {2, 0};
        ASSERT_EQ(0, setsockopt(pair.second, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)));
        MessagePtr msg = NewMessage();
        errno = 0;
        EXPECT_EQ(-1, dxmp_message_recvfd(msg.get(), pair.second));
        EXPECT_EQ(c.expectedErrno, errno);
        char tail[8] = {};
        EXPECT_EQ(4, recv(pair.second, tail, sizeof(tail), MSG_DONTWAIT));
        EXPECT_STREQ("tail", tail);
    }
}

TEST(DxmpFd, SendToAClosedPeerFailsWithoutKillingTheProcess) {
    SocketPair pair;
    pair.CloseSecond();
    MessagePtr msg = SampleReply();
    errno = 0;
    EXPECT_EQ(-1, dxmp_message_sendfd(msg.get(), pair.first));
    EXPECT_EQ(EPIPE, errno);
}

TEST(DxmpFd, BadDescriptorOrMessageFails) {
    MessagePtr msg = SampleReply();
    errno = 0;
    EXPECT_EQ(-1, dxmp_message_sendfd(msg.get(), -1));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(-1, dxmp_message_recvfd(msg.get(), -1));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(-1, dxmp_message_sendfd(nullptr, 1));
    EXPECT_EQ(-1, dxmp_message_recvfd(nullptr, 0));
}

}  // namespace
