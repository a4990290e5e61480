// Every resource and method through the access server's phase runner and the real module, against
// a scripted analysis service and command-channel peer, failing each allocation in turn; then the
// codec and the status envelope on their own.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "async_hooks.h"
#include "body_buffer.h"
#include "cmd_test_util.h"
#include "failing_alloc.h"
#include "json_codec/record_bindings.h"
#include "module_table.h"
#include "phases.h"
#include "srvfs_fixture.h"
#include "vks_multi_task_records.h"
#include "vw_log.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"

namespace {

using vks_host::PhaseRequest;

struct Chain {
    const char* resource;
    const char* method;
    const char* query;
    const char* body;
    std::set<int> codes;  // results the module documents for a failed allocation on this road
};

const Chain kChains[] = {
    {"MultiTaskAppTaskModesAvailableList", "GET", "", "", {18, -1}},
    {"MultiTaskAppTaskModesCapacity", "GET", "", "", {18, -1}},
    {"MultiTaskAppTaskModesEnableList", "GET", "?ChannelId=101&ChannelGroup=2", "", {18, -1}},
    {"MultiTaskAppTaskModesEnableList", "GET", "", "", {18, -1}},
    {"MultiTaskAppDisplayRecogPopUps", "GET", "", "", {18, -1}},
    {"MultiTaskAppDisplayRecogPopUps",
     "PUT",
     "",
     R"({"blackPopUp": true, "whitePopUp": false})",
     {18, 4, -1}},
    {"MultiTaskAppDisplayRecogInfos", "GET", "", "", {18, -1}},
    {"MultiTaskAppDisplayRecogInfos", "PUT", "", R"({"name": true, "matchRate": false})", {18, 4, -1}},
    {"MultiTaskAppHistory", "GET", "?ChannelId=101", "", {18, -1}},
    {"MultiTaskAppHistory", "PUT", "?ChannelId=101", R"({"enable": true})", {18, 4, -1}},
    {"MultiTaskAppHistoryRecords",
     "GET",
     "?StartIndex=0&FindNum=5&EndTime=e&DatabaseType=0",
     "",
     {18, 4, 1, -1}},
    {"MultiTaskAppHistoryRecords", "DELETE", "?StartTime=s&EndTime=e", "", {18, 4, -1}},
};

constexpr const char* kResultText = R"({"Records":[{"Id":1}]})";

class AllocSweep : public vks_test::SrvfsTest {
protected:
    void SetUp() override {
        vks_test::SrvfsTest::SetUp();
        // The log library sets itself up on its first line: done here, not inside a swept run.
        VW_WriteLog(0, 3, 0, 0, __FILE__, __LINE__, "alloc sweep: %s", "start");
        std::string err;
        ASSERT_EQ(0, vks_host::LoadModule(VKS_MODULE_PATH, &module_, &err)) << err;
        vks_host::InstallAsynEventHooks();
        ServeRecords();
        peer_.SetScript([this](const cmdframe::Request& rq, cmdframe::Reply* rp) {
            rp->result = 0;
            if (rq.cmd == VW_CMD_GET_HISTORY_RECORDS) {
                rp->payload = cmdtest::MsgReply(0, resultFile_);
            } else if (rq.op == cmdframe::kOpGet) {
                rp->payload.assign(rq.cmd == VW_CMD_HISTORY_SWITCH
                                       ? sizeof(HistoryRecordSwitch)
                                       : sizeof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA),
                                   0);
            }
            return true;
        });
        sock_ = UnixSocketOpen(sockPath_.c_str(), 2000);
        request_.requestBody.reserve(256);  // the bodies are copied in without allocating
    }
    void TearDown() override {
        UnixSocketClose(sock_);
        vks_host::UnloadModule(&module_);
        vks_test::SrvfsTest::TearDown();
    }
    // Every service command answers a zeroed record of its own size with result 0.
    void ServeRecords() {
        srvfs().AddService("itgt.paas.vks", [](const std::vector<uint8_t>& request) {
            uint16_t uri = 0;
            memcpy(&uri, request.data() + DXMP_HDR_URI, sizeof(uri));
            size_t size = uri == VKS_URI_TASKS_ENABLE_LIST ? sizeof(_VW_TasksEnableList_S)
                          : uri == VKS_URI_FACE_REC_POPUP  ? sizeof(_FaceRecPopUpPara)
                                                           : sizeof(_VW_AvailableList_S);
            int32_t ok = 0;
            return vks_test::ScriptedReply{vks_test::BuildReply(
                200, uri, request[DXMP_HDR_FLAGS_METHOD] & 0x7F, &ok, std::vector<uint8_t>(size, 0))};
        });
    }
    // The host's road for one request (the event loop's part done inline): the effective result.
    int Serve(const Chain& c) {
        // The history query removes the result file it read: one for every run, written without malloc.
        int fd = open(resultFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (fd < 0 ||
            write(fd, kResultText, strlen(kResultText)) != static_cast<ssize_t>(strlen(kResultText))) {
            return 99;
        }
        close(fd);
        const vks_host::HandlerSet* handlers = nullptr;
        if (vks_host::FindRoute(module_, c.resource, c.method, &handlers) != vks_host::kRouteFound) {
            return 98;
        }
        PhaseRequest& r = request_;
        vks_host::InitPhaseRequest(&r, handlers, 1 << 20);
        snprintf(r.header.method, sizeof(r.header.method), "%s", c.method);
        snprintf(r.header.szReqUrl, sizeof(r.header.szReqUrl), "/api/%s%s", c.resource, c.query);
        snprintf(r.header.szUserName, sizeof(r.header.szUserName), "admin");
        snprintf(r.header.szClientIp, sizeof(r.header.szClientIp), "127.0.0.1");
        r.client.synSock = sock_;
        r.requestBody = c.body;
        vks_host::RunFrontPhases(&r);
        if (vks_host::AwaitsReply(r)) {
            dxmp_message* msg = nullptr;
            pollfd p{r.asyncFd, POLLIN, 0};
            if (poll(&p, 1, 2000) == 1 && (msg = dxmp_message_new(0)) != nullptr &&
                dxmp_message_recvfd(msg, r.asyncFd) != 0) {
                dxmp_message_put(msg);
                msg = nullptr;
            }
            vks_host::CancelRegistration(&r);
            r.client.pRecvMsg = msg;
            if (msg == nullptr) {
                r.result = VW_FAILED;
            } else {
                vks_host::RunRecvPhase(&r);
            }
        }
        vks_host::CancelRegistration(&r);
        // A failed phase leaves no half-filled record behind for Format to read.
        if (r.result != 0 && r.ctIn.runOut != nullptr) {
            ADD_FAILURE() << c.resource << " " << c.method << ": result " << r.result
                          << " with a record in runOut";
        }
        vks_host::RunFormatPhase(&r);
        int result = vks_host::EffectiveResult(r);
        std::string().swap(r.body.text);  // the blocks of the run are released inside it
        return result;
    }

    cmdtest::TempDir dir_;
    std::string sockPath_ = dir_.File("cmd.sock");
    std::string resultFile_ = dir_.File("records.json");
    cmdtest::ScriptedPeer peer_{sockPath_};
    tagUNIX_SOCKET_S* sock_ = nullptr;
    vks_host::ModuleTable module_{};
    PhaseRequest request_{};
};

TEST_F(AllocSweep, EveryResourceAndMethodThroughTheAccessServersPhaseRunner) {
    long total = 0;
    for (const Chain& c : kChains) {
        std::string name = std::string(c.method) + " " + c.resource + c.query;
        total += alloc_sweep::Sweep(
            name.c_str(), [&] { return Serve(c); }, [&](int result) { return c.codes.count(result) != 0; },
            1);
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

}  // namespace
