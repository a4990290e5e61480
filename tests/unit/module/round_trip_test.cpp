// Typed round trips: ProcMsg_Get / ProcMsg_Put through the service file system, ParseMsg on bodies.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "app/parse_model/com/vksapi_dxmp_comm.h"
#include "log_capture.h"
#include "module_test_util.h"
#include "srvfs_fixture.h"
#include "vks_log.h"
#include "vks_msg_comm.h"
#include "vks_multi_task_records.h"

namespace vks_test {
namespace {

const uint16_t kUri = VKS_URI_FACE_REC_POPUP;

std::vector<uint8_t> Pattern(size_t length) {
    std::vector<uint8_t> bytes(length);
    for (size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<uint8_t>(0x10 + i);
    }
    return bytes;
}

class RoundTripTest : public SrvfsTest {
protected:
    void Serve(uint16_t status, const int32_t* result, const std::vector<uint8_t>& content,
               uint16_t resultLen = 4) {
        std::vector<uint8_t> frame = BuildReply(status, kUri, DXMP_METHOD_GET, result, content, resultLen);
        srvfs().AddService(kServiceName,
                           [frame](const std::vector<uint8_t>&) { return ScriptedReply{frame}; });
    }
    VW_RESULT_TYPE Get() {
        return ProcMsg_Get<_FaceRecPopUpPara>(&request_.ctIn, kUri, DXMP_METHOD_GET, DXMP_ITEM_CHANNEL_ID,
                                              101);
    }
    RequestRecords request_;
};

TEST_F(RoundTripTest, LongerContentLeavesAZeroFilledRecord) {
    const int32_t code = 3;
    Serve(200, &code, Pattern(17));
    LogCapture log;
    EXPECT_EQ(Get(), 3);
    ASSERT_NE(request_.ctIn.runOut, nullptr);
    EXPECT_EQ(memcmp(request_.ctIn.runOut, std::vector<uint8_t>(16, 0).data(), 16), 0);
    std::vector<DebugLine> lines = log.Find("[LogVKSFrameWork]:memcpy_s failed");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, VKS_LOG_ERROR);
    EXPECT_EQ(lines[0].file, VKS_SRC_DXMP_COMM_FROM_TASK);
}

TEST_F(RoundTripTest, ShorterContentStoresNothing) {
    const int32_t code = 9;
    Serve(200, &code, Pattern(15));
    LogCapture log;
    EXPECT_EQ(Get(), 9);
    EXPECT_EQ(request_.ctIn.runOut, nullptr);
    EXPECT_TRUE(log.Has(VKS_LOG_TRACE, "[LogVKSFrameWork]:no dxmp_content"));
}

TEST_F(RoundTripTest, ResultItemDecidesTheCode) {
    const int32_t twelve = 12;
    const int32_t seven = 7;
    const struct {
        uint16_t status;
        const int32_t* result;
        uint16_t resultLen;
        size_t content;
        VW_RESULT_TYPE expected;
        bool stored;
    } cases[] = {
        {500, &twelve, 4, 16, 12, false},  // a failed exchange still reports the service's code
        {500, nullptr, 4, 16, -1, false},  // ... or -1 without one
        {200, &seven, 7, 16, 7, true},     // 4 to 7 bytes are accepted
        {200, &seven, 8, 16, 0, true},     // 8 bytes are not: a valid exchange without code is 0
        {200, &seven, 3, 16, 0, true},    {200, nullptr, 4, 0, 0, false},
    };
    for (const auto& c : cases) {
        Serve(c.status, c.result, Pattern(c.content), c.resultLen);
        RequestRecords request;
        LogCapture log;
        EXPECT_EQ(ProcMsg_Get<_FaceRecPopUpPara>(&request.ctIn, kUri, 2, DXMP_ITEM_CHANNEL_ID, 101),
                  c.expected)
            << c.status << "/" << c.resultLen;
        EXPECT_EQ(request.ctIn.runOut != nullptr, c.stored);
        if (c.expected == 0) {
            const std::string rejected = "[LogVKSFrameWork]:Failed to dxmp_header_get, dataLen is " +
                                         std::to_string(c.result ? c.resultLen : 0) +
                                         ", sizeof  RESULT_TYPE_E is 4";
            EXPECT_TRUE(log.Has(VKS_LOG_ERROR, rejected)) << rejected;
        }
        srvfs().RemoveService(kServiceName);
    }
}

TEST_F(RoundTripTest, PutReplyRecordMustHaveTheExactLength) {
    const int32_t ok = 0;
    const struct {
        size_t content;
        VW_RESULT_TYPE expected;
        bool stored;
    } cases[] = {{16, 0, true}, {17, 18, false}, {15, 0, false}};
    for (const auto& c : cases) {
        Serve(200, &ok, Pattern(c.content));
        RequestRecords request;
        request.ctIn.parseOut = calloc(1, sizeof(_FaceRecPopUpPara));
        LogCapture log;
        EXPECT_EQ(ProcMsg_Put<_FaceRecPopUpPara>(&request.ctIn, kUri, 3, DXMP_ITEM_CHANNEL_ID, 101),
                  c.expected);
        EXPECT_EQ(request.ctIn.runOut != nullptr, c.stored) << c.content;
        if (c.content == 17) {
            EXPECT_TRUE(log.Has(VKS_LOG_ERROR,
                                "[LogVKSFrameWork]:length not match sizeof(T) is 16 but contentLen is 17"));
        }
        srvfs().RemoveService(kServiceName);
    }
}

TEST_F(RoundTripTest, MissingRecordOrInterchangeFailsBeforeAMessage) {
    LogCapture log;
    EXPECT_EQ(ProcMsg_Put<_FaceRecPopUpPara>(&request_.ctIn, kUri, 3, DXMP_ITEM_CHANNEL_ID, 101), -1);
    EXPECT_EQ(ProcMsg_Put<_FaceRecPopUpPara>(nullptr, kUri, 3, DXMP_ITEM_CHANNEL_ID, 101), -1);
    EXPECT_EQ(ProcMsg_Get<_FaceRecPopUpPara>(nullptr, kUri, 2, DXMP_ITEM_CHANNEL_ID, 101), -1);
    EXPECT_EQ(log.Find("[LogVKSFrameWork]:Invalid Param").size(), 3u);
    // Nothing reached the service file system: no connection was even opened.
    EXPECT_TRUE(srvfs().Ioctls(kServiceName).empty());
}

// ---- ParseMsg: no transport involved ----

struct BodyCase {
    const char* body;
    VW_RESULT_TYPE expected;
    int32_t black;
    int32_t white;
};

class ParseMsgTest : public ::testing::TestWithParam<BodyCase> {};

TEST_P(ParseMsgTest, BuildsTheRecordFromTheBody) {
    const BodyCase& c = GetParam();
    RequestRecords request;
    BodyBuffer content(c.body);
    LogCapture log;
    ASSERT_EQ(ParseMsg<_FaceRecPopUpPara>(&request.ctIn, &content.buf), c.expected) << c.body;
    if (c.expected != 0) {
        EXPECT_EQ(request.ctIn.parseOut, nullptr);
        EXPECT_TRUE(log.Has(VKS_LOG_ERROR, "[LogVKSFrameWork]:Failed to json_decode"));
        return;
    }
    ASSERT_NE(request.ctIn.parseOut, nullptr);
    const _FaceRecPopUpPara* record = static_cast<const _FaceRecPopUpPara*>(request.ctIn.parseOut);
    EXPECT_EQ(record->channelId, 101u);
    EXPECT_EQ(record->blackPopUp, c.black);
    EXPECT_EQ(record->whitePopUp, c.white);
}

INSTANTIATE_TEST_SUITE_P(
    Bodies, ParseMsgTest,
    ::testing::Values(BodyCase{R"({"blackPopUp": true, "whitePopUp": 2.9})", 0, 1, 2},
                      BodyCase{R"({"blackPopUp": -1.5})", 0, 0, 0},
                      BodyCase{R"({"whitePopUp": "1"})", -1, 0, 0},
                      BodyCase{R"({"whitePopUp": null})", 0, 0, 0}, BodyCase{"{}", 0, 0, 0},
                      BodyCase{R"({"blackPopUp": 1.7, "whitePopUp": -3.5})", 0, 1, 0},
                      BodyCase{R"({"whitePopUp": 5e10})", 0, 0, -1},       // saturates at 4294967295
                      BodyCase{R"({"whitePopUp": 4294967297})", 0, 0, 1},  // low 32 bits
                      BodyCase{R"({"blackPopUp": null, "whitePopUp": 1})", 0, 0, 1},
                      BodyCase{R"({"blackPopUp": false, "other": "x"})", 0, 0, 0},
                      BodyCase{R"({"blackPopUp": 1, "whitePopUp": [1]})", -1, 0, 0},
                      BodyCase{R"({"blackPopUp": {}})", -1, 0, 0}, BodyCase{"not json", -1, 0, 0},
                      BodyCase{"", -1, 0, 0}, BodyCase{"null", -1, 0, 0},
                      // JSON without keys keeps the starting record
                      BodyCase{"[1]", 0, 0, 0}, BodyCase{R"([{"blackPopUp": 1}])", 0, 0, 0},
                      BodyCase{"7", 0, 0, 0},
                      // integers above INT64_MAX reach the member clamped to INT64_MAX
                      BodyCase{R"({"whitePopUp": 9223372036854775808})", 0, 0, -1}));

TEST(ParseMsg, StartsFromTheFetchedRecord) {
    RequestRecords request;
    _FaceRecPopUpPara* fetched = static_cast<_FaceRecPopUpPara*>(malloc(sizeof(_FaceRecPopUpPara)));
    ASSERT_NE(fetched, nullptr);
    *fetched = {7, 5, 6};
    request.ctIn.preProcOut = fetched;
    BodyBuffer content(R"({"whitePopUp": 0})");
    ASSERT_EQ(ParseMsg<_FaceRecPopUpPara>(&request.ctIn, &content.buf), 0);
    const _FaceRecPopUpPara* record = static_cast<const _FaceRecPopUpPara*>(request.ctIn.parseOut);
    EXPECT_EQ(record->channelId, 7u);
    EXPECT_EQ(record->blackPopUp, 5);
    EXPECT_EQ(record->whitePopUp, 0);
}

TEST(ParseMsg, NullArgumentsAreRefused) {
    RequestRecords request;
    BodyBuffer content("{}");
    LogCapture log;
    EXPECT_EQ(ParseMsg<_FaceRecPopUpPara>(nullptr, &content.buf), -1);
    EXPECT_EQ(ParseMsg<_FaceRecPopUpPara>(&request.ctIn, nullptr), -1);
    EXPECT_EQ(request.ctIn.parseOut, nullptr);
    EXPECT_EQ(log.Find("[LogVKSFrameWork]:Invalid Param").size(), 2u);
}

}  // namespace
}  // namespace vks_test
