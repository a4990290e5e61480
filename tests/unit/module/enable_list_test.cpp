// Task-mode enable list: what the host's event loop can refuse or break on the asynchronous way, with
// the test playing the host. The request block, the reply collection and the body of every case are
// in the golden transcript (tests/transcript), the element array at every count in the codec's tests.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "app/parse_model/multi_task/vksapi_multi_task_module.h"
#include "log_capture.h"
#include "module_test_util.h"
#include "srvfs_fixture.h"
#include "vks_log.h"
#include "vks_multi_task_records.h"

namespace vks_test {
namespace {

const uint16_t kUri = VKS_URI_TASKS_ENABLE_LIST;
const char* const kUrl = "/api/MultiTaskAppTaskModesEnableList";

_VW_TasksEnableList_S TaskList(uint64_t taskNum) {
    _VW_TasksEnableList_S list{};
    list.taskNum = taskNum;
    for (uint64_t i = 0; i < VW_MAX_TASK_NUM; ++i) {
        list.taskEnable[i] = {100 + i, 1, 0, 1, 0, 1, 0, static_cast<int32_t>(i)};
    }
    return list;
}

// The host's side of the asynchronous hand-over, played by the test.
class HostPlay {
public:
    HostPlay() { DxmpSetAsynEventHooks(Add, Delete, this); }
    ~HostPlay() {
        DxmpSetAsynEventHooks(nullptr, nullptr, nullptr);
        if (request_ != nullptr) {
            dxmp_message_put(request_);
        }
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    // Waits for the reply, receives it, closes the descriptor and hands the reply to the client.
    bool Deliver(tagHTTP_CLIENT_S* client) {
        pollfd watch = {fd_, POLLIN, 0};
        if (fd_ < 0 || poll(&watch, 1, 5000) != 1) {
            return false;
        }
        dxmp_message* reply = dxmp_message_new(0);
        int received = dxmp_message_recvfd(reply, fd_);
        close(fd_);
        fd_ = -1;
        if (received != 0) {
            dxmp_message_put(reply);
            return false;
        }
        client->pRecvMsg = reply;
        return true;
    }

    int addResult = 0;
    int deleteResult = 0;
    bool breakSend = false;  // the descriptor becomes read-only once registered
    int adds = 0;
    int deletes = 0;
    int registeredFd = -1;
    bool openAtDelete = false;

private:
    static int Add(void* ctx, tagHTTP_CLIENT_S*, int fd, dxmp_message* request) {
        HostPlay* host = static_cast<HostPlay*>(ctx);
        ++host->adds;
        host->registeredFd = fd;
        if (host->addResult != 0) {
            return host->addResult;
        }
        host->fd_ = fd;
        host->request_ = dxmp_message_get(request);
        if (host->breakSend) {
            int readOnly = open("/dev/null", O_RDONLY);
            dup2(readOnly, fd);
            close(readOnly);
        }
        return 0;
    }
    static int Delete(void* ctx, tagHTTP_CLIENT_S*, int fd) {
        HostPlay* host = static_cast<HostPlay*>(ctx);
        ++host->deletes;
        host->openAtDelete = fcntl(fd, F_GETFD) != -1;
        close(fd);
        host->fd_ = -1;
        return host->deleteResult;
    }

    int fd_ = -1;
    dxmp_message* request_ = nullptr;
};

class EnableListTest : public SrvfsTest {
protected:
    void Serve(int32_t result, const std::vector<uint8_t>& content) {
        std::vector<uint8_t> frame = BuildReply(200, kUri, DXMP_METHOD_GET, &result, content);
        srvfs().AddService(kServiceName,
                           [frame](const std::vector<uint8_t>&) { return ScriptedReply{frame}; });
    }
};

TEST_F(EnableListTest, RecvReportsAnyFailureAsMinusOne) {
    Serve(5, Bytes(TaskList(1)));
    HostPlay host;
    RequestRecords request(kUrl);
    ASSERT_EQ(RunGetMultiTaskAppTaskModesEnableList(&request.header, &request.client, &request.ctIn), 0);
    ASSERT_TRUE(host.Deliver(&request.client));
    LogCapture log;
    EXPECT_EQ(RecvGetMultiTaskAppTaskModesEnableList(&request.header, &request.client, &request.ctIn), -1);
    EXPECT_TRUE(log.Has(VKS_LOG_ERROR, "[LogVKSFrameWork]:AsyncRecvMsg_Get failed:ret = 5"));
    EXPECT_EQ(request.client.pRecvMsg, nullptr);
    // A Recv without a reply fails as well.
    EXPECT_EQ(RecvGetMultiTaskAppTaskModesEnableList(&request.header, &request.client, &request.ctIn), -1);
    EXPECT_TRUE(log.Has(VKS_LOG_ERROR, "[LogVKSFrameWork]:recv msg failed"));
}

TEST_F(EnableListTest, RefusedRegistrationSendsNothingAndClosesTheDescriptor) {
    Serve(0, Bytes(TaskList(1)));
    HostPlay host;
    host.addResult = -1;
    RequestRecords request(kUrl);
    LogCapture log;
    int before = OpenDescriptorCount();
    EXPECT_EQ(RunGetMultiTaskAppTaskModesEnableList(&request.header, &request.client, &request.ctIn), -1);
    EXPECT_EQ(OpenDescriptorCount(), before);
    EXPECT_EQ(host.adds, 1);
    EXPECT_EQ(host.deletes, 0);
    EXPECT_TRUE(srvfs().Requests(kServiceName).empty());
    EXPECT_TRUE(log.Has(VKS_LOG_ERROR, "[LogVKSFrameWork]:failed to AddDxmpAsynEvent"));
    EXPECT_TRUE(log.Has(VKS_LOG_ERROR, "[LogVKSFrameWork]:Failed to AsyncBlockDXMPMultiMsgInteraction"));
    EXPECT_TRUE(
        log.Has(VKS_LOG_ERROR, "[LogMultiTaskAppRest]:RunGetMultiTaskAppTaskModesEnableList failed:ret -1"));
}

TEST_F(EnableListTest, FailedSendCancelsTheRegistration) {
    Serve(0, Bytes(TaskList(1)));
    for (int deleteResult : {0, -1}) {
        HostPlay host;
        host.breakSend = true;
        host.deleteResult = deleteResult;
        RequestRecords request(kUrl);
        LogCapture log;
        EXPECT_EQ(RunGetMultiTaskAppTaskModesEnableList(&request.header, &request.client, &request.ctIn), -1);
        EXPECT_EQ(host.deletes, 1);
        EXPECT_TRUE(host.openAtDelete);  // the module left the descriptor to the host
        EXPECT_TRUE(log.Has(VKS_LOG_ERROR, "[LogVKSFrameWork]:dxmp_message_sendfd ret:-1, errno:" +
                                               std::to_string(EBADF) + "."));
        const std::string deleteLine =
            "[LogVKSFrameWork]:DeleteDxmpAsynEvent fd:" + std::to_string(host.registeredFd);
        EXPECT_EQ(log.Has(VKS_LOG_ERROR, deleteLine), deleteResult != 0);
    }
    EXPECT_TRUE(srvfs().Requests(kServiceName).empty());
}

}  // namespace
}  // namespace vks_test
