// Task-mode counts: the null-argument forms of their handlers. What every road of these resources
// answers, sends and logs is in the golden transcript (tests/alloc/transcript_test.cpp).
#include <cstdio>

#include <gtest/gtest.h>

#include "app/parse_model/multi_task/vksapi_multi_task_module.h"
#include "log_capture.h"
#include "module_test_util.h"
#include "srvfs_fixture.h"
#include "vks_log.h"

namespace vks_test {
namespace {

using Run = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, tagHTTP_CLIENT_S*, tagHTTP_CNTENT_INTER_S*);
using Format = VW_RESULT_TYPE (*)(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*, tagHTTP_BUF_S*);

const struct {
    Run run;
    Format format;
} kCounts[] = {
    {RunGetMultiTaskAppTaskModesAvailableList, FormatGetMultiTaskAppTaskModesAvailableList},
    {RunGetMultiTaskAppTaskModesCapacity, FormatGetMultiTaskAppTaskModesCapacity},
};

class CountsTest : public SrvfsTest {};

TEST_F(CountsTest, NullArgumentsUseTheirForms) {
    for (const auto& res : kCounts) {
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

}  // namespace
}  // namespace vks_test
