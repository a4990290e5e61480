// The history query (7032) and deletion (22026) handlers against a scripted peer, with result files
// in a temporary directory.
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
    HistoryRecordQueryPara Sent() const {
        HistoryRecordQueryPara para;
        memcpy(&para, peer.Requests().at(0).payload.data(), sizeof(para));
        return para;
    }

    cmdtest::TempDir dir;
    std::string sock = dir.File("cmd.sock");
    cmdtest::ScriptedPeer peer{sock};
    std::string replyPath;
    int32_t serviceResult = 0;
    vks_test::LogCapture log;
};

TEST_F(HistoryTest, EachRequiredParameterMissingEndsTheRequestBeforeSending) {
    const char* keys[] = {"StartIndex", "FindNum", "EndTime", "DatabaseType"};
    for (const char* key : keys) {
        SCOPED_TRACE(key);
        std::string url = kFull;
        size_t at = url.find(std::string(key) + "=");
        url.replace(at, 1, "X");  // the key is no longer there
        cmdtest::Request rq(url, sock);
        EXPECT_EQ(4, Run(&rq));
        EXPECT_TRUE(log.Has(1, "[ZKAPI]:RunGetMultiTaskAppHistoryRecords, Query param get failed"));
        log.Clear();
    }
    EXPECT_TRUE(peer.Requests().empty());
    EXPECT_TRUE(log.OpLog().empty());
}

TEST_F(HistoryTest, QueryRecordCarriesEveryParameterAtItsOffset) {
    replyPath = dir.File("r.json");
    cmdtest::WriteFile(replyPath, "{\"Records\":[]}");
    cmdtest::Request rq(kFull, sock);
    ASSERT_EQ(0, Run(&rq));
    const cmdframe::Request sent = peer.Requests().at(0);
    EXPECT_EQ(static_cast<uint32_t>(VW_CMD_GET_HISTORY_RECORDS), sent.cmd);
    EXPECT_EQ(cmdframe::kOpMsg, sent.op);
    EXPECT_EQ(0, sent.msgType);
    ASSERT_EQ(static_cast<size_t>(VW_CMD_BODY_LEN), sent.payload.size());
    HistoryRecordQueryPara p = Sent();
    EXPECT_STREQ("2024-05-01T08:00:00", p.StartTime);
    EXPECT_STREQ("2024-05-01T12:00:00", p.EndTime);
    EXPECT_EQ(101u, p.ChannelId);
    EXPECT_EQ(1u, p.DatabaseType);
    EXPECT_EQ(3u, p.FirstAttri);
    EXPECT_EQ(4u, p.SecondAttri);
    EXPECT_EQ(9u, p.LibId);
    EXPECT_EQ(5u, p.FindNum);
    EXPECT_EQ(2u, p.StartIndex);
    for (size_t i = 336; i < sent.payload.size(); ++i) {
        ASSERT_EQ(0, sent.payload[i]) << "byte " << i;
    }
    EXPECT_STREQ("{\"Records\":[]}", static_cast<char*>(rq.ctIn.runOut));
    EXPECT_FALSE(cmdtest::FileExists(replyPath));
    ASSERT_EQ(2u, log.OpLog().size());
    EXPECT_EQ(
        "admin[10.0.0.7:51234] Get History Record Successfully. StartIndex: 2, FindNum 5, StartTime: "
        "2024-05-01T08:00:00, EndTime: 2024-05-01T12:00:00, ChannleId: 101, DataBaseType: 1, FirstAttriType: "
        "3, "
        "SecondAttriType: 4, LibId: 9",
        log.OpLog()[0].english);
    EXPECT_EQ(
        "admin[10.0.0.7:51234] 获取历史记录成功. 起始索引: 2, 查询数量: 5, 开始时间：2024-05-01T08:00:00, "
        "结束时间: 2024-05-01T12:00:00, 所属设备: 101, 数据库类型: 1, 一级属性: 3, 二级属性: 4, 人脸库ID: 9",
        log.OpLog()[0].chinese);
}

TEST_F(HistoryTest, OptionalParametersMissingStayZeroWithOneLineEach) {
    replyPath = dir.File("empty.json");
    cmdtest::WriteFile(replyPath, "");
    cmdtest::Request rq("/api/MultiTaskAppHistoryRecords?StartIndex=0&FindNum=1&EndTime=e&DatabaseType=2",
                        sock);
    ASSERT_EQ(0, Run(&rq));
    HistoryRecordQueryPara p = Sent();
    EXPECT_STREQ("", p.StartTime);
    EXPECT_EQ(0u, p.ChannelId + p.FirstAttri + p.SecondAttri + p.LibId);
    EXPECT_EQ(5u, log.Find("[ZKAPI]:RunGetMultiTaskAppHistoryRecords, Query param get failed").size());
    // A zero-byte result is an empty body, and the file is gone.
    ASSERT_NE(nullptr, rq.ctIn.runOut);
    EXPECT_STREQ("", static_cast<char*>(rq.ctIn.runOut));
    EXPECT_FALSE(cmdtest::FileExists(replyPath));
    EXPECT_EQ(0, FormatGetMultiTaskAppHistoryRecords(&rq.header, 0, &rq.ctIn, &rq.out));
    EXPECT_TRUE(log.Has(1, "[ZKAPI]:FormatGetMultiTaskAppHistoryRecords"));
}

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

TEST_F(HistoryTest, FailuresGiveTheirResultAndTheFailPair) {
    const FailCase cases[] = {
        {"service result", 5, "x.json", 5, "[ZKAPI]:RestSendSynUnixMsg Result[5] is not match 0"},
        {"path does not resolve", 0, "missing.json", 1, "[ZKAPI]:get face list path failed!"},
        // The channel's own socket resolves but cannot be opened as a file.
        {"size not available", 0, "cmd.sock", 1, "[ZKAPI]:get file size fail:-1"},
    };
    for (const FailCase& c : cases) {
        SCOPED_TRACE(c.name);
        log.Clear();
        serviceResult = c.serviceResult;
        replyPath = dir.File(c.path);
        cmdtest::Request rq(kFull, sock);
        EXPECT_EQ(c.expected, Run(&rq));
        EXPECT_TRUE(log.Has(3, c.line));
        EXPECT_EQ(nullptr, rq.ctIn.runOut);
        ASSERT_EQ(2u, log.OpLog().size());
        EXPECT_EQ(
            0u, log.OpLog()[0].english.find("admin[10.0.0.7:51234] Get History Record fail. StartIndex: 2"));
        EXPECT_EQ(0u, log.OpLog()[1].chinese.find("admin[10.0.0.7:51234] 获取历史记录失败. 起始索引: 2"));
        EXPECT_EQ(2, log.OpLog()[0].dest);
        EXPECT_EQ(1, log.OpLog()[1].dest);
    }
    EXPECT_TRUE(log.Has(3, "[ZKAPI]:Get file size, fopen " + sock + " err:No such device or address"));
    EXPECT_TRUE(cmdtest::FileExists(sock));
}

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

// ---- Deletion ----

class DeleteTest : public HistoryTest {
protected:
    // Parse and Run of a DELETE; the deletion record the peer received.
    HistoryRecordDeletePara Delete(cmdtest::Request* rq) {
        EXPECT_EQ(0, ParseDeleteMultiTaskAppHistoryRecords(&rq->header, &rq->content, &rq->ctIn));
        EXPECT_EQ(0, RunDeleteMultiTaskAppHistoryRecords(&rq->header, &rq->client, &rq->ctIn));
        const cmdframe::Request sent = peer.Requests().back();
        EXPECT_EQ(static_cast<uint32_t>(VW_CMD_DELETE_HISTORY_RECORDS), sent.cmd);
        EXPECT_EQ(cmdframe::kOpSet, sent.op);
        EXPECT_EQ(static_cast<size_t>(VW_CMD_BODY_LEN), sent.payload.size());
        for (size_t i = sizeof(HistoryRecordDeletePara); i < sent.payload.size(); ++i) {
            EXPECT_EQ(0, sent.payload[i]) << "byte " << i;
        }
        HistoryRecordDeletePara para;
        memcpy(&para, sent.payload.data(), sizeof(para));
        return para;
    }
};

TEST_F(DeleteTest, BothTimesDeleteThatRangeAsSent) {
    cmdtest::Request rq("/api/MultiTaskAppHistoryRecords?StartTime=2024-05-01T08:00:00&EndTime=a%20b", sock);
    rq.SetBody("{\"ignored\": true}");
    HistoryRecordDeletePara p = Delete(&rq);
    EXPECT_EQ(3, p.deleteType);
    EXPECT_STREQ("2024-05-01T08:00:00", p.startTime);
    EXPECT_STREQ("a b", p.endTime);
    EXPECT_EQ(0, FormatDeleteMultiTaskAppHistoryRecords(&rq.header, 0, &rq.ctIn, &rq.out));
    ASSERT_EQ(2u, log.OpLog().size());
    EXPECT_EQ(
        "admin[10.0.0.7:51234] Delete History Record Successfully. DeleteType: 3, StartTime: "
        "2024-05-01T08:00:00, EndTime: a b",
        log.OpLog()[0].english);
}

TEST_F(DeleteTest, EitherTimeMissingDeletesWithoutRange) {
    const char* urls[] = {"/api/MultiTaskAppHistoryRecords?EndTime=2024",
                          "/api/MultiTaskAppHistoryRecords?StartTime=2024",
                          "/api/MultiTaskAppHistoryRecords"};
    for (const char* url : urls) {
        SCOPED_TRACE(url);
        log.Clear();
        cmdtest::Request rq(url, sock);
        HistoryRecordDeletePara p = Delete(&rq);
        EXPECT_EQ(4, p.deleteType);
        EXPECT_EQ(std::string(32, '\0'), std::string(p.startTime, 32));
        EXPECT_EQ(std::string(32, '\0'), std::string(p.endTime, 32));
        EXPECT_EQ(1u,
                  log.Find("[ZKAPI]:ParseDeleteMultiTaskAppHistoryRecords, Query param get failed").size());
        EXPECT_EQ(0, FormatDeleteMultiTaskAppHistoryRecords(&rq.header, 2, &rq.ctIn, &rq.out));
        ASSERT_EQ(2u, log.OpLog().size());
        EXPECT_EQ("admin[10.0.0.7:51234] Delete History Record fail. DeleteType: 4, StartTime: , EndTime: ",
                  log.OpLog()[0].english);
        EXPECT_EQ("admin[10.0.0.7:51234] 删除历史记录失败. 删除类型: 4, 开始时间: , 结束时间: ",
                  log.OpLog()[0].chinese);
    }
}

}  // namespace
