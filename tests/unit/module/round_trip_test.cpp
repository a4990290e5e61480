// Typed round trips: the failures before any message, ParseMsg from a fetched record.
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

// What the service answers to each reply shape is in the golden transcript (tests/transcript).
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

// ParseMsg on bodies of every kind: the PopUps PUT cases of the golden transcript.
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
