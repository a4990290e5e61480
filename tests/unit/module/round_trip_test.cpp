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

// What the service answers to each reply shape is in the golden transcript (tests/alloc).
class RoundTripTest : public SrvfsTest {
protected:
    RequestRecords request_;
};

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
