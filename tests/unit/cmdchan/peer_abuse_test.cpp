// The command channel against peers that misbehave: records shorter than the command's, a client
// that stalls mid-frame next to a busy one, and a query sent with the wrong operation.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>

#include "cmd_server.h"
#include "cmd_test_util.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"

namespace {

TEST(CmdPeerAbuse, RecordsShorterThanTheCommandsAreRefusedWithEighteen) {
    cmdtest::TempDir dir;
    cmdtest::ScriptedPeer peer(dir.File("cmd.sock"));
    const struct {
        VW_CMD_TYPE cmd;
        size_t length;
        int expected;
    } cases[] = {
        {VW_CMD_HISTORY_SWITCH, 1, 18},      {VW_CMD_HISTORY_SWITCH, 15, 18},
        {VW_CMD_DISPLAY_RECOG_INFOS, 1, 18}, {VW_CMD_DISPLAY_RECOG_INFOS, 63, 18},
        {VW_CMD_HISTORY_SWITCH, 16, 0},      {VW_CMD_DISPLAY_RECOG_INFOS, 64, 0},
    };
    for (const auto& c : cases) {
        peer.SetScript([&c](const cmdframe::Request&, cmdframe::Reply* reply) {
            reply->payload.assign(c.length, 0x5A);
            return true;
        });
        tagUNIX_SOCKET_S* sock = UnixSocketOpen(dir.File("cmd.sock").c_str(), 2000);
        vwCmdBody body{};
        int sentinel = 0;
        void* out = &sentinel;
        EXPECT_EQ(c.expected, GetCommon(nullptr, sock, c.cmd, &body, &out, 0, "/tmp/A")) << c.length;
        if (c.expected == 0) {
            EXPECT_EQ(0, memcmp(out, std::string(c.length, 0x5A).data(), c.length));
            free(out);
        } else {
            EXPECT_EQ(&sentinel, out) << c.length;
        }
        UnixSocketClose(sock);
    }
    // Through the module: the history switch's GET never formats a short block.
    peer.SetScript([](const cmdframe::Request&, cmdframe::Reply* reply) {
        reply->payload.assign(1, 1);
        return true;
    });
    cmdtest::Request rq("/api/MultiTaskAppHistory?ChannelId=101", dir.File("cmd.sock"));
    EXPECT_EQ(18, RunGetMultiTaskAppHistory(&rq.header, &rq.client, &rq.ctIn));
    EXPECT_EQ(nullptr, rq.ctIn.runOut);
}

class EmulatorPeer : public ::testing::Test {
protected:
    void SetUp() override {
        opts.socketPath = dir.File("cmd.sock");
        opts.dbPath = dir.File("state.db");
        opts.resultDir = dir.File("results");
        std::string error;
        server = cmdchan::StartServer(opts, &error);
        ASSERT_TRUE(server) << error;
    }
    void TearDown() override { cmdchan::StopServer(std::move(server)); }

    cmdtest::TempDir dir;
    cmdchan::ServerOptions opts;
    std::unique_ptr<cmdchan::Server> server;
};

TEST_F(EmulatorPeer, AClientStalledMidFrameDelaysNoOther) {
    int stalled = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", opts.socketPath.c_str());
    ASSERT_EQ(0, connect(stalled, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)));
    ASSERT_EQ(1, write(stalled, "V", 1));
    for (int i = 0; i < 3; ++i) {
        cmdtest::Request rq("/api/MultiTaskAppHistory?ChannelId=101", opts.socketPath);
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(0, RunGetMultiTaskAppHistory(&rq.header, &rq.client, &rq.ctIn));
        auto ms =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
        EXPECT_LT(ms.count(), 100) << "served behind the stalled client";
        printf("history GET next to a stalled client: %lld ms\n", static_cast<long long>(ms.count()));
    }
    close(stalled);
}

TEST_F(EmulatorPeer, AQueryWithTheWrongOperationGetsAnErrorTheClientAccepts) {
    tagUNIX_SOCKET_S* sock = UnixSocketOpen(opts.socketPath.c_str(), 2000);
    vwCmdBody body{};
    void* out = nullptr;
    EXPECT_EQ(4, GetCommon(nullptr, sock, VW_CMD_GET_HISTORY_RECORDS, &body, &out, 0, "/tmp/A"));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(4, SetCommon(nullptr, &body, sizeof(body), sock, VW_CMD_GET_HISTORY_RECORDS, 0, "/tmp/A"));
    UnixSocketClose(sock);
}

}  // namespace
