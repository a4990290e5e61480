// The history query (7032): result files in a temporary directory and failures of the file helpers.
// Its cases and the deletion (22026) are in the golden transcript (tests/transcript/transcript_test.cpp).
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mount.h>

#include "cmd_test_util.h"
#include "log_capture.h"
#include "shrink_watcher.h"
#include "test_env.h"
#include "vks_multi_task_records.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"

namespace {

const char kFull[] =
    "/api/MultiTaskAppHistoryRecords?StartIndex=2&FindNum=5&EndTime=2024-05-01T12:00:00"
    "&DatabaseType=1&ChannelId=101&StartTime=2024-05-01T08:00:00&FirstAttri=3&SecondAttri=4"
    "&LibId=9";

class HistoryTest : public ::testing::Test {
protected:
    void SetUp() override {
        peer.SetScript([this](const cmdframe::Request& rq, cmdframe::Reply* rp) {
            rp->result = 0;
            if (rq.op == cmdframe::kOpMsg) {
                rp->payload = cmdtest::MsgReply(serviceResult, replyPath);
            }
            return true;
        });
    }
    int Run(cmdtest::Request* rq) {
        return RunGetMultiTaskAppHistoryRecords(&rq->header, &rq->client, &rq->ctIn);
    }

    cmdtest::TempDir dir;
    std::string sock = dir.File("cmd.sock");
    cmdtest::ScriptedPeer peer{sock};
    std::string replyPath;
    int32_t serviceResult = 0;
    vks_test::LogCapture log;
};

TEST_F(HistoryTest, PathUnterminatedWithinItsFieldIsCutTo127Bytes) {
    std::string path = dir.Path() + "/";
    path += std::string(127 - path.size(), 'p');
    ASSERT_EQ(127u, path.size());
    cmdtest::WriteFile(path, "[1]");
    replyPath = path + "XYZ";  // the field holds 128 bytes without a NUL
    cmdtest::Request rq(kFull, sock);
    ASSERT_EQ(0, Run(&rq));
    EXPECT_STREQ("[1]", static_cast<char*>(rq.ctIn.runOut));
    EXPECT_FALSE(cmdtest::FileExists(path));
}

TEST_F(HistoryTest, FileShrinkingAfterItsSizeWasTakenFailsAndStays) {
    replyPath = dir.File("shrinks.json");
    cmdtest::WriteFile(replyPath, "0123456789");
    std::string error;
    std::unique_ptr<cmdchan::ShrinkWatcher> watcher = cmdchan::ShrinkWatcher::Start(replyPath, &error);
    ASSERT_TRUE(watcher) << error;
    cmdtest::Request rq(kFull, sock);
    EXPECT_EQ(1, Run(&rq));
    EXPECT_TRUE(log.Has(3, "[ZKAPI]:fread file fail:5"));
    EXPECT_TRUE(log.Has(3, "[ZKAPI]:GetFileContent Fail!"));
    EXPECT_TRUE(log.Has(0, "[ZKAPI]:Get file size, ftell " + replyPath + " size:10"));
    EXPECT_EQ(nullptr, rq.ctIn.runOut);
    EXPECT_TRUE(cmdtest::FileExists(replyPath));
    ASSERT_EQ(2u, log.OpLog().size());
    EXPECT_NE(std::string::npos, log.OpLog()[0].english.find("Get History Record fail."));
}

struct FailCase {
    const char* name;
    int32_t serviceResult;
    const char* path;  // relative to the temp dir
    int expected;
    const char* line;
};

TEST_F(HistoryTest, NoReplyFailsWithOne) {
    peer.SetScript([](const cmdframe::Request&, cmdframe::Reply*) { return false; });
    cmdtest::Request rq(kFull, sock, 200);
    EXPECT_EQ(1, Run(&rq));
    EXPECT_TRUE(log.Has(3, "[ZKAPI]:Send SynUnixMsg for Getting cmd[7032] failed"));
    EXPECT_EQ(2u, log.OpLog().size());
}

TEST_F(HistoryTest, UnremovableResultFileStillGivesTheBody) {
    std::string why;
    ASSERT_TRUE(vks_test::InPrivateMountNamespace(&why)) << why;
    cmdtest::TempDir results;
    cmdtest::WriteFile(results.File("keep.json"), "{\"TotalNum\":0}");
    // A read-only view of the directory: the file can be read, not removed.
    ASSERT_EQ(0, mount(results.Path().c_str(), results.Path().c_str(), nullptr, MS_BIND, nullptr));
    ASSERT_EQ(0, mount(nullptr, results.Path().c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr));
    replyPath = results.File("keep.json");
    cmdtest::Request rq(kFull, sock);
    EXPECT_EQ(0, Run(&rq));
    umount(results.Path().c_str());
    EXPECT_STREQ("{\"TotalNum\":0}", static_cast<char*>(rq.ctIn.runOut));
    EXPECT_TRUE(log.Has(3, "[ZKAPI]:remove " + replyPath + " failed"));
    EXPECT_TRUE(cmdtest::FileExists(replyPath));
}

TEST_F(HistoryTest, FileHelpersReportTheirFailures) {
    char buf[8];
    EXPECT_EQ(-1, GetFileSize(nullptr, 10));
    EXPECT_EQ(-1, GetFileSize("/tmp", 0));
    EXPECT_TRUE(log.Debug().empty());
    std::string missing = dir.File("none");
    EXPECT_EQ(-1, GetFileSize(missing.c_str(), 10));
    EXPECT_TRUE(log.Has(3, "[ZKAPI]:Get file size, fopen " + missing + " err:No such file or directory"));
    EXPECT_EQ(-1, GetFileContent(nullptr, buf, 1));
    EXPECT_TRUE(log.Has(3, "[ZKAPI]:null point"));
    EXPECT_EQ(-1, GetFileContent(missing.c_str(), buf, 1));
    EXPECT_TRUE(log.Has(3, "[ZKAPI]:open file fail:" + missing));
}

}  // namespace
