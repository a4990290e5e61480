// The synchronous exchange against a scripted service on the real service file system: the edges
// the cases of the golden transcript (tests/transcript) never take. Their items, content, trace lines
// and replies are in the transcript.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "app/parse_model/com/vksapi_dxmp_comm.h"
#include "log_capture.h"
#include "module_test_util.h"
#include "srvfs_fixture.h"
#include "srvfs_ioctl.h"
#include "vks_log.h"

namespace vks_test {
namespace {

const uint16_t kUri = 1202;
const int32_t kResultOk = 0;

class SyncExchangeTest : public SrvfsTest {
protected:
    void SetUp() override {
        SrvfsTest::SetUp();
        msg_ = dxmp_message_new(0);
        ASSERT_NE(msg_, nullptr);
    }
    void TearDown() override {
        dxmp_message_put(msg_);
        SrvfsTest::TearDown();
    }
    // The service answers every request with reply.
    void Answer(uint16_t status, uint16_t uri) {
        std::vector<uint8_t> frame = BuildReply(status, uri, DXMP_METHOD_GET, &kResultOk, {});
        srvfs().AddService(kServiceName,
                           [frame](const std::vector<uint8_t>&) { return ScriptedReply{frame}; });
    }
    bool HasFrameworkError(const LogCapture& log, const std::string& text) {
        for (const DebugLine& line : log.Find("[LogVKSFrameWork]:" + text)) {
            if (line.level == VKS_LOG_ERROR && line.file == VKS_SRC_DXMP_COMM && line.module == 4) {
                return true;
            }
        }
        return false;
    }

    dxmp_message* msg_ = nullptr;
};

TEST_F(SyncExchangeTest, RequestWithoutItemOrContentGoesOutEmpty) {
    Answer(200, kUri);
    msg_->pFixedHeader[DXMP_HDR_BYTE2] = 0x5A;
    DXMPMsgData data = {{DXMP_ITEM_CHANNEL_ID, nullptr, 8}, nullptr, 4, kUri, 0x82};
    EXPECT_EQ(SyncBlockDXMPMsgInteraction(msg_, &data), 0);
    DecodedFrame request = OnlyRequest(srvfs());
    ASSERT_TRUE(request.ok);
    EXPECT_EQ(request.uri, kUri);
    EXPECT_EQ(request.byte2, 0);
    EXPECT_EQ(request.flagsMethod & 0x7F, 2);  // only the low 7 bits of the method are taken
    EXPECT_TRUE(request.itemOrder.empty());
    EXPECT_TRUE(request.content.empty());
}

TEST_F(SyncExchangeTest, RefusedItemIsLoggedAndSkipped) {
    Answer(200, kUri);
    LogCapture log;
    // The library holds at most DXMP_MAX_ITEMS items: the one after them is refused.
    std::vector<uint32_t> values(DXMP_MAX_ITEMS + 1, 0);
    DXMPMultiMsgData data = {{}, nullptr, 0, kUri, DXMP_METHOD_GET};
    for (size_t i = 0; i < values.size(); ++i) {
        values[i] = static_cast<uint32_t>(i);
        data.headers.push_back({static_cast<uint16_t>(0xC000 + i), &values[i], 4});
    }
    data.headers.push_back({0xD000, nullptr, 4});  // skipped silently
    data.headers.push_back({0xD001, &values[0], 0});
    ASSERT_EQ(SyncBlockDXMPMultiMsgInteraction(msg_, &data), 0);
    DecodedFrame request = OnlyRequest(srvfs());
    EXPECT_EQ(request.itemOrder.size(), static_cast<size_t>(DXMP_MAX_ITEMS));
    EXPECT_EQ(request.itemOrder.front(), 0xC000);
    const std::string refused =
        "failed to dxmp_header_set headtype:" + std::to_string(0xC000 + DXMP_MAX_ITEMS);
    EXPECT_TRUE(HasFrameworkError(log, refused));
    EXPECT_EQ(log.Find("[LogVKSFrameWork]:msgData headerLen = 4").size(), values.size());
}

TEST_F(SyncExchangeTest, ItemLengthGoesOutCutTo16Bits) {
    Answer(200, kUri);
    std::vector<uint8_t> value(65536 + 8, 0xAB);
    DXMPMsgData data = {{0xB0F0, value.data(), static_cast<uint32_t>(value.size())}, nullptr, 0, kUri, 2};
    ASSERT_EQ(SyncBlockDXMPMsgInteraction(msg_, &data), 0);
    DecodedFrame request = OnlyRequest(srvfs());
    EXPECT_EQ(request.items[0xB0F0].size(), 8u);
}

TEST_F(SyncExchangeTest, MissingServiceSendsNothingAndLeavesNoDescriptor) {
    LogCapture log;
    int before = OpenDescriptorCount();
    DXMPMsgData data = {{0, nullptr, 0}, nullptr, 0, kUri, DXMP_METHOD_GET};
    EXPECT_EQ(SyncBlockDXMPMsgInteraction(msg_, &data), -1);
    DXMPMultiMsgData several = {{}, nullptr, 0, kUri, DXMP_METHOD_GET};
    EXPECT_EQ(SyncBlockDXMPMultiMsgInteraction(msg_, &several), -1);
    EXPECT_EQ(OpenDescriptorCount(), before);
    EXPECT_TRUE(srvfs().Requests(kServiceName).empty());
    EXPECT_EQ(log.Find("[LogVKSFrameWork]:open server errono is: No such file or directory, file "
                       "/mnt/srvfs/itgt.paas.vks")
                  .size(),
              2u);
}

TEST_F(SyncExchangeTest, SilentServiceFailsAfterTheTimeOut) {
    srvfs().SetTimeoutCapMs(300);
    srvfs().AddService(kServiceName, [](const std::vector<uint8_t>&) {
        ScriptedReply reply;
        reply.never = true;
        return reply;
    });
    LogCapture log;
    const int before = OpenDescriptorCount();
    DXMPMsgData data = {{0, nullptr, 0}, nullptr, 0, kUri, DXMP_METHOD_GET};
    EXPECT_EQ(SyncBlockDXMPMsgInteraction(msg_, &data), -1);
    EXPECT_TRUE(HasFrameworkError(log, "Failed to VKSSyncRecv dxmp_message"));
    EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST_F(SyncExchangeTest, NullArgumentsAreRefusedInOrder) {
    LogCapture log;
    DXMPMsgData data = {{0, nullptr, 0}, nullptr, 0, kUri, DXMP_METHOD_GET};
    EXPECT_EQ(SyncBlockDXMPMsgInteraction(msg_, nullptr), -1);
    EXPECT_EQ(SyncBlockDXMPMsgInteraction(nullptr, &data), -1);
    EXPECT_EQ(SyncBlockDXMPMultiMsgInteraction(nullptr, nullptr), -1);
    EXPECT_EQ(log.Find("[LogVKSFrameWork]:msgData is null").size(), 2u);
    EXPECT_EQ(log.Find("[LogVKSFrameWork]:msg is null").size(), 1u);
}

}  // namespace
}  // namespace vks_test
