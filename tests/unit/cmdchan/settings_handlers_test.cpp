// The history-switch (22025) and display-flag (7037) handlers against a scripted peer.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <string.h>

#include <map>

#include "cmd_test_util.h"
#include "log_capture.h"
#include "vks_multi_task_records.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"

namespace {

using cmdtest::Bytes;
using Filter = VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA;

class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override {
        // The settings the peer holds: a GET answers them, a SET is recorded.
        HistoryRecordSwitch sw = {101, ENABLE_TYPE_OFF};
        stored[VW_CMD_HISTORY_SWITCH] = Bytes(sw);
        stored[VW_CMD_HISTORY_SWITCH].at(12) = 0xAB;  // padding as the service left it
        Filter f{};
        f.channelId = 101;
        f.matchRate = ENABLE_TYPE_ON;
        f.name = ENABLE_TYPE_ON;
        f.whiteMatchPic = static_cast<ENABLE_TYPE>(7);
        stored[VW_CMD_DISPLAY_RECOG_INFOS] = Bytes(f);
        peer.SetScript([this](const cmdframe::Request& rq, cmdframe::Reply* rp) {
            rp->result = peerResult;
            if (rq.op == cmdframe::kOpGet && peerResult == 0) {
                rp->payload = stored[rq.cmd];
            }
            return true;
        });
    }
    std::vector<cmdframe::Request> Sets() const {
        std::vector<cmdframe::Request> sets;
        for (const cmdframe::Request& rq : peer.Requests()) {
            if (rq.op == cmdframe::kOpSet) {
                sets.push_back(rq);
            }
        }
        return sets;
    }
    // PreProc, Parse and (when Parse succeeded) Run of a PUT; the result of the last phase run.
    int Put(cmdtest::Request* rq, const char* body, bool history) {
        rq->SetBody(body);
        int r = history ? PreProcPutMultiTaskAppHistory(&rq->header, rq->client.synSock, &rq->ctIn)
                        : PreProcPutMultiTaskAppDisplayRecogInfos(&rq->header, rq->client.synSock, &rq->ctIn);
        if (r != 0) {
            return r;
        }
        r = history ? ParsePutMultiTaskAppHistory(&rq->header, &rq->content, &rq->ctIn)
                    : ParsePutMultiTaskAppDisplayRecogInfos(&rq->header, &rq->content, &rq->ctIn);
        if (r != 0) {
            return r;
        }
        return history ? RunPutMultiTaskAppHistory(&rq->header, &rq->client, &rq->ctIn)
                       : RunPutMultiTaskAppDisplayRecogInfos(&rq->header, &rq->client, &rq->ctIn);
    }

    cmdtest::TempDir dir;
    std::string sock = dir.File("cmd.sock");
    cmdtest::ScriptedPeer peer{sock};
    std::map<uint32_t, std::vector<unsigned char>> stored;
    int peerResult = 0;
    vks_test::LogCapture log;
};

TEST_F(SettingsTest, HistoryGetWithoutChannelAsksForChannelZeroAndLogsTheMissingKey) {
    cmdtest::Request rq("/api/MultiTaskAppHistory", sock);
    ASSERT_EQ(0, RunGetMultiTaskAppHistory(&rq.header, &rq.client, &rq.ctIn));
    std::vector<cmdframe::Request> sent = peer.Requests();
    ASSERT_EQ(1u, sent.size());
    EXPECT_EQ(static_cast<uint32_t>(VW_CMD_HISTORY_SWITCH), sent[0].cmd);
    EXPECT_EQ(std::vector<unsigned char>(VW_CMD_BODY_LEN, 0), sent[0].payload);
    EXPECT_TRUE(log.Has(1, "[ZKAPI]:RunGetMultiTaskAppHistory, Query param get failed"));
    ASSERT_NE(nullptr, rq.ctIn.runOut);
    EXPECT_EQ(0, memcmp(rq.ctIn.runOut, stored[VW_CMD_HISTORY_SWITCH].data(), 16));
}

TEST_F(SettingsTest, HistoryGetNamesTheChannelAndFormatsTheRecord) {
    cmdtest::Request rq("/api/MultiTaskAppHistory?ChannelId=4294967396", sock);
    ASSERT_EQ(0, RunGetMultiTaskAppHistory(&rq.header, &rq.client, &rq.ctIn));
    uint64_t channel = 0;
    memcpy(&channel, peer.Requests().at(0).payload.data(), 8);
    EXPECT_EQ(4294967396ULL, channel);
    ASSERT_EQ(0, FormatGetMultiTaskAppHistory(&rq.header, 0, &rq.ctIn, &rq.out));
    json_object* body = json_tokener_parse(rq.body.c_str());
    ASSERT_NE(nullptr, body) << rq.body;
    json_object* value = nullptr;
    ASSERT_TRUE(json_object_object_get_ex(body, "channelId", &value));
    EXPECT_EQ(101, json_object_get_int64(value));
    ASSERT_TRUE(json_object_object_get_ex(body, "enableRecord", &value));
    EXPECT_EQ(0, json_object_get_int(value));
    EXPECT_LT(rq.body.find("channelId"), rq.body.find("enableRecord"));
    json_object_put(body);
    ASSERT_EQ(2u, log.OpLog().size());
    EXPECT_EQ(
        "admin[10.0.0.7:51234] Get History Record Switch Params Successfully. ChannelID: 101, Record Enable: "
        "0",
        log.OpLog()[0].english);
    EXPECT_EQ("admin[10.0.0.7:51234] 获取历史记录存储开关参数成功. 通道ID: 101, 存储使能: 0",
              log.OpLog()[1].chinese);
    EXPECT_EQ(2, log.OpLog()[0].dest);
    EXPECT_EQ(1, log.OpLog()[1].dest);
}

struct PutCase {
    const char* body;
    int result;
    int32_t enableSent;  // -1: nothing stored
    bool paddingKept;
};

TEST_F(SettingsTest, HistoryPutMergesTheBodyIntoTheRecordReadBack) {
    const PutCase cases[] = {
        {"{\"enableRecord\": true}", 0, 1, true}, {"{}", 0, 0, true},
        {"{\"enableRecord\": null}", 0, 0, true}, {"{\"enableRecord\": 1.9}", 0, 1, true},
        {"{\"channelId\": \"5\"}", 4, -1, false}, {"not json", 4, -1, false},
    };
    for (const PutCase& c : cases) {
        SCOPED_TRACE(c.body);
        size_t before = Sets().size();
        cmdtest::Request rq("/api/MultiTaskAppHistory?ChannelId=9", sock);
        EXPECT_EQ(c.result, Put(&rq, c.body, true));
        std::vector<cmdframe::Request> sets = Sets();
        if (c.enableSent < 0) {
            EXPECT_EQ(before, sets.size());
            continue;
        }
        ASSERT_EQ(before + 1, sets.size());
        std::vector<unsigned char> expected = stored[VW_CMD_HISTORY_SWITCH];
        memcpy(expected.data() + 8, &c.enableSent, 4);
        EXPECT_EQ(expected, sets.back().payload);
        EXPECT_EQ(nullptr, rq.ctIn.preProcOut);
    }
}

TEST_F(SettingsTest, HistoryPutFailureIsLoggedWithTheValuesSent) {
    cmdtest::Request rq("/api/MultiTaskAppHistory", sock);
    ASSERT_EQ(0, Put(&rq, "{\"enableRecord\": 1}", true));
    EXPECT_EQ(0, FormatPutMultiTaskAppHistory(&rq.header, 9, &rq.ctIn, &rq.out));
    ASSERT_EQ(2u, log.OpLog().size());
    EXPECT_EQ("admin[10.0.0.7:51234] Put History Record Switch Params fail. ChannelID: 101, Record Enable: 1",
              log.OpLog()[0].english);
    EXPECT_EQ("admin[10.0.0.7:51234] 设置历史记录存储开关参数失败. 通道ID: 101, 存储使能: 1",
              log.OpLog()[0].chinese);
    EXPECT_TRUE(log.Has(1, "[ZKAPI]:FormatPutMultiTaskAppHistory"));
}

TEST_F(SettingsTest, PeerFailureIsTheResultAndLeavesTheSlotEmpty) {
    peerResult = 6;
    cmdtest::Request rq("/api/MultiTaskAppHistory", sock);
    EXPECT_EQ(6, RunGetMultiTaskAppHistory(&rq.header, &rq.client, &rq.ctIn));
    EXPECT_EQ(6, RunGetMultiTaskAppDisplayRecogInfos(&rq.header, &rq.client, &rq.ctIn));
    EXPECT_EQ(6, PreProcPutMultiTaskAppHistory(&rq.header, rq.client.synSock, &rq.ctIn));
    EXPECT_EQ(nullptr, rq.ctIn.runOut);
    EXPECT_EQ(nullptr, rq.ctIn.preProcOut);
}

TEST_F(SettingsTest, DisplayPutChangesOnlyTheFlagsGiven) {
    const PutCase cases[] = {
        {"{\"name\": false}", 0, 0, true},
        {"{\"channelId\": 5}", 0, 1, true},
        {"{}", 0, 1, true},
        {"{\"gender\": \"1\"}", 4, -1, false},
    };
    for (const PutCase& c : cases) {
        SCOPED_TRACE(c.body);
        size_t before = Sets().size();
        cmdtest::Request rq("/api/MultiTaskAppDisplayRecogInfos?ChannelId=9", sock);
        EXPECT_EQ(c.result, Put(&rq, c.body, false));
        std::vector<cmdframe::Request> sets = Sets();
        if (c.enableSent < 0) {
            EXPECT_EQ(before, sets.size());
            continue;
        }
        ASSERT_EQ(before + 1, sets.size());
        std::vector<unsigned char> expected = stored[VW_CMD_DISPLAY_RECOG_INFOS];
        memcpy(expected.data() + offsetof(Filter, name), &c.enableSent, 4);
        EXPECT_EQ(expected, sets.back().payload);
        EXPECT_EQ(static_cast<uint32_t>(VW_CMD_DISPLAY_RECOG_INFOS), sets.back().cmd);
    }
    // Every read named channel 101, whatever the query said.
    for (const cmdframe::Request& rq : peer.Requests()) {
        if (rq.op == cmdframe::kOpGet) {
            EXPECT_EQ(101, rq.payload.at(0));
        }
    }
}

TEST_F(SettingsTest, DisplayGetFailurePairNamesTheHistorySwitch) {
    cmdtest::Request rq("/api/MultiTaskAppDisplayRecogInfos", sock);
    ASSERT_EQ(0, RunGetMultiTaskAppDisplayRecogInfos(&rq.header, &rq.client, &rq.ctIn));
    EXPECT_EQ(0, FormatGetMultiTaskAppDisplayRecogInfos(&rq.header, 3, &rq.ctIn, &rq.out));
    ASSERT_EQ(2u, log.OpLog().size());
    EXPECT_EQ(
        "admin[10.0.0.7:51234] Get History Record Switch Params fail. ChannelID: 101, MatchRate Enable: 1, "
        "SnapTime Enable: 0, DeviceName Enable: 0, FaceLibName Enable: 0, Name Enable: 1, CardID Enable: 0, "
        "Gender Enable: 0, Province Enable: 0, City Enable: 0, CardType Enable: 0, Birthday Enable: 0, "
        "BlackMatchPic Enable: 0, WhiteMatchPic Enable: 7",
        log.OpLog()[0].english);
    EXPECT_EQ(
        "admin[10.0.0.7:51234] 获取多机互助界面人脸识别属性展示项参数失败. 镜头ID: 101, 匹配率: 1, 抓拍时间: "
        "0, "
        "所属设备: 0, 库名称: 0, 姓名: 1, 证件号: 0, 性别: 0, 省份: 0, 城市: 0, 证件类型: 0, 生日: 0, "
        "黑名单比对图: 0, 白名单比对图: 7",
        log.OpLog()[0].chinese);
    EXPECT_EQ(std::string::npos, rq.body.find("channelId"));
    EXPECT_LT(rq.body.find("\"matchRate\""), rq.body.find("\"whiteMatchPic\""));
}

TEST_F(SettingsTest, FormatWithoutItsSlotReturnsOneWithoutOperationLog) {
    cmdtest::Request rq("/api/x", sock);
    EXPECT_EQ(1, FormatGetMultiTaskAppHistory(&rq.header, 0, &rq.ctIn, &rq.out));
    EXPECT_EQ(1, FormatPutMultiTaskAppHistory(&rq.header, 0, &rq.ctIn, &rq.out));
    EXPECT_EQ(1, FormatGetMultiTaskAppDisplayRecogInfos(&rq.header, 0, &rq.ctIn, &rq.out));
    EXPECT_EQ(1, FormatPutMultiTaskAppDisplayRecogInfos(&rq.header, 0, &rq.ctIn, &rq.out));
    EXPECT_EQ(1, FormatDeleteMultiTaskAppHistoryRecords(&rq.header, 0, &rq.ctIn, &rq.out));
    EXPECT_TRUE(log.OpLog().empty());
    EXPECT_TRUE(rq.body.empty());
    char line[256];
    snprintf(
        line, sizeof(line), "[LogMultiTaskAppRest]:Invalid param, header[%p] buf[%p] ctIn[%p] parseout[%p]",
        static_cast<void*>(&rq.header), static_cast<void*>(&rq.out), static_cast<void*>(&rq.ctIn), nullptr);
    EXPECT_TRUE(log.Has(3, line));
    snprintf(
        line, sizeof(line), "[LogMultiTaskAppRest]:Invalid param, header[%p] buf[%p] ctIn[%p] runOut[%p]",
        static_cast<void*>(&rq.header), static_cast<void*>(&rq.out), static_cast<void*>(&rq.ctIn), nullptr);
    EXPECT_TRUE(log.Has(3, line));
}

TEST_F(SettingsTest, NullArgumentsUseTheirHandlersForm) {
    cmdtest::Request rq("/api/x", sock);
    EXPECT_EQ(1, RunGetMultiTaskAppDisplayRecogInfos(&rq.header, nullptr, &rq.ctIn));
    char line[256];
    snprintf(line, sizeof(line), "[ZKAPI]:Invalid param, pstHeader[%p] pstClient[%p] pstCtIn[%p]",
             static_cast<void*>(&rq.header), nullptr, static_cast<void*>(&rq.ctIn));
    std::vector<vks_test::DebugLine> found = log.Find(line);
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ(3, found[0].level);
    EXPECT_EQ(g_enDebugFlag, found[0].debugFlag);
    EXPECT_EQ(1, PreProcPutMultiTaskAppHistory(&rq.header, nullptr, &rq.ctIn));
    snprintf(line, sizeof(line), "[LogMultiTaskAppRest]:Invalid param, header[%p] synSock[%p] ctIn[%p]",
             static_cast<void*>(&rq.header), nullptr, static_cast<void*>(&rq.ctIn));
    EXPECT_TRUE(log.Has(3, line));
    EXPECT_EQ(1, ParsePutMultiTaskAppDisplayRecogInfos(nullptr, &rq.content, &rq.ctIn));
    EXPECT_EQ(1, RunPutMultiTaskAppHistory(&rq.header, &rq.client, nullptr));
    EXPECT_TRUE(peer.Requests().empty());
}

// Sets both debug switches to values of their own for one test, and puts them back.
class SwitchedFlags {
public:
    SwitchedFlags() : module_(g_enITGTDebugFlag), host_(g_enDebugFlag) {
        g_enITGTDebugFlag = kModuleFlag;
        g_enDebugFlag = kHostFlag;
    }
    ~SwitchedFlags() {
        g_enITGTDebugFlag = module_;
        g_enDebugFlag = host_;
    }
    static constexpr int kModuleFlag = 5;
    static constexpr int kHostFlag = 9;

private:
    int module_;
    int host_;
};

TEST_F(SettingsTest, EveryLineCarriesTheSwitchOfItsForm) {
    SwitchedFlags flags;
    cmdtest::Request rq("/api/MultiTaskAppHistoryRecords?StartIndex=1", sock);
    // Trace, missing-key and invalid-argument lines of both forms, from every handler family.
    EXPECT_EQ(0, RunGetMultiTaskAppHistory(&rq.header, &rq.client, &rq.ctIn));
    EXPECT_EQ(1, RunGetMultiTaskAppDisplayRecogInfos(nullptr, &rq.client, &rq.ctIn));
    EXPECT_EQ(1, RunPutMultiTaskAppDisplayRecogInfos(nullptr, &rq.client, &rq.ctIn));
    EXPECT_EQ(1, FormatGetMultiTaskAppHistory(&rq.header, 0, nullptr, &rq.out));
    EXPECT_EQ(4, RunGetMultiTaskAppHistoryRecords(&rq.header, &rq.client, &rq.ctIn));
    EXPECT_EQ(1, FormatGetMultiTaskAppHistoryRecords(&rq.header, 0, nullptr, &rq.out));
    EXPECT_EQ(1, ParseDeleteMultiTaskAppHistoryRecords(&rq.header, nullptr, &rq.ctIn));
    std::vector<vks_test::DebugLine> lines = log.Debug();
    ASSERT_EQ(9u, lines.size());
    for (const vks_test::DebugLine& line : lines) {
        SCOPED_TRACE(line.text);
        EXPECT_EQ(4, line.module);
        if (line.text.rfind("[ZKAPI]:", 0) == 0) {
            EXPECT_EQ(SwitchedFlags::kHostFlag, line.debugFlag);
        } else {
            EXPECT_EQ(0u, line.text.rfind("[LogMultiTaskAppRest]:", 0));
            EXPECT_EQ(SwitchedFlags::kModuleFlag, line.debugFlag);
        }
    }
}

}  // namespace
