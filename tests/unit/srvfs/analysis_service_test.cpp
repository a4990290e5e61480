// The emulated analysis service through the real service file system: what each command answers,
// what a put leaves in the state file, and each configurable fault.
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "analysis_service.h"
#include "dxmp_message.h"
#include "srvfs/file_system.h"
#include "srvfs_client.h"
#include "srvfs_fixture.h"

namespace vks_test {
namespace {

class AnalysisServiceTest : public SrvfsTest {
protected:
    void SetUp() override {
        SrvfsTest::SetUp();
        char dir[] = "/tmp/vks-analysis-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(dir));
        dir_ = dir;
        dbPath_ = dir_ + "/state/emulator.db";  // the directory is created on open
        StartService();
    }
    void TearDown() override {
        SrvfsTest::TearDown();
        std::filesystem::remove_all(dir_);
    }
    void StartService() {
        std::string error;
        store_ = analysis::AnalysisStore::Open(dbPath_, &error);
        ASSERT_NE(nullptr, store_) << error;
        srvfs().FileSystem().AddService(ANALYSIS_SERVICE_NAME,
                                        std::make_shared<analysis::AnalysisService>(store_, faults_));
    }
    ParsedReply Ask(const std::vector<uint8_t>& request) {
        std::vector<uint8_t> frame;
        ParsedReply reply;
        EXPECT_EQ(0, Exchange(ANALYSIS_SERVICE_NAME, request, &frame, 3000)) << strerror(errno);
        EXPECT_EQ(0, ParseReply(frame, &reply));
        return reply;
    }
    template <typename T>
    T Record(const ParsedReply& reply) {
        T record{};
        EXPECT_EQ(sizeof(T), reply.content.size());
        memcpy(&record, reply.content.data(), std::min(sizeof(T), reply.content.size()));
        return record;
    }
    std::vector<uint8_t> EnableListRequest(uint64_t channel, int32_t group,
                                           const std::vector<uint8_t>* block) {
        std::vector<Item> items{{DXMP_ITEM_CHANNEL_ID, BytesOf(channel)}};
        if (block != nullptr) {
            items.push_back({DXMP_ITEM_ENABLE_LIST_REQ, *block});
        }
        items.push_back({DXMP_ITEM_CHANNEL_GROUP, BytesOf(group)});
        return RequestFrameWithItems(VKS_URI_TASKS_ENABLE_LIST, DXMP_METHOD_GET, items, {});
    }

    std::string dir_;
    std::string dbPath_;
    std::shared_ptr<analysis::AnalysisStore> store_;
    std::shared_ptr<analysis::FaultTable> faults_ = std::make_shared<analysis::FaultTable>();
};

std::vector<uint8_t> RequestBlock(const std::string& text, uint32_t msgCount = 1, int lengthSkew = 0) {
    std::vector<uint8_t> block(sizeof(VW_JSON_MSG_S) + text.size() + 1, 0);
    VW_JSON_MSG_S head{};
    head.bufferLen = static_cast<uint32_t>(text.size() + 1 + lengthSkew);
    head.msgCount = msgCount;
    memcpy(block.data(), &head, sizeof(head));
    memcpy(block.data() + sizeof(head), text.c_str(), text.size());
    return block;
}

// That a PUT is stored and survives a restart is checked end to end (tests/integration).
TEST_F(AnalysisServiceTest, PopUpPutIsAcknowledgedWithoutContentAndAShortOneRefused) {
    auto before = Record<_FaceRecPopUpPara>(Ask(RequestFrame(VKS_URI_FACE_REC_POPUP, DXMP_METHOD_GET, {})));
    EXPECT_EQ(101u, before.channelId);
    EXPECT_EQ(1, before.blackPopUp);
    EXPECT_EQ(0, before.whitePopUp);

    _FaceRecPopUpPara put{101, 0, -1};
    ParsedReply answer = Ask(RequestFrame(VKS_URI_FACE_REC_POPUP, DXMP_METHOD_PUT, BytesOf(put)));
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(0x83, answer.flagsMethod);
    EXPECT_TRUE(answer.content.empty());
    EXPECT_EQ(
        -1,
        Record<_FaceRecPopUpPara>(Ask(RequestFrame(VKS_URI_FACE_REC_POPUP, DXMP_METHOD_GET, {}))).whitePopUp);

    ParsedReply shortPut = Ask(RequestFrame(VKS_URI_FACE_REC_POPUP, DXMP_METHOD_PUT, {1, 2, 3}));
    EXPECT_EQ(ANALYSIS_RESULT_BAD_REQUEST, shortPut.result);
}

// Selection by channel and group, both ways, is checked end to end (tests/integration).
TEST_F(AnalysisServiceTest, EnableListHoldsAtMost32Tasks) {
    for (int i = 0; i < 40; ++i) {
        _VW_TaskEnable_S task{};
        task.channelId = 1000 + static_cast<uint64_t>(i);
        ASSERT_EQ(0, store_->AddTask(3, task));
    }
    auto list = Record<_VW_TasksEnableList_S>(Ask(EnableListRequest(0, 3, nullptr)));
    EXPECT_EQ(32u, list.taskNum);
    EXPECT_EQ(1031u, list.taskEnable[31].channelId);
}

TEST_F(AnalysisServiceTest, BadRequestBlockGetsANonZeroResultAndNoList) {
    const std::vector<uint8_t> bad[] = {
        RequestBlock("PUT /api/MultiTaskAppTaskModesEnableList"),
        RequestBlock("GET /api/x", 0),
        RequestBlock("GET /api/x", 1, 1),
        std::vector<uint8_t>(100, 0),
    };
    for (const auto& block : bad) {
        ParsedReply reply = Ask(EnableListRequest(0, 0, &block));
        EXPECT_EQ(ANALYSIS_RESULT_BAD_REQUEST, reply.result);
        EXPECT_TRUE(reply.content.empty());
    }
}

TEST_F(AnalysisServiceTest, FaultsChangeTheReplyAsConfigured) {
    struct Case {
        const char* option;
        const char* value;
        uint16_t status;
        uint16_t uri;
        int32_t result;
        size_t contentSize;
    };
    const Case cases[] = {
        {"--fault-result", "1202:12", 200, 1202, 12, 24},
        {"--fault-status", "all:500", 500, 1202, 0, 24},
        {"--fault-wrong-uri", "1202", 200, 1203, 0, 24},
        {"--fault-content-length", "1202:23", 200, 1202, 0, 23},
        {"--fault-content-length", "all:25", 200, 1202, 0, 25},
        {"--fault-delay", "1202:100", 200, 1202, 0, 24},
        {"--fault-result", "1203:9", 200, 1202, 0, 24},
    };
    for (const Case& c : cases) {
        faults_->Clear();
        ASSERT_TRUE(faults_->ParseOption(c.option, c.value)) << c.option;
        ParsedReply reply = Ask(RequestFrame(VKS_URI_AVAILABLE_LIST, DXMP_METHOD_GET, {}));
        EXPECT_EQ(c.status, reply.status) << c.option << "=" << c.value;
        EXPECT_EQ(c.uri, reply.uri) << c.option << "=" << c.value;
        EXPECT_EQ(c.result, reply.result) << c.option << "=" << c.value;
        EXPECT_EQ(c.contentSize, reply.content.size()) << c.option << "=" << c.value;
    }
}

TEST_F(AnalysisServiceTest, ForcedResultLeavesThePutUnstored) {
    ASSERT_TRUE(faults_->ParseOption("fault-result", "229:7"));
    _FaceRecPopUpPara put{101, 5, 5};
    EXPECT_EQ(7, Ask(RequestFrame(VKS_URI_FACE_REC_POPUP, DXMP_METHOD_PUT, BytesOf(put))).result);
    faults_->Clear();
    EXPECT_EQ(
        1,
        Record<_FaceRecPopUpPara>(Ask(RequestFrame(VKS_URI_FACE_REC_POPUP, DXMP_METHOD_GET, {}))).blackPopUp);
}

TEST_F(AnalysisServiceTest, DelayedAndMissingRepliesAreNotReadableEarly) {
    ASSERT_TRUE(faults_->ParseOption("fault-delay", "1201:300"));
    ASSERT_TRUE(faults_->ParseOption("fault-no-reply", "1203"));
    int fd = open(ServicePath(ANALYSIS_SERVICE_NAME).c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(0, WriteAll(fd, EnableListRequest(0, 0, nullptr)));
    pollfd pfd{fd, POLLIN, 0};
    EXPECT_EQ(0, poll(&pfd, 1, 0));
    EXPECT_EQ(1, poll(&pfd, 1, 5000));
    close(fd);

    std::vector<uint8_t> frame;
    EXPECT_EQ(-1, Exchange(ANALYSIS_SERVICE_NAME, RequestFrame(VKS_URI_CAPACITY_LIST, 2, {}), &frame, 100));
    EXPECT_EQ(ETIMEDOUT, errno);
}

TEST(AnalysisFaultOptions, ParsesOnlyWellFormedFaults) {
    struct Case {
        const char* name;
        const char* value;
        bool accepted;
    };
    const Case cases[] = {
        {"fault-delay", "1201:200", true},
        {"--fault-no-reply", "all", true},
        {"fault-wrong-uri", "229", true},
        {"fault-delay", "1201", false},
        {"fault-delay", "x:1", false},
        {"fault-no-reply", "229:1", false},
        {"fault-status", "all:70000", false},
        {"fault-bogus", "all:1", false},
        {"db", "/tmp/x", false},
        {"fault-content-length", "1202:-1", false},
    };
    for (const Case& c : cases) {
        analysis::FaultTable table;
        EXPECT_EQ(c.accepted, table.ParseOption(c.name, c.value)) << c.name << "=" << c.value;
    }
}

}  // namespace
}  // namespace vks_test
