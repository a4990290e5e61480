// Every resource and method, on its success road and on its failure roads, through the access
// server's phase runner against scripted peers. Each request's transcript (result, HTTP status,
// body, what the analysis service and the command channel received, every debug and
// operation-log line) must equal the golden file byte for byte: any change in a text, a wire byte
// or a result shows up as a difference. VKS_UPDATE_GOLDEN=1 rewrites the file instead; review its
// diff before committing it.
#include <dlfcn.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "host_road.h"
#include "log_capture.h"
#include "module_test_util.h"
#include "status_map.h"
#include "vw_log.h"
#include "vks_multi_task_records.h"

namespace vks_test {
namespace {

struct Scenario {
    Road road;
    int serviceResult;  // the analysis service's result item
    int cmdResult;      // the command channel's result (7032: inside MSG_DATA)
    bool serviceUp;
    // The analysis service's reply shape (see HostRoad).
    uint16_t replyStatus = 200;
    uint16_t replyUri = 0;
    int resultLen = 4;
    int contentDelta = 0;
};

const Scenario kScenarios[] = {
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 0, 0, true},
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 5, 0, true},
    // Reply shapes: a failed status with and without a code, another uri, result items of 7, 8 and
    // 3 bytes, content longer, shorter than the record, and none.
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 12, 0, true, 500},
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 12, 0, true, 500, 0, 0},
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 0, 0, true, 200, 1203},
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 7, 0, true, 200, 0, 7},
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 7, 0, true, 200, 0, 8},
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 7, 0, true, 200, 0, 3},
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 3, 0, true, 200, 0, 4, 1},
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 9, 0, true, 200, 0, 4, -1},
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, 0, 0, true, 200, 0, 4, -24},
    {{"MultiTaskAppTaskModesCapacity", "GET", "", ""}, 0, 0, true},
    {{"MultiTaskAppTaskModesCapacity", "GET", "", ""}, 0, 0, false},
    {{"MultiTaskAppTaskModesEnableList", "GET", "?ChannelId=101&ChannelGroup=2", ""}, 0, 0, true},
    {{"MultiTaskAppTaskModesEnableList", "GET", "", ""}, 0, 0, true},
    {{"MultiTaskAppTaskModesEnableList", "GET", "?ChannelGroup=3", ""}, 7, 0, true},
    {{"MultiTaskAppTaskModesEnableList", "GET", "", ""}, 0, 0, false},
    // Reply shapes on the asynchronous road: content one byte longer, shorter and none, status 404,
    // another uri, result items of 8 bytes and none.
    {{"MultiTaskAppTaskModesEnableList", "GET", "", ""}, 0, 0, true, 200, 0, 4, 1},
    {{"MultiTaskAppTaskModesEnableList", "GET", "", ""}, 0, 0, true, 200, 0, 4, -1},
    {{"MultiTaskAppTaskModesEnableList", "GET", "", ""}, 7, 0, true, 200, 0, 4, -1304},
    {{"MultiTaskAppTaskModesEnableList", "GET", "", ""}, 7, 0, true, 404},
    {{"MultiTaskAppTaskModesEnableList", "GET", "", ""}, 7, 0, true, 200, 1202},
    {{"MultiTaskAppTaskModesEnableList", "GET", "", ""}, 0, 0, true, 200, 0, 8},
    {{"MultiTaskAppTaskModesEnableList", "GET", "", ""}, 0, 0, true, 200, 0, 0},
    {{"MultiTaskAppDisplayRecogPopUps", "GET", "", ""}, 0, 0, true},
    {{"MultiTaskAppDisplayRecogPopUps", "GET", "", ""}, 9, 0, true},
    {{"MultiTaskAppDisplayRecogPopUps", "GET", "", ""}, 0, 0, false},
    {{"MultiTaskAppDisplayRecogPopUps", "PUT", "", R"({"blackPopUp": true, "whitePopUp": 0})"}, 0, 0, true},
    {{"MultiTaskAppDisplayRecogPopUps", "PUT", "", R"({"whitePopUp": "1"})"}, 0, 0, true},
    {{"MultiTaskAppDisplayRecogPopUps", "PUT", "", R"({"blackPopUp": false})"}, 9, 0, true},
    {{"MultiTaskAppDisplayRecogPopUps", "PUT", "", "{}"}, 0, 0, true, 200, 0, 4, 1},
    {{"MultiTaskAppDisplayRecogPopUps", "PUT", "", "{}"}, 0, 0, true, 200, 0, 4, -1},
    {{"MultiTaskAppDisplayRecogInfos", "GET", "?ChannelId=101", ""}, 0, 0, true},
    {{"MultiTaskAppDisplayRecogInfos", "GET", "", ""}, 0, 6, true},
    {{"MultiTaskAppDisplayRecogInfos", "PUT", "?ChannelId=101", R"({"name": false, "matchRate": true})"},
     0,
     0,
     true},
    {{"MultiTaskAppDisplayRecogInfos", "PUT", "?ChannelId=101", "[1"}, 0, 0, true},
    {{"MultiTaskAppDisplayRecogInfos", "PUT", "?ChannelId=101", R"({"name": false})"}, 0, 6, true},
    {{"MultiTaskAppHistory", "GET", "?ChannelId=101", ""}, 0, 0, true},
    {{"MultiTaskAppHistory", "GET", "", ""}, 0, 3, true},
    {{"MultiTaskAppHistory", "PUT", "?ChannelId=101", R"({"enableRecord": false})"}, 0, 0, true},
    {{"MultiTaskAppHistory", "PUT", "?ChannelId=101", R"({"enableRecord": "no"})"}, 0, 0, true},
    {{"MultiTaskAppHistory", "PUT", "?ChannelId=101", R"({"enableRecord": true})"}, 0, 3, true},
    {{"MultiTaskAppHistoryRecords", "GET",
      "?StartIndex=2&FindNum=5&StartTime=2024-05-01T00:00:00&EndTime=2024-05-01T12:00:00&ChannelId=101"
      "&DatabaseType=1&FirstAttri=3&SecondAttri=4&LibId=9",
      ""},
     0,
     0,
     true},
    {{"MultiTaskAppHistoryRecords", "GET", "?StartIndex=0&FindNum=1&EndTime=e&DatabaseType=2", ""},
     0,
     0,
     true},
    {{"MultiTaskAppHistoryRecords", "GET", "?StartIndex=0&FindNum=5&EndTime=e", ""}, 0, 0, true},
    {{"MultiTaskAppHistoryRecords", "GET", "?FindNum=5&EndTime=e&DatabaseType=0", ""}, 0, 0, true},
    {{"MultiTaskAppHistoryRecords", "GET", "?StartIndex=0&EndTime=e&DatabaseType=0", ""}, 0, 0, true},
    {{"MultiTaskAppHistoryRecords", "GET", "?StartIndex=0&FindNum=5&DatabaseType=0", ""}, 0, 0, true},
    {{"MultiTaskAppHistoryRecords", "GET", "?StartIndex=0&FindNum=5&EndTime=e&DatabaseType=0", ""},
     0,
     2,
     true},
    {{"MultiTaskAppHistoryRecords", "DELETE", "?StartTime=2024-05-01T08:00:00&EndTime=2024-05-01T09:59:59",
      ""},
     0,
     0,
     true},
    {{"MultiTaskAppHistoryRecords", "DELETE", "?EndTime=2024-05-01T09:59:59", ""}, 0, 4, true},
};

std::string Hex(const std::vector<uint8_t>& bytes) {
    // Long records end in zero fill: only up to the last non-zero byte is printed, with the length.
    size_t end = bytes.size();
    while (end > 0 && bytes[end - 1] == 0) {
        --end;
    }
    std::ostringstream out;
    out << bytes.size() << ":";
    for (size_t i = 0; i < end; ++i) {
        static const char kDigits[] = "0123456789abcdef";
        out << kDigits[bytes[i] >> 4] << kDigits[bytes[i] & 15];
    }
    return out.str();
}

class Transcript : public HostRoad {
protected:
    // Each form's debug switch gets a value of its own, so that every line shows which one it passed.
    void SetUp() override {
        HostRoad::SetUp();
        moduleFlag_ = static_cast<int*>(dlsym(module_.handle, "g_enITGTDebugFlag"));
        ASSERT_NE(moduleFlag_, nullptr);
        *moduleFlag_ = 5;
        g_enDebugFlag = 9;
    }
    void TearDown() override {
        if (moduleFlag_ != nullptr) {
            *moduleFlag_ = 0;
        }
        g_enDebugFlag = 0;
        HostRoad::TearDown();
    }
    int* moduleFlag_ = nullptr;

    std::string Run(const Scenario& s) {
        serviceResult_ = s.serviceResult;
        cmdResult_ = s.cmdResult;
        SetServiceUp(s.serviceUp);
        replyStatus_ = s.replyStatus;
        replyUri_ = s.replyUri;
        resultLen_ = s.resultLen;
        contentDelta_ = s.contentDelta;
        size_t ioctlsBefore = srvfs().Ioctls(kServiceName).size();
        size_t servicedBefore = srvfs().Requests(kServiceName).size();
        size_t commandsBefore = peer_.Requests().size();
        LogCapture log;
        int result = Serve(s.road);
        std::ostringstream out;
        vks_host::HttpStatus status = vks_host::StatusForResult(result, request_.parseFailed, false);
        out << "== " << s.road.method << " " << s.road.resource << s.road.query << " body " << s.road.body
            << " | service " << (s.serviceUp ? std::to_string(s.serviceResult) : "absent") << " | command "
            << s.cmdResult << " | reply " << s.replyStatus << "/" << s.replyUri << "/" << s.resultLen << "/"
            << s.contentDelta << "\n"
            << "result " << result << ", HTTP " << status.code << "\nbody " << request_.body.text << "\n";
        std::vector<std::vector<uint8_t>> frames = srvfs().Requests(kServiceName);
        for (size_t i = servicedBefore; i < frames.size(); ++i) {
            DecodedFrame f = Decode(frames[i]);
            out << "service uri " << f.uri << " method " << int(f.flagsMethod);
            for (uint16_t type : f.itemOrder) {
                if (type == DXMP_ITEM_ENABLE_LIST_REQ) {  // pBuffer: an address, different every run
                    memset(f.items[type].data() + offsetof(VW_JSON_MSG_S, pBuffer), 0, 4);
                }
                out << " item " << std::hex << type << std::dec << "=" << Hex(f.items[type]);
            }
            out << " content " << Hex(f.content) << "\n";
        }
        std::vector<IoctlCall> ioctls = srvfs().Ioctls(kServiceName);
        for (size_t i = ioctlsBefore; i < ioctls.size(); ++i) {
            out << "ioctl " << std::hex << ioctls[i].cmd << std::dec << " " << ioctls[i].arg << "\n";
        }
        std::vector<cmdframe::Request> commands = peer_.Requests();
        for (size_t i = commandsBefore; i < commands.size(); ++i) {
            out << "command op " << commands[i].op << " type " << commands[i].msgType << " cmd "
                << commands[i].cmd << " payload "
                << Hex(std::vector<uint8_t>(commands[i].payload.begin(), commands[i].payload.end())) << "\n";
        }
        for (const DebugLine& line : log.Debug()) {
            if (line.module == 4) {  // the module's own lines; the host's and libraries' vary with timing
                out << "debug " << line.level << " switch " << line.debugFlag << " " << line.text << "\n";
            }
        }
        for (const OpLogLine& line : log.OpLog()) {
            out << "oplog " << line.dest << " " << line.module << " " << line.english << " | " << line.chinese
                << "\n";
        }
        // Addresses and the scratch folder differ from run to run.
        std::string text = std::regex_replace(out.str(), std::regex("0x[0-9a-f]+|\\(nil\\)"), "PTR");
        return std::regex_replace(text, std::regex(dir_.Path()), "DIR");
    }
};

TEST_F(Transcript, EveryRoadMatchesTheGoldenTranscript) {
    std::string all;
    for (const Scenario& s : kScenarios) {
        all += Run(s);
    }
    const std::string path = std::string(VKS_GOLDEN_DIR) + "/roads.txt";
    if (getenv("VKS_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(path) << all;
        GTEST_SKIP() << "golden transcript rewritten: " << path;
    }
    std::ifstream in(path);
    std::string golden((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_FALSE(golden.empty()) << "no golden transcript at " << path;
    // Compared request by request, so that a failure names the road that changed.
    std::istringstream want(golden);
    std::istringstream got(all);
    std::string wantLine;
    std::string gotLine;
    std::string road;
    for (int n = 1; std::getline(want, wantLine); ++n) {
        road = wantLine.rfind("== ", 0) == 0 ? wantLine : road;
        ASSERT_TRUE(std::getline(got, gotLine)) << "transcript ends before line " << n << " of " << road;
        ASSERT_EQ(wantLine, gotLine) << "line " << n << " of " << road;
    }
    EXPECT_FALSE(std::getline(got, gotLine)) << "transcript goes on after the golden one: " << gotLine;
}

}  // namespace
}  // namespace vks_test
