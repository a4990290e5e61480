// The emulator's command server over its SQLite file, driven through the module's handlers. Paging,
// the channel filter, range and full deletion across restarts and per-channel settings are checked
// end to end (tests/integration/end_to_end_test.cpp).
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <sys/stat.h>

#include <chrono>
#include <regex>

#include "cmd_server.h"
#include "cmd_test_util.h"
#include "log_capture.h"
#include "vks_multi_task_records.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"

namespace {

class EmulatorTest : public ::testing::Test {
protected:
    void SetUp() override {
        opts.socketPath = dir.File("cmd.sock");
        opts.dbPath = dir.File("state.db");
        opts.resultDir = results.Path();
        Start();
    }
    void TearDown() override { cmdchan::StopServer(std::move(server)); }
    void Start() {
        std::string error;
        server = cmdchan::StartServer(opts, &error);
        ASSERT_TRUE(server) << error;
    }
    void Restart() {
        cmdchan::StopServer(std::move(server));
        Start();
    }
    // Runs a history query; the parsed body, or null when the query failed (result in *result).
    json_object* Query(const std::string& query, int* result = nullptr) {
        cmdtest::Request rq("/api/MultiTaskAppHistoryRecords?" + query, opts.socketPath);
        int r = RunGetMultiTaskAppHistoryRecords(&rq.header, &rq.client, &rq.ctIn);
        if (result != nullptr) {
            *result = r;
        }
        return r == 0 ? json_tokener_parse(static_cast<char*>(rq.ctIn.runOut)) : nullptr;
    }

    cmdtest::TempDir dir;
    cmdtest::TempDir results;
    cmdchan::ServerOptions opts;
    std::unique_ptr<cmdchan::Server> server;
    vks_test::LogCapture log;
};

TEST_F(EmulatorTest, InvalidTimesAreRefusedWithFour) {
    int result = 0;
    EXPECT_EQ(nullptr, Query("StartIndex=0&FindNum=1&EndTime=yesterday&DatabaseType=0", &result));
    EXPECT_EQ(4, result);
    EXPECT_TRUE(log.Has(3, "[ZKAPI]:RestSendSynUnixMsg Result[4] is not match 0"));
}

struct FaultCase {
    const char* name;
    const char* option;
    const char* value;
    int expected;
    const char* line;
};

TEST_F(EmulatorTest, ConfiguredFaultsReachTheModule) {
    const FaultCase cases[] = {
        {"result", "--cmd-fault-result", "7", 7, "[ZKAPI]:RestSendSynUnixMsg Result[7] is not match 0"},
        {"bad path", "cmd-fault-bad-path", "", 1, "[ZKAPI]:get face list path failed!"},
        {"shrinking file", "cmd-fault-shrink", "1", 1, "[ZKAPI]:GetFileContent Fail!"},
        {"no reply", "cmd-fault-no-reply", "true", 1, "[ZKAPI]:Send SynUnixMsg for Getting cmd[7032] failed"},
    };
    for (const FaultCase& c : cases) {
        SCOPED_TRACE(c.name);
        opts.faults = cmdchan::FaultOptions();
        ASSERT_TRUE(cmdchan::ParseOption("cmd-fault-command", "7032", &opts));
        ASSERT_TRUE(cmdchan::ParseOption(c.option, c.value, &opts));
        Restart();
        log.Clear();
        cmdtest::Request rq(
            "/api/MultiTaskAppHistoryRecords?StartIndex=0&FindNum=3&EndTime=2024-05-01T23:59:59"
            "&DatabaseType=0",
            opts.socketPath, 300);
        EXPECT_EQ(c.expected, RunGetMultiTaskAppHistoryRecords(&rq.header, &rq.client, &rq.ctIn));
        EXPECT_TRUE(log.Has(3, c.line));
        // Faults of one command leave the others alone.
        cmdtest::Request sw("/api/MultiTaskAppHistory?ChannelId=5", opts.socketPath, 300);
        EXPECT_EQ(0, RunGetMultiTaskAppHistory(&sw.header, &sw.client, &sw.ctIn));
    }
    ASSERT_EQ(1u, results.Entries().size()) << "the shrunk file stays for inspection";
    // Its name cannot be guessed ahead, and only the emulator's user may read it.
    std::string name = results.Entries()[0];
    EXPECT_TRUE(std::regex_match(name, std::regex("history-[0-9a-f]{32}\\.json"))) << name;
    struct stat st;
    ASSERT_EQ(0, stat(results.File(name).c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777);
}

TEST_F(EmulatorTest, OptionsAreCheckedAndForeignOnesLeftAlone) {
    cmdchan::ServerOptions o;
    EXPECT_TRUE(cmdchan::ParseOption("--cmd-socket", "/tmp/x.sock", &o));
    EXPECT_EQ("/tmp/x.sock", o.socketPath);
    EXPECT_FALSE(cmdchan::ParseOption("cmd-fault-result", "5x", &o));
    EXPECT_FALSE(cmdchan::ParseOption("cmd-fault-shrink", "maybe", &o));
    EXPECT_FALSE(cmdchan::ParseOption("srvfs-mount", "/mnt/srvfs", &o));
    EXPECT_NE(nullptr, strstr(cmdchan::OptionsHelp().c_str(), "--cmd-fault-no-reply"));
    o.resultDir = "/tmp/" + std::string(120, 'd');
    std::string error;
    EXPECT_EQ(nullptr, cmdchan::StartServer(o, &error));
    EXPECT_NE(std::string::npos, error.find("result directory"));
}

TEST_F(EmulatorTest, AClientStalledMidFrameDelaysNoOther) {
    int stalled = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", opts.socketPath.c_str());
    ASSERT_EQ(0, connect(stalled, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)));
    ASSERT_EQ(1, write(stalled, "V", 1));  // the first byte of a frame, and no more
    cmdtest::Request rq("/api/MultiTaskAppHistory?ChannelId=101", opts.socketPath);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, RunGetMultiTaskAppHistory(&rq.header, &rq.client, &rq.ctIn));
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    printf("history GET next to a stalled client: %lld ms\n", static_cast<long long>(ms.count()));
    EXPECT_LT(ms.count(), 100) << "served behind the stalled client";
    close(stalled);
}

TEST_F(EmulatorTest, AQueryWithTheWrongOperationGetsAnErrorTheClientAccepts) {
    tagUNIX_SOCKET_S* sock = UnixSocketOpen(opts.socketPath.c_str(), 2000);
    vwCmdBody body{};
    void* out = nullptr;
    EXPECT_EQ(4, GetCommon(nullptr, sock, VW_CMD_GET_HISTORY_RECORDS, &body, &out, 0, "/tmp/A"));
    EXPECT_EQ(4, SetCommon(nullptr, &body, sizeof(body), sock, VW_CMD_GET_HISTORY_RECORDS, 0, "/tmp/A"));
    UnixSocketClose(sock);
}

}  // namespace
