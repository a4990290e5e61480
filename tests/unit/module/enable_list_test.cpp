// Task-mode enable list: the synchronous way, the asynchronous way with the test playing the host's
// event loop, and the reply collection of the Recv phase.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <json-c/json.h>

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
    std::string Format(RequestRecords* request, VW_RESULT_TYPE result, VW_RESULT_TYPE expected = 0) {
        BodyBuffer out;
        EXPECT_EQ(
            FormatGetMultiTaskAppTaskModesEnableList(&request->header, result, &request->ctIn, &out.buf),
            expected);
        return out.body;
    }
};

TEST_F(EnableListTest, AllChannelsGoAsynchronouslyWithTheRequestBlock) {
    for (const char* query : {"", "?ChannelId=0"}) {
        srvfs().RemoveService(kServiceName);
        Serve(0, Bytes(TaskList(2)));
        HostPlay host;
        const std::string url = std::string(kUrl) + query;
        RequestRecords request(url.c_str());
        ASSERT_EQ(RunGetMultiTaskAppTaskModesEnableList(&request.header, &request.client, &request.ctIn), 0);
        EXPECT_EQ(request.ctIn.runOut, nullptr);
        ASSERT_TRUE(host.Deliver(&request.client)) << query;
        std::vector<std::vector<uint8_t>> requests = srvfs().Requests(kServiceName);
        ASSERT_EQ(requests.size(), 1u);
        DecodedFrame sent = Decode(requests[0]);
        ASSERT_EQ(sent.itemOrder, (std::vector<uint16_t>{DXMP_ITEM_CHANNEL_ID, DXMP_ITEM_ENABLE_LIST_REQ,
                                                         DXMP_ITEM_CHANNEL_GROUP}));
        EXPECT_EQ(As<uint64_t>(sent.items[DXMP_ITEM_CHANNEL_ID]), 0u);
        EXPECT_EQ(As<int32_t>(sent.items[DXMP_ITEM_CHANNEL_GROUP]), 0);
        const std::string line = "GET " + url;
        const std::vector<uint8_t>& block = sent.items[DXMP_ITEM_ENABLE_LIST_REQ];
        ASSERT_EQ(block.size(), 288 + line.size() + 1);
        EXPECT_EQ(As<uint32_t>(std::vector<uint8_t>(block.begin() + 256, block.begin() + 260)),
                  line.size() + 1);
        EXPECT_EQ(As<uint32_t>(std::vector<uint8_t>(block.begin() + 260, block.begin() + 268)), 0u);
        EXPECT_EQ(As<uint32_t>(std::vector<uint8_t>(block.begin() + 268, block.begin() + 272)), 1u);
        EXPECT_EQ(std::vector<uint8_t>(block.begin(), block.begin() + 256), std::vector<uint8_t>(256, 0));
        EXPECT_EQ(std::vector<uint8_t>(block.begin() + 272, block.begin() + 280), std::vector<uint8_t>(8, 0));
        EXPECT_EQ(std::vector<uint8_t>(block.begin() + 284, block.begin() + 288), std::vector<uint8_t>(4, 0));
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(block.data()) + 288), line);
        EXPECT_EQ(block.back(), 0);

        LogCapture log;
        EXPECT_EQ(RecvGetMultiTaskAppTaskModesEnableList(&request.header, &request.client, &request.ctIn), 0);
        EXPECT_EQ(request.client.pRecvMsg, nullptr);
        ASSERT_NE(request.ctIn.runOut, nullptr);
        EXPECT_EQ(static_cast<_VW_TasksEnableList_S*>(request.ctIn.runOut)->taskNum, 2u);
        EXPECT_TRUE(log.Has(VKS_LOG_TRACE, "[LogVKSFrameWork]:RecvGetMultiTaskAppTaskModesEnableList end"));
    }
}

TEST_F(EnableListTest, TaskCountShapesTheBody) {
    const struct {
        uint64_t taskNum;
        VW_RESULT_TYPE format;
        size_t elements;
    } cases[] = {{0, 0, 0}, {32, 0, 32}, {33, -1, 0}};
    for (const auto& c : cases) {
        srvfs().RemoveService(kServiceName);
        Serve(0, Bytes(TaskList(c.taskNum)));
        RequestRecords request("/api/MultiTaskAppTaskModesEnableList?ChannelId=3");
        ASSERT_EQ(RunGetMultiTaskAppTaskModesEnableList(&request.header, &request.client, &request.ctIn), 0);
        std::string body = Format(&request, 0, c.format);
        if (c.format != 0) {
            EXPECT_TRUE(body.empty()) << body;
            continue;
        }
        json_object* root = json_tokener_parse(body.c_str());
        ASSERT_NE(root, nullptr) << body;
        json_object* tasks = nullptr;
        EXPECT_EQ(json_object_object_get_ex(root, "taskEnable", &tasks), c.elements != 0);
        if (tasks != nullptr) {
            EXPECT_EQ(json_object_array_length(tasks), c.elements);
        }
        json_object_put(root);
    }
}

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
