// The host's command-channel client against peers on a real unix socket: the bytes it sends, the
// replies it accepts or refuses, its time-out and its reconnection.
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "cmd_test_util.h"
#include "vks_multi_task_records.h"

namespace {

using cmdtest::Bytes;

// A peer that accepts one connection and runs its script on it, byte by byte.
class RawPeer {
public:
    explicit RawPeer(const std::string& path) {
        listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        struct sockaddr_un addr;
        memset(&addr, 0, sizeof(addr));
        addr.sun_family = AF_UNIX;
        snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
        EXPECT_EQ(0, bind(listenFd_, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)));
        EXPECT_EQ(0, listen(listenFd_, 4));
    }
    ~RawPeer() {
        if (thread_.joinable()) {
            thread_.join();
        }
        close(listenFd_);
    }
    void Run(std::function<void(int fd)> script) {
        thread_ = std::thread([this, script] {
            int fd = accept(listenFd_, nullptr, nullptr);
            script(fd);
            close(fd);
        });
    }

private:
    int listenFd_ = -1;
    std::thread thread_;
};

std::vector<unsigned char> ReadN(int fd, size_t n) {
    std::vector<unsigned char> data(n);
    EXPECT_EQ(cmdframe::kIoOk, cmdframe::ReadAll(fd, data.data(), n, cmdframe::DeadlineAfter(2000)));
    return data;
}

void WriteRaw(int fd, const std::vector<unsigned char>& bytes) {
    EXPECT_EQ(cmdframe::kIoOk,
              cmdframe::WriteAll(fd, bytes.data(), bytes.size(), cmdframe::DeadlineAfter(2000)));
}

// A reply header as a peer would write it, little-endian.
std::vector<unsigned char> ReplyHeader(uint16_t op, int32_t result, uint32_t length) {
    std::vector<unsigned char> h = {'V', 'K', 'C', 'R', static_cast<unsigned char>(op), 0, 0, 0};
    for (uint32_t v : {static_cast<uint32_t>(result), length}) {
        for (int i = 0; i < 4; ++i) {
            h.push_back(static_cast<unsigned char>(v >> (8 * i)));
        }
    }
    return h;
}

class ClientTest : public ::testing::Test {
protected:
    cmdtest::TempDir dir;
    std::string path = dir.File("cmd.sock");
};

TEST_F(ClientTest, GetCommonSendsFramedBodyAndKeepsTheRecordReadBack) {
    RawPeer peer(path);
    std::vector<unsigned char> header;
    std::vector<unsigned char> body;
    HistoryRecordSwitch record = {77, ENABLE_TYPE_ON};
    peer.Run([&](int fd) {
        header = ReadN(fd, 16);
        body = ReadN(fd, VW_CMD_BODY_LEN);
        std::vector<unsigned char> reply = ReplyHeader(cmdframe::kOpGet, 0, sizeof(record));
        std::vector<unsigned char> bytes = Bytes(record);
        reply.insert(reply.end(), bytes.begin(), bytes.end());
        WriteRaw(fd, reply);
    });
    tagUNIX_SOCKET_S* sock = UnixSocketOpen(path.c_str(), 2000);
    vwCmdBody cmd{};
    cmd.data[0] = 101;
    cmd.data[VW_CMD_BODY_LEN - 1] = 0xEE;
    void* out = nullptr;
    ASSERT_EQ(0, GetCommon(nullptr, sock, VW_CMD_HISTORY_SWITCH, &cmd, &out, 0, "/tmp/A"));
    UnixSocketClose(sock);
    // magic "VKC1", op 1, message type 0, command 22025 (0x5609), length 21208 (0x52D8)
    const std::vector<unsigned char> expected = {'V',  'K',  'C', '1', 1,    0,    0, 0,
                                                 0x09, 0x56, 0,   0,   0xD8, 0x52, 0, 0};
    EXPECT_EQ(expected, header);
    EXPECT_EQ(0, memcmp(body.data(), cmd.data, VW_CMD_BODY_LEN));
    ASSERT_NE(nullptr, out);
    EXPECT_EQ(0, memcmp(out, &record, sizeof(record)));
    free(out);
}

TEST_F(ClientTest, SetCommonAndMessageCarryTheirOperationAndLength) {
    RawPeer peer(path);
    std::vector<unsigned char> setHeader;
    std::vector<unsigned char> msgHeader;
    MSG_DATA sent{};
    sent.recvMsgCode = 7032;
    sent.result = 0;
    strcpy(sent.szPath, "/tmp/x.json");
    peer.Run([&](int fd) {
        setHeader = ReadN(fd, 16);
        ReadN(fd, 16);
        WriteRaw(fd, ReplyHeader(cmdframe::kOpSet, 0, 0));
        msgHeader = ReadN(fd, 16);
        ReadN(fd, VW_CMD_BODY_LEN);
        std::vector<unsigned char> reply = ReplyHeader(cmdframe::kOpMsg, 0, sizeof(sent));
        std::vector<unsigned char> bytes = Bytes(sent);
        reply.insert(reply.end(), bytes.begin(), bytes.end());
        WriteRaw(fd, reply);
    });
    tagUNIX_SOCKET_S* sock = UnixSocketOpen(path.c_str(), 2000);
    HistoryRecordSwitch record = {101, ENABLE_TYPE_OFF};
    EXPECT_EQ(0, SetCommon(nullptr, &record, sizeof(record), sock, VW_CMD_HISTORY_SWITCH, 0, "/tmp/A"));
    vwCmdBody body{};
    MSG_DATA reply{};
    EXPECT_EQ(
        0, RestSendSynUnixMsg("/tmp/A", VW_MSG_REQUEST, VW_CMD_GET_HISTORY_RECORDS, &body, sock, &reply, 0));
    UnixSocketClose(sock);
    const std::vector<unsigned char> expectSet = {'V',  'K',  'C', '1', 2,  0, 0, 0,
                                                  0x09, 0x56, 0,   0,   16, 0, 0, 0};
    const std::vector<unsigned char> expectMsg = {'V',  'K',  'C', '1', 3,    0,    0, 0,
                                                  0x78, 0x1B, 0,   0,   0xD8, 0x52, 0, 0};
    EXPECT_EQ(expectSet, setHeader);
    EXPECT_EQ(expectMsg, msgHeader);
    EXPECT_EQ(0, memcmp(&reply, &sent, sizeof(sent)));
}

// Every failure leaves the caller's slot as it was.
struct RefusedReply {
    const char* name;
    std::vector<unsigned char> reply;
    int expected;
};

TEST_F(ClientTest, GetCommonLeavesOutUntouchedOnEveryFailure) {
    std::vector<unsigned char> tooLong = ReplyHeader(cmdframe::kOpGet, 0, VW_CMD_BODY_LEN + 1);
    tooLong.resize(tooLong.size() + VW_CMD_BODY_LEN + 1, 0);
    std::vector<unsigned char> badMagic = ReplyHeader(cmdframe::kOpGet, 0, 0);
    badMagic[3] = 'X';
    const RefusedReply cases[] = {
        {"oversize record refused", tooLong, -1},
        {"peer result passed through", ReplyHeader(cmdframe::kOpGet, 5, 0), 5},
        {"success without a record", ReplyHeader(cmdframe::kOpGet, 0, 0), -1},
        {"wrong magic", badMagic, -1},
        {"reply for another operation", ReplyHeader(cmdframe::kOpSet, 0, 0), -1},
        {"peer closes without a reply", {}, -1},
    };
    for (const RefusedReply& c : cases) {
        SCOPED_TRACE(c.name);
        unlink(path.c_str());
        RawPeer peer(path);
        peer.Run([&](int fd) {
            ReadN(fd, 16 + VW_CMD_BODY_LEN);
            if (!c.reply.empty()) {
                WriteRaw(fd, c.reply);
            }
        });
        tagUNIX_SOCKET_S* sock = UnixSocketOpen(path.c_str(), 2000);
        vwCmdBody body{};
        int sentinel = 0;
        void* out = &sentinel;
        EXPECT_EQ(c.expected, GetCommon(nullptr, sock, VW_CMD_DISPLAY_RECOG_INFOS, &body, &out, 0, "/tmp/A"));
        EXPECT_EQ(&sentinel, out);
        UnixSocketClose(sock);
    }
}

TEST_F(ClientTest, OversizeMessageReplyIsRefused) {
    RawPeer peer(path);
    peer.Run([&](int fd) {
        ReadN(fd, 16 + VW_CMD_BODY_LEN);
        std::vector<unsigned char> reply = ReplyHeader(cmdframe::kOpMsg, 0, VW_MSG_DATA_LEN + 1);
        reply.resize(reply.size() + VW_MSG_DATA_LEN + 1, 0x41);
        WriteRaw(fd, reply);
    });
    tagUNIX_SOCKET_S* sock = UnixSocketOpen(path.c_str(), 2000);
    vwCmdBody body{};
    MSG_DATA reply{};
    EXPECT_EQ(
        -1, RestSendSynUnixMsg("/tmp/A", VW_MSG_REQUEST, VW_CMD_GET_HISTORY_RECORDS, &body, sock, &reply, 0));
    EXPECT_EQ(0, reply.szPath[0]);
    UnixSocketClose(sock);
}

TEST_F(ClientTest, SilentPeerFailsTheCallWithinTheTimeout) {
    RawPeer peer(path);
    peer.Run([&](int fd) {
        ReadN(fd, 16 + VW_CMD_BODY_LEN);
        char byte;
        ssize_t n = recv(fd, &byte, 1, 0);  // until the client gives up and closes
        EXPECT_EQ(0, n);
    });
    tagUNIX_SOCKET_S* sock = UnixSocketOpen(path.c_str(), 300);
    vwCmdBody body{};
    void* out = nullptr;
    int64_t start = cmdframe::NowMs();
    EXPECT_EQ(-1, GetCommon(nullptr, sock, VW_CMD_HISTORY_SWITCH, &body, &out, 0, "/tmp/A"));
    int64_t elapsed = cmdframe::NowMs() - start;
    EXPECT_GE(elapsed, 290);
    EXPECT_LT(elapsed, 5000);
    EXPECT_EQ(nullptr, out);
    UnixSocketClose(sock);
}

TEST_F(ClientTest, NoPeerFailsAndNullArgumentsAreRefused) {
    tagUNIX_SOCKET_S* sock = UnixSocketOpen(path.c_str(), 300);
    vwCmdBody body{};
    void* out = nullptr;
    EXPECT_EQ(-1, GetCommon(nullptr, sock, VW_CMD_HISTORY_SWITCH, &body, &out, 0, "/tmp/A"));
    EXPECT_EQ(1, GetCommon(nullptr, nullptr, VW_CMD_HISTORY_SWITCH, &body, &out, 0, "/tmp/A"));
    EXPECT_EQ(1, GetCommon(nullptr, sock, VW_CMD_HISTORY_SWITCH, nullptr, &out, 0, "/tmp/A"));
    EXPECT_EQ(1, SetCommon(nullptr, &body, VW_CMD_BODY_LEN + 1, sock, VW_CMD_HISTORY_SWITCH, 0, "/tmp/A"));
    EXPECT_EQ(nullptr, out);
    UnixSocketClose(sock);
}

TEST_F(ClientTest, ReconnectsAfterThePeerWentAway) {
    tagUNIX_SOCKET_S* sock = UnixSocketOpen(path.c_str(), 2000);
    HistoryRecordSwitch record = {101, ENABLE_TYPE_ON};
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        cmdtest::ScriptedPeer peer(path);
        peer.SetScript([](const cmdframe::Request&, cmdframe::Reply* reply) {
            reply->result = 0;
            return true;
        });
        EXPECT_EQ(0, SetCommon(nullptr, &record, sizeof(record), sock, VW_CMD_HISTORY_SWITCH, 0, "/tmp/A"));
        EXPECT_EQ(0, SetCommon(nullptr, &record, sizeof(record), sock, VW_CMD_HISTORY_SWITCH, 0, "/tmp/A"));
        EXPECT_EQ(2u, peer.Requests().size());
    }
    UnixSocketClose(sock);
}

// A user who can swap the socket's folder after the server checked it (one who owns a folder above
// it) listens there and answers every command: a history query's reply would then name any file
// for the module to read and remove. The client talks only to a peer of its own user or root.
TEST_F(ClientTest, APeerOfAnotherUserIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to act as a second user";
    }
    const uid_t kOther = 65534;
    std::string open = dir.File("open");
    ASSERT_EQ(0, mkdir(open.c_str(), 0777));
    ASSERT_EQ(0, chmod(open.c_str(), 0777));
    ASSERT_EQ(0, chmod(dir.File("").c_str(), 0755));
    std::string squatted = open + "/cmd.sock";
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    pid_t child = fork();
    if (child == 0) {
        // The other user's peer: answers one request with success, then waits for the close.
        int fd = -1;
        struct sockaddr_un addr = {};
        addr.sun_family = AF_UNIX;
        snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", squatted.c_str());
        bool ok = setresgid(kOther, kOther, kOther) == 0 && setresuid(kOther, kOther, kOther) == 0 &&
                  (fd = socket(AF_UNIX, SOCK_STREAM, 0)) >= 0 &&
                  bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) == 0 &&
                  listen(fd, 4) == 0 && write(ready[1], "1", 1) == 1;
        alarm(10);
        int conn = ok ? accept(fd, nullptr, nullptr) : -1;
        unsigned char head[16];
        std::vector<unsigned char> reply = ReplyHeader(cmdframe::kOpSet, 0, 0);
        if (conn >= 0 && read(conn, head, sizeof(head)) == static_cast<ssize_t>(sizeof(head))) {
            (void)!write(conn, reply.data(), reply.size());
            while (read(conn, head, sizeof(head)) > 0) {
            }
        }
        _exit(ok ? 0 : 1);
    }
    close(ready[1]);
    char byte = 0;
    ASSERT_EQ(1, read(ready[0], &byte, 1));
    close(ready[0]);
    tagUNIX_SOCKET_S* sock = UnixSocketOpen(squatted.c_str(), 2000);
    HistoryRecordSwitch record = {101, ENABLE_TYPE_ON};
    EXPECT_EQ(-1, SetCommon(nullptr, &record, sizeof(record), sock, VW_CMD_HISTORY_SWITCH, 0, "/tmp/A"));
    UnixSocketClose(sock);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

}  // namespace
