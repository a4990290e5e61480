// The null-argument forms of the history-switch (22025) and display-flag (7037) handlers. Their roads,
// wire bytes and log lines (with the switch of each line's form) are in the golden transcript
// (tests/alloc/transcript_test.cpp).
#include <gtest/gtest.h>
#include <stdio.h>

#include "cmd_test_util.h"
#include "log_capture.h"
#include "vks_multi_task_records.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"

namespace {

class SettingsTest : public ::testing::Test {
protected:
    cmdtest::TempDir dir;
    std::string sock = dir.File("cmd.sock");
    cmdtest::ScriptedPeer peer{sock};
    vks_test::LogCapture log;
};

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

}  // namespace
