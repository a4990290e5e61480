// Every resource and method through the access server's phase runner and the real module, against
// a scripted analysis service and command-channel peer, failing each allocation in turn; then the
// codec and the status envelope on their own.
#include <event2/event.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <cstdlib>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "body_buffer.h"
#include "failing_alloc.h"
#include "host_in_process.h"
#include "json_codec/record_bindings.h"
#include "tls.h"
#include "vks_multi_task_records.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"

namespace {

struct Chain {
    vks_test::TestRequest request;
    std::set<int> codes;  // results the module documents for a failed allocation on this request
};

const Chain kChains[] = {
    {{"MultiTaskAppTaskModesAvailableList", "GET", "", ""}, {18, -1}},
    {{"MultiTaskAppTaskModesCapacity", "GET", "", ""}, {18, -1}},
    {{"MultiTaskAppTaskModesEnableList", "GET", "?ChannelId=101&ChannelGroup=2", ""}, {18, -1}},
    {{"MultiTaskAppTaskModesEnableList", "GET", "", ""}, {18, -1}},
    {{"MultiTaskAppDisplayRecogPopUps", "GET", "", ""}, {18, -1}},
    {{"MultiTaskAppDisplayRecogPopUps", "PUT", "", R"({"blackPopUp": true, "whitePopUp": false})"},
     {18, 4, -1}},
    {{"MultiTaskAppDisplayRecogInfos", "GET", "", ""}, {18, -1}},
    {{"MultiTaskAppDisplayRecogInfos", "PUT", "", R"({"name": true, "matchRate": false})"}, {18, 4, -1}},
    {{"MultiTaskAppHistory", "GET", "?ChannelId=101", ""}, {18, -1}},
    {{"MultiTaskAppHistory", "PUT", "", R"({"channelId": 101, "enableRecord": true})"}, {18, 4, -1}},
    {{"MultiTaskAppHistoryRecords", "GET", "?StartIndex=0&FindNum=5&EndTime=e&DatabaseType=0", ""},
     {18, 4, 1, -1}},
    {{"MultiTaskAppHistoryRecords", "DELETE", "?StartTime=s&EndTime=e", ""}, {18, 4, -1}},
};

class AllocSweep : public vks_test::HostInProcess {
protected:
    AllocSweep() { checkNoRecordOnFailure_ = true; }
};

TEST_F(AllocSweep, EveryResourceAndMethodThroughTheAccessServersPhaseRunner) {
    long total = 0;
    for (const Chain& c : kChains) {
        std::string name = std::string(c.request.method) + " " + c.request.resource + c.request.query;
        total += alloc_sweep::Sweep(
            name.c_str(),
            [&] {
                int result = Serve(c.request);
                std::string().swap(request_.body.text);  // released inside the run
                return result;
            },
            [&](int result) { return c.codes.count(result) != 0; }, 1);
    }
    std::printf("[ alloc    ] phase chains: %ld injected failures\n", total);
}

TEST_F(AllocSweep, CodecAndStatusEnvelope) {
    _VW_TasksEnableList_S list{};
    list.taskNum = 3;
    tagHTTP_HEADER_S header{};
    snprintf(header.szReqUrl, sizeof(header.szReqUrl), "/api/MultiTaskAppTaskModesEnableList");
    vks_host::BodyBuffer body{std::string(), 1 << 20};
    tagHTTP_BUF_S out{};
    vks_host::BindBodyBuffer(&out, &body);
    long total = alloc_sweep::Sweep(
        "json_encode<_VW_TasksEnableList_S>",
        [&] {
            char* text = json_encode<_VW_TasksEnableList_S>(list);
            free(text);
            return text != nullptr ? 0 : -1;
        },
        [](int result) { return result == -1; });
    for (void* runOut : {static_cast<void*>(&list), static_cast<void*>(nullptr)}) {
        tagHTTP_CNTENT_INTER_S ctIn{nullptr, nullptr, runOut};
        total += alloc_sweep::Sweep(
            runOut != nullptr ? "FormatCommonResponse<_VW_TasksEnableList_S>"
                              : "FormatCommonResponse, envelope",
            [&] {
                int r = FormatCommonResponse<_VW_TasksEnableList_S>(&header, 18, &ctIn, &out);
                std::string().swap(body.text);
                return r;
            },
            [](int result) { return result == -1; });
    }
    total += alloc_sweep::Sweep(
        "FormatCommonStatus",
        [&] {
            tagHTTP_CNTENT_INTER_S ctIn{};
            int r = FormatCommonStatus(&header, 4, &ctIn, &out);
            std::string().swap(body.text);
            return r;
        },
        [](int result) { return result == -1; });
    std::printf("[ alloc    ] codec and envelope: %ld injected failures\n", total);
}

// libevent's next allocation fails (its own allocator hook; the sweep's would also fail allocations
// after which libevent 2.1 itself crashes).
bool g_failNextEventAlloc = false;
void* FailingEventMalloc(size_t size) {
    bool fail = g_failNextEventAlloc;
    g_failNextEventAlloc = false;
    return fail ? nullptr : malloc(size);
}

// An HTTPS connection whose bufferevent cannot be made: the TLS session it was handed is freed once.
TEST(TlsConnection, ASessionWithoutItsBuffereventIsFreedOnce) {
    struct event_base* base = event_base_new();
    SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
    ASSERT_TRUE(base != nullptr && ctx != nullptr);
    event_set_mem_functions(&FailingEventMalloc, &realloc, &free);
    g_failNextEventAlloc = true;
    EXPECT_EQ(vks_host::NewConnectionBufferevent(base, ctx), nullptr);
    event_set_mem_functions(&malloc, &realloc, &free);
    EXPECT_EQ(ERR_peek_error(), 0ul) << "an error left for the next session";
    SSL_CTX_free(ctx);
    event_base_free(base);
}

}  // namespace
