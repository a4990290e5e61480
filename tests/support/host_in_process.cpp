#include "host_in_process.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "async_hooks.h"
#include "phases.h"
#include "vks_multi_task_records.h"
#include "vw_log.h"

namespace vks_test {
namespace {

constexpr const char* kService = "itgt.paas.vks";
constexpr const char* kResultText = R"({"Records":[{"Id":1}]})";

template <typename Bytes>
Bytes Counting(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<typename Bytes::value_type>(i + 1);
    }
    return bytes;
}

}  // namespace

void HostInProcess::SetUp() {
    SrvfsTest::SetUp();
    // The log library sets itself up on its first line: done here, not inside a request.
    VW_WriteLog(0, 3, 0, 0, __FILE__, __LINE__, "host in process: %s", "start");
    std::string err;
    ASSERT_EQ(0, vks_host::LoadModule(VKS_MODULE_PATH, &module_, &err)) << err;
    vks_host::InstallAsynEventHooks();
    SetServiceUp(true);
    peer_.SetScript([this](const cmdframe::Request& rq, cmdframe::Reply* rp) {
        rp->result = rq.cmd == VW_CMD_GET_HISTORY_RECORDS ? 0 : cmdResult_;
        if (rq.cmd == VW_CMD_GET_HISTORY_RECORDS) {
            rp->payload = cmdtest::MsgReply(cmdResult_, resultFile_);
        } else if (rq.op == cmdframe::kOpGet && cmdResult_ == 0) {
            rp->payload = Counting<std::vector<unsigned char>>(
                rq.cmd == VW_CMD_HISTORY_SWITCH ? sizeof(HistoryRecordSwitch)
                                                : sizeof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA));
        }
        return true;
    });
    sock_ = UnixSocketOpen(sockPath_.c_str(), 2000);
    request_.requestBody.reserve(256);  // bodies are copied in without allocating
}

void HostInProcess::SetServiceUp(bool up) {
    if (!up) {
        srvfs().RemoveService(kService);
        return;
    }
    srvfs().AddService(kService, [this](const std::vector<uint8_t>& request) {
        uint16_t uri = 0;
        memcpy(&uri, request.data() + DXMP_HDR_URI, sizeof(uri));
        size_t size = uri == VKS_URI_TASKS_ENABLE_LIST ? sizeof(_VW_TasksEnableList_S)
                      : uri == VKS_URI_FACE_REC_POPUP  ? sizeof(_FaceRecPopUpPara)
                                                       : sizeof(_VW_AvailableList_S);
        std::vector<uint8_t> record = Counting<std::vector<uint8_t>>(size);
        if (uri == VKS_URI_TASKS_ENABLE_LIST) {  // two tasks in the list
            const uint64_t tasks = 2;
            memcpy(record.data() + offsetof(_VW_TasksEnableList_S, taskNum), &tasks, sizeof(tasks));
        }
        record.resize(static_cast<size_t>(std::max<int>(0, static_cast<int>(size) + contentDelta_)), 0xEE);
        int32_t result = serviceResult_;
        return ScriptedReply{BuildReply(replyStatus_, replyUri_ != 0 ? replyUri_ : uri,
                                        request[DXMP_HDR_FLAGS_METHOD] & 0x7F,
                                        resultLen_ != 0 ? &result : nullptr, record,
                                        static_cast<uint16_t>(resultLen_ != 0 ? resultLen_ : 4))};
    });
}

void HostInProcess::TearDown() {
    UnixSocketClose(sock_);
    vks_host::UnloadModule(&module_);
    SrvfsTest::TearDown();
}

int HostInProcess::Serve(const TestRequest& request) {
    // The history query removes the result file it read: one for every request, written without malloc.
    int fd = open(resultFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0 || write(fd, kResultText, strlen(kResultText)) != static_cast<ssize_t>(strlen(kResultText))) {
        return 99;
    }
    close(fd);
    const vks_host::HandlerSet* handlers = nullptr;
    if (vks_host::FindRoute(module_, request.resource, request.method, &handlers) != vks_host::kRouteFound) {
        return 98;
    }
    vks_host::PhaseRequest& r = request_;
    vks_host::InitPhaseRequest(&r, handlers, 1 << 20);
    snprintf(r.header.method, sizeof(r.header.method), "%s", request.method);
    snprintf(r.header.szReqUrl, sizeof(r.header.szReqUrl), "/api/%s%s", request.resource, request.query);
    snprintf(r.header.szUserName, sizeof(r.header.szUserName), "admin");
    snprintf(r.header.szClientIp, sizeof(r.header.szClientIp), "127.0.0.1");
    r.header.clientPort = 50123;
    r.client.synSock = sock_;
    r.requestBody = request.body;
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
    // A failure of the module's own making leaves no half-filled record behind for Format to read.
    if (checkNoRecordOnFailure_ && r.result != 0 && r.ctIn.runOut != nullptr) {
        ADD_FAILURE() << request.resource << " " << request.method << ": result " << r.result
                      << " with a record in runOut";
    }
    vks_host::RunFormatPhase(&r);
    return vks_host::EffectiveResult(r);
}

}  // namespace vks_test
