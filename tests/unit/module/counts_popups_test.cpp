// Task-mode counts and pop-up settings: the handlers' phases against a scripted analysis service.
#include <json-c/json.h>

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "app/parse_model/multi_task/vksapi_multi_task_module.h"
#include "log_capture.h"
#include "module_test_util.h"
#include "srvfs_fixture.h"
#include "vks_log.h"
#include "vks_multi_task_records.h"

namespace vks_test {
namespace {

// The body's members in order, values as text (json-c prints 64-bit unsigned numbers whole).
std::vector<std::pair<std::string, std::string>> Members(const std::string& body) {
    std::vector<std::pair<std::string, std::string>> members;
    json_object* root = json_tokener_parse(body.c_str());
    if (root == nullptr || !json_object_is_type(root, json_type_object)) {
        json_object_put(root);
        return members;
    }
    json_object_object_foreach(root, key, value) {
        members.emplace_back(key, json_object_to_json_string_ext(value, JSON_C_TO_STRING_PLAIN));
    }
    json_object_put(root);
    return members;
}

using Run = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, tagHTTP_CLIENT_S*, tagHTTP_CNTENT_INTER_S*);
using Format = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*, tagHTTP_BUF_S*);

struct CountsResource {
    const char* name;
    Run run;
    Format format;
    uint16_t uri;
    const char* keys[3];
    const char* okEnglish;
    const char* okChinese;
    const char* failEnglish;
    const char* failChinese;
};

const CountsResource kCounts[] = {
    {"RunGetMultiTaskAppTaskModesAvailableList",
     RunGetMultiTaskAppTaskModesAvailableList,
     FormatGetMultiTaskAppTaskModesAvailableList,
     1202,
     {"faceDetection", "vhdDetection", "vhdFaceMode"},
     "ZKAPI[ApiAdmin][192.168.1.20:50123] Get RVN Available List Params Successfully. faceDetection:%s, "
     "vhdDetection:2, vhdFaceMode:1",
     "ZKAPI[ApiAdmin][192.168.1.20:50123] 获取多机互助设备可创建的各类任务数目成功. 人卡:%s, 微卡:2, 混行:1",
     "ZKAPI[ApiAdmin][192.168.1.20:50123] Get RVN Available List Params fail. faceDetection:%s, "
     "vhdDetection:2, "
     "vhdFaceMode:1",
     "ZKAPI[ApiAdmin][192.168.1.20:50123] 获取多机互助可创建的各类任务数目失败. 人卡:%s, 微卡:2, 混行:1"},
    {"RunGetMultiTaskAppTaskModesCapacity",
     RunGetMultiTaskAppTaskModesCapacity,
     FormatGetMultiTaskAppTaskModesCapacity,
     1203,
     {"faceDetect", "vhdDetect", "vhdFaceDetect"},
     "ZKAPI[ApiAdmin][192.168.1.20:50123] Get RVN Capacity List Params Successfully. faceDetect:%s, "
     "vhdDetect:2, "
     "vhdFaceDetect:1",
     "ZKAPI[ApiAdmin][192.168.1.20:50123] 获取多机互助设备可创建的各类最大任务数目成功. 人卡:%s, 微卡:2, "
     "混行:1",
     "ZKAPI[ApiAdmin][192.168.1.20:50123] Get RVN Capacity List Params fail. faceDetect:%s, vhdDetect:2, "
     "vhdFaceDetect:1",
     "ZKAPI[ApiAdmin][192.168.1.20:50123] 获取多机互助可创建的各类最大任务数目失败. 人卡:%s, 微卡:2, 混行:1"},
};

std::string Fill(const char* format, const std::string& first) {
    std::string text = format;
    return text.replace(text.find("%s"), 2, first);
}

void ExpectOpLogPair(const LogCapture& log, const std::string& english, const std::string& chinese) {
    std::vector<OpLogLine> lines = log.OpLog();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].dest, 2);
    EXPECT_EQ(lines[1].dest, 1);
    for (const OpLogLine& line : lines) {
        EXPECT_EQ(line.module, 4);
        EXPECT_EQ(line.english, english);
        EXPECT_EQ(line.chinese, chinese);
    }
}

class CountsTest : public SrvfsTest {
protected:
    void Serve(uint16_t uri, int32_t result, uint64_t first) {
        _VW_AvailableList_S counts = {first, 2, 1};
        std::vector<uint8_t> frame = BuildReply(200, uri, DXMP_METHOD_GET, &result, Bytes(counts));
        srvfs().RemoveService(kServiceName);
        srvfs().AddService(kServiceName,
                           [frame](const std::vector<uint8_t>&) { return ScriptedReply{frame}; });
    }
};

TEST_F(CountsTest, ReplyBecomesBodyAndOperationLog) {
    const struct {
        int32_t result;
        uint64_t first;
        const char* firstText;
    } cases[] = {{0, 4, "4"}, {6, 4, "4"}, {0, 4294967296ull + 5, "4294967301"}};
    for (const CountsResource& res : kCounts) {
        for (const auto& c : cases) {
            Serve(res.uri, c.result, c.first);
            RequestRecords request;
            BodyBuffer out;
            LogCapture log;
            VW_RESULT_TYPE run = res.run(&request.header, &request.client, &request.ctIn);
            EXPECT_EQ(run, c.result) << res.name;
            const std::string name = res.name;
            EXPECT_TRUE(log.Has(VKS_LOG_TRACE, "[LogMultiTaskAppRest]:" + name + " begin"));
            if (c.result == 0) {
                EXPECT_TRUE(log.Has(VKS_LOG_TRACE, "[LogMultiTaskAppRest]:" + name + " end"));
            } else {
                EXPECT_TRUE(log.Has(VKS_LOG_ERROR, "[LogMultiTaskAppRest]:" + name + " failed with 6\n"));
            }
            log.Clear();
            EXPECT_EQ(res.format(&request.header, run, &request.ctIn, &out.buf), 0);
            // A record in runOut is the body, whatever the result.
            std::vector<std::pair<std::string, std::string>> expected = {
                {res.keys[0], c.firstText}, {res.keys[1], "2"}, {res.keys[2], "1"}};
            EXPECT_EQ(Members(out.body), expected) << out.body;
            ExpectOpLogPair(log, Fill(c.result == 0 ? res.okEnglish : res.failEnglish, c.firstText),
                            Fill(c.result == 0 ? res.okChinese : res.failChinese, c.firstText));
            DecodedFrame sent = Decode(srvfs().Requests(kServiceName).at(0));
            EXPECT_EQ(sent.uri, res.uri);
            EXPECT_EQ(sent.flagsMethod & 0x7F, DXMP_METHOD_GET);
        }
    }
}

TEST_F(CountsTest, UnreachableServiceWritesNeitherBodyNorOperationLog) {
    for (const CountsResource& res : kCounts) {
        RequestRecords request;
        BodyBuffer out;
        LogCapture log;
        VW_RESULT_TYPE run = res.run(&request.header, &request.client, &request.ctIn);
        EXPECT_EQ(run, -1);
        EXPECT_EQ(res.format(&request.header, run, &request.ctIn, &out.buf), -1);
        EXPECT_TRUE(out.body.empty());
        EXPECT_TRUE(log.OpLog().empty());
        EXPECT_TRUE(log.Has(VKS_LOG_ERROR, "[LogMultiTaskAppRest]:Invalid Param"));
    }
}

TEST_F(CountsTest, NullArgumentsUseTheirForms) {
    for (const CountsResource& res : kCounts) {
        RequestRecords request;
        BodyBuffer out;
        LogCapture log;
        EXPECT_EQ(res.run(&request.header, nullptr, &request.ctIn), 1);
        char detailed[160];
        snprintf(detailed, sizeof(detailed),
                 "[LogMultiTaskAppRest]:Invalid param, header[%p] client[%p] ctIn[%p]",
                 static_cast<void*>(&request.header), nullptr, static_cast<void*>(&request.ctIn));
        EXPECT_TRUE(log.Has(VKS_LOG_ERROR, detailed)) << detailed;
        EXPECT_EQ(res.format(&request.header, 0, &request.ctIn, nullptr), -1);
        EXPECT_EQ(res.format(nullptr, 0, &request.ctIn, &out.buf), -1);
        EXPECT_TRUE(srvfs().Requests(kServiceName).empty());
    }
}

// ---- Pop-up settings ----

std::string PopUpEnglish(int black, int white) {
    return "admin[192.168.1.20:50123] Get RVN Face Recog Popup Params Successfully. BlackPopUp: " +
           std::to_string(black) + ", WhitePopUp: " + std::to_string(white);
}

std::string PopUpChinese(int black, int white) {
    return "admin[192.168.1.20:50123] 获取多机互助人脸识别自动弹窗参数成功. 黑名单比对信息弹框: " +
           std::to_string(black) + ", 白名单比对信息弹框: " + std::to_string(white);
}

class PopUpsTest : public SrvfsTest {
protected:
    // The service keeps the record: a PUT stores its content, a GET answers with it.
    void ServeStored(int32_t result) {
        srvfs().AddService(kServiceName, [this, result](const std::vector<uint8_t>& frame) {
            DecodedFrame request = Decode(frame);
            if ((request.flagsMethod & 0x7F) == DXMP_METHOD_PUT) {
                stored_ = request.content;
                return ScriptedReply{BuildReply(200, 229, DXMP_METHOD_PUT, &result, {})};
            }
            return ScriptedReply{BuildReply(200, 229, DXMP_METHOD_GET, &result, stored_)};
        });
    }
    VW_RESULT_TYPE Put(const char* body, RequestRecords* request, BodyBuffer* out) {
        BodyBuffer content(body);
        VW_RESULT_TYPE parse =
            ParsePutMultiTaskAppDisplayRecogPopUps(&request->header, &content.buf, &request->ctIn);
        VW_RESULT_TYPE run =
            RunPutMultiTaskAppDisplayRecogPopUps(&request->header, &request->client, &request->ctIn);
        return FormatPutMultiTaskAppDisplayRecogPopUps(&request->header, parse != 0 ? parse : run,
                                                       &request->ctIn, &out->buf);
    }
    std::vector<uint8_t> stored_;
};

TEST_F(PopUpsTest, PutSendsTheDecodedRecord) {
    ServeStored(0);
    const struct {
        const char* body;
        _FaceRecPopUpPara sent;
    } cases[] = {
        {R"({"blackPopUp": true})", {101, 1, 0}},
        {"{}", {101, 0, 0}},
        {R"({"whitePopUp": 5e10})", {101, 0, -1}},
        {R"({"whitePopUp": 4294967297})", {101, 0, 1}},
    };
    for (const auto& c : cases) {
        RequestRecords request;
        BodyBuffer out;
        LogCapture log;
        EXPECT_EQ(Put(c.body, &request, &out), 0) << c.body;
        EXPECT_EQ(stored_, Bytes(c.sent)) << c.body;
        EXPECT_FALSE(out.body.empty());  // the host's status-only response
        ExpectOpLogPair(log, PopUpEnglish(c.sent.blackPopUp, c.sent.whitePopUp),
                        PopUpChinese(c.sent.blackPopUp, c.sent.whitePopUp));
        EXPECT_TRUE(log.Has(VKS_LOG_TRACE, "[LogFaceAppRest]:ParsePutMultiTaskAppDisplayRecogPopUps begin"));
        EXPECT_TRUE(log.Has(VKS_LOG_TRACE, "[LogFaceAppRest]:RunPutMultiTaskAppDisplayRecogPopUps end"));
    }
}

TEST_F(PopUpsTest, RejectedBodySendsNothing) {
    ServeStored(0);
    for (const char* body : {R"({"blackPopUp": "1"})", R"({"blackPopUp": [1]})", "not json"}) {
        RequestRecords request;
        BodyBuffer content(body);
        LogCapture log;
        EXPECT_EQ(ParsePutMultiTaskAppDisplayRecogPopUps(&request.header, &content.buf, &request.ctIn), -1);
        EXPECT_EQ(request.ctIn.parseOut, nullptr);
        EXPECT_TRUE(log.Has(VKS_LOG_ERROR,
                            "[LogVKSFrameWork]:ParsePutMultiTaskAppDisplayRecogPopUps failed with -1\n"));
        EXPECT_EQ(RunPutMultiTaskAppDisplayRecogPopUps(&request.header, &request.client, &request.ctIn), -1);
        BodyBuffer out;
        EXPECT_EQ(FormatPutMultiTaskAppDisplayRecogPopUps(&request.header, -1, &request.ctIn, &out.buf), -1);
        EXPECT_TRUE(out.body.empty());
    }
    EXPECT_TRUE(srvfs().Requests(kServiceName).empty());
}

TEST_F(PopUpsTest, GetReadsTheStoredSwitchesSigned) {
    ServeStored(0);
    _FaceRecPopUpPara stored = {101, 1, -1};  // whitePopUp 4294967295 as the service keeps it
    stored_ = Bytes(stored);
    RequestRecords request;
    BodyBuffer out;
    LogCapture log;
    ASSERT_EQ(RunGetMultiTaskAppDisplayRecogPopUps(&request.header, &request.client, &request.ctIn), 0);
    EXPECT_TRUE(log.Has(VKS_LOG_TRACE, "[LogFaceAppRest]:RunGetMultiTaskAppDisplayRecogPopUps begin"));
    log.Clear();
    EXPECT_EQ(FormatGetMultiTaskAppDisplayRecogPopUps(&request.header, 0, &request.ctIn, &out.buf), 0);
    std::vector<std::pair<std::string, std::string>> expected = {{"blackPopUp", "1"}, {"whitePopUp", "-1"}};
    EXPECT_EQ(Members(out.body), expected) << out.body;
    ExpectOpLogPair(log, PopUpEnglish(1, -1), PopUpChinese(1, -1));
}

TEST_F(PopUpsTest, FailedResultPicksTheFailTexts) {
    ServeStored(8);
    stored_ = Bytes(_FaceRecPopUpPara{101, 0, 1});
    RequestRecords request;
    BodyBuffer out;
    LogCapture log;
    EXPECT_EQ(RunGetMultiTaskAppDisplayRecogPopUps(&request.header, &request.client, &request.ctIn), 8);
    EXPECT_TRUE(
        log.Has(VKS_LOG_ERROR, "[LogVKSFrameWork]:RunGetMultiTaskAppDisplayRecogPopUps failed with 8\n"));
    log.Clear();
    EXPECT_EQ(FormatGetMultiTaskAppDisplayRecogPopUps(&request.header, 8, &request.ctIn, &out.buf), 0);
    ExpectOpLogPair(
        log, "admin[192.168.1.20:50123] Get RVN Face Recog Popup Params fail. BlackPopUp 0, WhitePopUp 1",
        "admin[192.168.1.20:50123] 获取多机互助人脸识别自动弹窗参数失败. 黑名单比对信息弹框: 0, "
        "白名单比对信息弹框: 1");
}

TEST_F(PopUpsTest, FailedExchangeLeavesFormatWithoutRecord) {
    RequestRecords request;
    BodyBuffer out;
    LogCapture log;
    EXPECT_EQ(RunGetMultiTaskAppDisplayRecogPopUps(&request.header, &request.client, &request.ctIn), -1);
    EXPECT_EQ(FormatGetMultiTaskAppDisplayRecogPopUps(&request.header, -1, &request.ctIn, &out.buf), -1);
    EXPECT_TRUE(out.body.empty());
    EXPECT_TRUE(log.OpLog().empty());
    EXPECT_TRUE(log.Has(VKS_LOG_ERROR, "[LogMultiTaskAppRest]:Invalid Param"));
}

}  // namespace
}  // namespace vks_test
