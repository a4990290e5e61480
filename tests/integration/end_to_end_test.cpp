// The kit end to end: the real module in the access server, the camera emulator behind it (service
// file system at /mnt/srvfs in this test's private mount namespace, command channel, SQLite state),
// and HTTP in front. Each test starts both daemons with fresh files; a restart keeps the database.
#include <dirent.h>
#include <signal.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "answer_log.h"
#include "daemons.h"
#include "http_client.h"
#include "json_view.h"
#include "test_env.h"

namespace vks_test {
namespace {

const std::string kApi = "/api/";
const std::string kQueryAll = "MultiTaskAppHistoryRecords?DatabaseType=0&EndTime=2024-05-01T23:59:59";

class EndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        ASSERT_TRUE(InPrivateMountNamespace(&why)) << why;
        files_ = EmulatorFilesIn(dir_);
        StartEmulatorOrFail();
        std::string err;
        ASSERT_TRUE(StartAccessServer(&server_, LibraryPath("libvksapiMultiTaskApp.so"),
                                      {"--cmd-socket", files_.cmdSocket, "--oplog", dir_.File("oplog.txt")},
                                      dir_.File("server.out"), &port_, &err))
            << err;
    }
    void TearDown() override {
        if (server_.Running()) {
            EXPECT_EQ(server_.Stop(SIGTERM, 20000), 0) << server_.Output();
        }
        if (emulator_.Running()) {
            EXPECT_EQ(emulator_.Stop(SIGTERM, 20000), 0) << emulator_.Output();
        }
    }
    void StartEmulatorOrFail() {
        std::string err;
        ASSERT_TRUE(StartEmulator(&emulator_, files_, {}, &err)) << err;
    }
    void RestartEmulator() {
        ASSERT_EQ(emulator_.Stop(SIGTERM, 20000), 0) << emulator_.Output();
        StartEmulatorOrFail();
    }
    HttpResponse Call(const std::string& method, const std::string& target, const std::string& body = "") {
        HttpResponse response = HttpRequest(port_, method, kApi + target, body);
        LogAnswer(method, kApi + target, response);
        return response;
    }
    int ResultFiles() const {
        DIR* d = opendir(files_.resultDir.c_str());
        int n = 0;
        while (d != nullptr && readdir(d) != nullptr) {
            ++n;
        }
        if (d != nullptr) {
            closedir(d);
        }
        return n - 2;  // "." and ".."
    }

    ScratchDir dir_;
    EmulatorFiles files_;
    ChildProcess emulator_;
    ChildProcess server_;
    uint16_t port_ = 0;
};

TEST_F(EndToEnd, BothTaskModeCountsAreServed) {
    // The emulator's demo counts, byte for byte as the module writes them.
    const struct {
        const char* resource;
        const char* body;
    } cases[] = {
        {"MultiTaskAppTaskModesAvailableList",
         "{\"faceDetection\": 4, \"vhdDetection\": 2, \"vhdFaceMode\": 1}"},
        {"MultiTaskAppTaskModesCapacity", "{\"faceDetect\": 8, \"vhdDetect\": 4, \"vhdFaceDetect\": 2}"},
    };
    for (const auto& c : cases) {
        HttpResponse r = Call("GET", c.resource);
        EXPECT_EQ(r.status, 200) << c.resource;
        EXPECT_EQ(r.body, c.body) << c.resource;
    }
}

TEST_F(EndToEnd, PopUpSettingsAreStoredAndSurviveARestart) {
    for (int black : {1, 0}) {
        std::string put = "{\"blackPopUp\": " + std::to_string(black) +
                          ", \"whitePopUp\": " + std::to_string(1 - black) + "}";
        ASSERT_EQ(Call("PUT", "MultiTaskAppDisplayRecogPopUps", put).status, 200) << put;
        JsonView got(Call("GET", "MultiTaskAppDisplayRecogPopUps").body);
        EXPECT_EQ(got.Int({"blackPopUp"}), black);
        EXPECT_EQ(got.Int({"whitePopUp"}), 1 - black);
    }
    RestartEmulator();
    JsonView got(Call("GET", "MultiTaskAppDisplayRecogPopUps").body);
    EXPECT_EQ(got.Int({"blackPopUp"}), 0);
    EXPECT_EQ(got.Int({"whitePopUp"}), 1);
}

TEST_F(EndToEnd, ABadBodyAnswers400AndChangesNothing) {
    ASSERT_EQ(Call("PUT", "MultiTaskAppDisplayRecogPopUps", "{\"blackPopUp\": true}").status, 200);
    ASSERT_EQ(Call("PUT", "MultiTaskAppHistory?ChannelId=101", "{\"enableRecord\": 0}").status, 200);
    const std::pair<const char*, const char*> bad[] = {
        {"MultiTaskAppDisplayRecogPopUps", "{\"whitePopUp\": \"1\"}"},
        {"MultiTaskAppDisplayRecogPopUps", "not json"},
        {"MultiTaskAppHistory?ChannelId=101", "{\"channelId\": \"5\"}"},
        {"MultiTaskAppHistory?ChannelId=101", "[1"},
    };
    for (const auto& b : bad) {
        EXPECT_EQ(Call("PUT", b.first, b.second).status, 400) << b.first << " " << b.second;
    }
    JsonView popUps(Call("GET", "MultiTaskAppDisplayRecogPopUps").body);
    EXPECT_EQ(popUps.Int({"blackPopUp"}), 1);
    EXPECT_EQ(popUps.Int({"whitePopUp"}), 0);
    JsonView history(Call("GET", "MultiTaskAppHistory?ChannelId=101").body);
    EXPECT_EQ(history.Int({"enableRecord"}), 0);
}

TEST_F(EndToEnd, HistorySwitchAndDisplayFlagsSurviveARestart) {
    ASSERT_EQ(Call("PUT", "MultiTaskAppHistory?ChannelId=101", "{\"enableRecord\": false}").status, 200);
    ASSERT_EQ(Call("PUT", "MultiTaskAppDisplayRecogInfos", "{\"name\": false}").status, 200);
    for (bool restarted : {false, true}) {
        if (restarted) {
            RestartEmulator();
        }
        JsonView history(Call("GET", "MultiTaskAppHistory?ChannelId=101").body);
        EXPECT_EQ(history.Int({"channelId"}), 101) << restarted;
        EXPECT_EQ(history.Int({"enableRecord"}), 0) << restarted;
        EXPECT_EQ(JsonView(Call("GET", "MultiTaskAppHistory?ChannelId=102").body).Int({"enableRecord"}), 1)
            << restarted;  // stored per channel
        JsonView infos(Call("GET", "MultiTaskAppDisplayRecogInfos").body);
        EXPECT_EQ(infos.Int({"name"}), 0) << restarted;
        EXPECT_EQ(infos.Int({"matchRate"}), 1) << restarted;  // untouched flags keep their value
        EXPECT_EQ(infos.Int({"whiteMatchPic"}), 1) << restarted;
    }
}

TEST_F(EndToEnd, HistoryRecordsPageAndDeleteWithoutLeavingResultFiles) {
    HttpResponse first = Call("GET", kQueryAll + "&StartIndex=0&FindNum=5");
    ASSERT_EQ(first.status, 200) << first.body;
    JsonView page1(first.body);
    EXPECT_EQ(page1.Int({"TotalNum"}), 24) << first.body;
    EXPECT_EQ(page1.Length({"Records"}), 5u);
    EXPECT_EQ(page1.Str({"Records", "0", "SnapTime"}), "2024-05-01T08:00:00");
    JsonView page2(Call("GET", kQueryAll + "&StartIndex=5&FindNum=5").body);
    EXPECT_EQ(page2.Str({"Records", "0", "SnapTime"}), "2024-05-01T10:30:00");
    JsonView last(Call("GET", kQueryAll + "&StartIndex=20&FindNum=10").body);
    EXPECT_EQ(last.Int({"ReturnNum"}), 4);
    EXPECT_EQ(last.Int({"StartIndex"}), 20);
    // Channel 102 and database type 2: records 6, 12, 18 and 24.
    JsonView channel(
        Call("GET", kQueryAll.substr(0, kQueryAll.find('?')) +
                        "?DatabaseType=2&ChannelId=102&EndTime=2024-05-01T23:59:59&StartIndex=0&FindNum=100")
            .body);
    EXPECT_EQ(channel.Int({"TotalNum"}), 4);

    EXPECT_EQ(
        Call("DELETE", "MultiTaskAppHistoryRecords?StartTime=2024-05-01T08:00:00&EndTime=2024-05-01T09:59:59")
            .status,
        200);
    RestartEmulator();  // neither the deletion nor the first seeding is undone by a restart
    JsonView after(Call("GET", kQueryAll + "&StartIndex=0&FindNum=5").body);
    EXPECT_EQ(after.Int({"TotalNum"}), 20);
    EXPECT_EQ(after.Str({"Records", "0", "SnapTime"}), "2024-05-01T10:00:00");
    EXPECT_EQ(Call("DELETE", "MultiTaskAppHistoryRecords").status, 200);  // without both times: all
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_EQ(JsonView(Call("GET", kQueryAll + "&StartIndex=0&FindNum=1").body).Int({"TotalNum"}), 0)
            << pass;
        RestartEmulator();  // an empty table is not seeded again
    }

    EXPECT_EQ(Call("GET", "MultiTaskAppHistoryRecords?StartIndex=0&FindNum=5&DatabaseType=0").status, 400);
    EXPECT_EQ(ResultFiles(), 0);
}

// A time that is named but cannot be read (too long for its field, empty, badly escaped) never reads
// as an absent one: a deletion with it deletes nothing (an absent time deletes every record) and a
// query keeps its bounds (an absent start is no lower bound). The service refuses the stand-in text.
TEST_F(EndToEnd, UnreadableTimesNeverWidenADeletionOrAQuery) {
    // Answers not logged for the document check: the deletion's 400 is the service's own result.
    auto call = [this](const std::string& method, const std::string& target) {
        return HttpRequest(port_, method, kApi + target);
    };
    auto total = [&] {
        return JsonView(call("GET", kQueryAll + "&StartIndex=0&FindNum=1").body).Int({"TotalNum"});
    };
    const std::string overLong = "2024-05-01T08:00:00.000000%2B08:00";  // 32 bytes decoded
    const std::string end = "EndTime=2024-05-01T08:30:00";
    ASSERT_EQ(total(), 24);
    const std::string deletions[] = {"StartTime=" + overLong + "&" + end,
                                     "StartTime=2024-05-01T08:00:00&EndTime=" + overLong,
                                     "StartTime=&" + end,
                                     "StartTime&" + end,
                                     "StartTime=%ZZ&" + end,
                                     "StartTime=" + overLong + "&StartTime=2024-05-01T08:00:00&" + end};
    for (const std::string& query : deletions) {
        EXPECT_EQ(call("DELETE", "MultiTaskAppHistoryRecords?" + query).status, 400) << query;
        EXPECT_EQ(total(), 24) << query;
    }
    std::ifstream file(dir_.File("oplog.txt"));
    std::string oplog((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_NE(
        oplog.find("Delete History Record fail. DeleteType: 3, StartTime: ?, EndTime: 2024-05-01T08:30:00"),
        std::string::npos)
        << oplog;
    // The query: a start from 10:00 on leaves 20 of 24; an unreadable start is refused, not dropped.
    const std::string page = kQueryAll + "&StartIndex=0&FindNum=100&StartTime=";
    EXPECT_EQ(JsonView(call("GET", page + "2024-05-01T10:00:00").body).Int({"TotalNum"}), 20);
    for (const std::string& start : {overLong, std::string("2024-05-01T10:00:00.5"), std::string("")}) {
        HttpResponse r = call("GET", page + start);
        EXPECT_EQ(r.status, 400) << start << " " << r.body;
        EXPECT_EQ(r.body.find("TotalNum"), std::string::npos) << start;
    }
    HttpResponse longEnd =
        call("GET", "MultiTaskAppHistoryRecords?DatabaseType=0&StartIndex=0&FindNum=1&EndTime=" + overLong);
    EXPECT_EQ(longEnd.status, 400) << longEnd.body;
}

// No channel (or channel 0) goes the asynchronous way with the request block, a channel the
// synchronous way; both select by channel and group from the demo tasks.
TEST_F(EndToEnd, EnableListAnswersBothWays) {
    const struct {
        const char* query;
        std::vector<long long> channels;
    } cases[] = {{"", {101, 102, 201, 202}},
                 {"?ChannelId=201", {201}},
                 {"?ChannelGroup=2", {201, 202}},
                 {"?ChannelId=101&ChannelGroup=2", {}},
                 {"?ChannelId=999", {}}};
    for (const auto& c : cases) {
        HttpResponse r = Call("GET", std::string("MultiTaskAppTaskModesEnableList") + c.query);
        ASSERT_EQ(r.status, 200) << r.body;
        JsonView list(r.body);
        ASSERT_EQ(list.Int({"taskNum"}), static_cast<long long>(c.channels.size())) << c.query << r.body;
        for (size_t i = 0; i < c.channels.size(); ++i) {
            EXPECT_EQ(list.Int({"taskEnable", std::to_string(i), "channelId"}), c.channels[i]) << r.body;
        }
    }
    JsonView first(Call("GET", "MultiTaskAppTaskModesEnableList?ChannelId=101").body);
    for (const char* flag : {"faceDetection", "faceAttribute", "faceRecognition", "vehAttribute"}) {
        EXPECT_EQ(first.Int({"taskEnable", "0", flag}), std::string(flag) == "vehAttribute" ? 0 : 1) << flag;
    }
}

TEST_F(EndToEnd, AStoppedServiceAnswers5xx) {
    ASSERT_EQ(emulator_.Stop(SIGTERM, 20000), 0) << emulator_.Output();
    EXPECT_EQ(Call("GET", "MultiTaskAppTaskModesEnableList").status, 503);  // no service file
    EXPECT_EQ(Call("GET", "MultiTaskAppTaskModesCapacity").status, 500);
    EXPECT_GE(Call("GET", "MultiTaskAppHistory?ChannelId=101").status, 500);  // no command channel
}

}  // namespace
}  // namespace vks_test
