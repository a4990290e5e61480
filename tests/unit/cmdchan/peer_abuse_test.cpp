// The module's settings reads against a peer that answers with records shorter than the command's:
// the host refuses them (18), so no short block ever reaches a slot or a Format phase.
#include <gtest/gtest.h>

#include "cmd_test_util.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"

namespace {

TEST(CmdPeerAbuse, RecordsShorterThanTheCommandsAreRefusedWithEighteen) {
    cmdtest::TempDir dir;
    cmdtest::ScriptedPeer peer(dir.File("cmd.sock"));
    using RunPhase = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, tagHTTP_CLIENT_S*, tagHTTP_CNTENT_INTER_S*);
    const struct {
        RunPhase run;
        const char* url;
        size_t length;
        int expected;
    } cases[] = {
        {&RunGetMultiTaskAppHistory, "/api/MultiTaskAppHistory?ChannelId=101", 1, 18},
        {&RunGetMultiTaskAppHistory, "/api/MultiTaskAppHistory?ChannelId=101", 15, 18},
        {&RunGetMultiTaskAppHistory, "/api/MultiTaskAppHistory?ChannelId=101", 16, 0},
        {&RunGetMultiTaskAppDisplayRecogInfos, "/api/MultiTaskAppDisplayRecogInfos", 63, 18},
        {&RunGetMultiTaskAppDisplayRecogInfos, "/api/MultiTaskAppDisplayRecogInfos", 64, 0},
    };
    for (const auto& c : cases) {
        peer.SetScript([&c](const cmdframe::Request&, cmdframe::Reply* reply) {
            reply->payload.assign(c.length, 1);
            return true;
        });
        cmdtest::Request rq(c.url, dir.File("cmd.sock"));
        EXPECT_EQ(c.expected, c.run(&rq.header, &rq.client, &rq.ctIn)) << c.url << " " << c.length;
        EXPECT_EQ(c.expected == 0, rq.ctIn.runOut != nullptr) << c.url << " " << c.length;
    }
}

}  // namespace
