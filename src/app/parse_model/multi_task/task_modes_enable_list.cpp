// MultiTaskAppTaskModesEnableList, GET: the algorithms enabled in every task (command 1201). A given
// channel is asked synchronously; all channels (no "ChannelId", or 0) asynchronously, with the request
// line attached, because the service may take long to answer for all of them.
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include <safe_mem_lib.h>
#include <safe_str_lib.h>

#include "app/parse_model/multi_task/query_keys.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"
#include "service_registry/service_interface.h"
#include "vks_log.h"
#include "vks_multi_task_records.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"
#include "zkapi_common.h"

namespace {

const char* const kFile = VKS_SRC_MULTI_TASK;
const uint32_t kOneMessage = 1;

struct EnableListQuery {
    unsigned long long channelId;
    int channelGroup;
};

// Missing or unreadable parameters select all channels of group 0; neither is an error.
EnableListQuery ReadQuery(tagHTTP_HEADER_S* header) {
    EnableListQuery query = {0, 0};
    if (GetURIQueryParamByKey<unsigned long long>(header, g_keyChannelId, &query.channelId) != 0) {
        query.channelId = 0;
    }
    if (GetURIQueryParamByKey<int>(header, g_keyChannelGroup, &query.channelGroup) != 0) {
        query.channelGroup = 0;
    }
    VKS_LOG(kFile, VKS_LOG_TRACE, "[%s]:multitask taskmode enablelist channelGroup:%d,channelId:%llu",
            LOG_MULTI_TASK_APP_REST, query.channelGroup, query.channelId);
    return query;
}

bool ServiceExists() {
    std::string path = ServiceInterface::GetInstance().GetServicePath();
    if (path.empty()) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:service name is null", LOG_MULTI_TASK_APP_REST);
    }
    if (path.empty() || access(path.c_str(), F_OK) != 0) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:serviceName(%s) does not exist", LOG_MULTI_TASK_APP_REST,
                path.c_str());
        return false;
    }
    return true;
}

VW_RESULT_TYPE FinishRun(VW_RESULT_TYPE result) {
    if (result != VW_SUCCESS) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:RunGetMultiTaskAppTaskModesEnableList failed:ret %d",
                LOG_MULTI_TASK_APP_REST, result);
        return result;
    }
    VKS_LOG(kFile, VKS_LOG_TRACE, "[%s]:RunGetMultiTaskAppTaskModesEnableList end", LOG_MULTI_TASK_APP_REST);
    return VW_SUCCESS;
}

void PutU32(uint8_t* block, size_t offset, uint32_t value) {
    memcpy(block + offset, &value, sizeof(value));
}

// The request block: the fixed part, then the request line and its NUL at byte 288. pBuffer holds the
// low 32 bits of the text's address: the field is 32 bits wide whatever the sender's pointers are.
uint8_t* BuildRequestBlock(const std::string& urlStr, size_t blockLen) {
    uint8_t* block = new (std::nothrow) uint8_t[blockLen];
    if (block == nullptr) {
        return nullptr;
    }
    if (memset_s(block, blockLen, 0, blockLen) != 0) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:memset_s failed", LOG_MULTI_TASK_APP_REST);
    }
    size_t n = urlStr.size();
    char* text = reinterpret_cast<char*>(block + sizeof(VW_JSON_MSG_S));
    PutU32(block, offsetof(VW_JSON_MSG_S, bufferLen), static_cast<uint32_t>(n + 1));
    PutU32(block, offsetof(VW_JSON_MSG_S, reserved1), 0);
    PutU32(block, offsetof(VW_JSON_MSG_S, msgCount), kOneMessage);
    PutU32(block, offsetof(VW_JSON_MSG_S, pBuffer), static_cast<uint32_t>(reinterpret_cast<uintptr_t>(text)));
    if (strncpy_s(text, n + 1, urlStr.c_str(), n) != 0) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:strncpy_s failed", LOG_MULTI_TASK_APP_REST);
    }
    VKS_LOG(kFile, VKS_LOG_TRACE, "[%s]:jsonMsg->pBuffer = %s", LOG_MULTI_TASK_APP_REST, text);
    return block;
}

VW_RESULT_TYPE RunSynchronous(tagHTTP_CNTENT_INTER_S* ctIn, EnableListQuery query) {
    std::vector<DXMPMsgHeaderData> items = {
        {DXMP_ITEM_CHANNEL_ID, &query.channelId, sizeof(query.channelId)},
        {DXMP_ITEM_CHANNEL_GROUP, &query.channelGroup, sizeof(query.channelGroup)}};
    return FinishRun(
        ProcMsg_Get<_VW_TasksEnableList_S>(ctIn, VKS_URI_TASKS_ENABLE_LIST, DXMP_METHOD_GET, items));
}

VW_RESULT_TYPE RunAsynchronous(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, EnableListQuery query) {
    VKS_LOG(kFile, VKS_LOG_TRACE, "[%s]:header method = %s", LOG_MULTI_TASK_APP_REST, header->method);
    VKS_LOG(kFile, VKS_LOG_TRACE, "[%s]:header szReqUrl = %s", LOG_MULTI_TASK_APP_REST, header->szReqUrl);
    // The service expects a GET request line whatever the header's method text says.
    std::string urlStr =
        std::string("GET") + " " + std::string(header->szReqUrl, strnlen(header->szReqUrl, HTTP_URL_LEN));
    VKS_LOG(kFile, VKS_LOG_TRACE, "[%s]:urlStr = %s", LOG_MULTI_TASK_APP_REST, urlStr.c_str());
    size_t blockLen = sizeof(VW_JSON_MSG_S) + urlStr.size() + 1;
    // Owned here, so that a header list that cannot be allocated (it throws) does not leak it.
    std::unique_ptr<uint8_t[]> block(BuildRequestBlock(urlStr, blockLen));
    if (block == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:new buffer data failed", LOG_MULTI_TASK_APP_REST);
        return FinishRun(VW_FAILED);
    }
    std::vector<DXMPMsgHeaderData> items = {
        {DXMP_ITEM_CHANNEL_ID, &query.channelId, sizeof(query.channelId)},
        {DXMP_ITEM_ENABLE_LIST_REQ, block.get(), static_cast<uint32_t>(blockLen)},
        {DXMP_ITEM_CHANNEL_GROUP, &query.channelGroup, sizeof(query.channelGroup)}};
    VW_RESULT_TYPE result = AsyncSendMsg_Get(client, VKS_URI_TASKS_ENABLE_LIST, DXMP_METHOD_GET, items);
    return FinishRun(result);
}

}  // namespace

VW_RESULT_TYPE RunGetMultiTaskAppTaskModesEnableList(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                     tagHTTP_CNTENT_INTER_S* ctIn) {
    if (header == nullptr || client == nullptr || ctIn == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_MULTI_TASK_APP_REST);
        return VW_FAILED;
    }
    VKS_LOG(kFile, VKS_LOG_TRACE, "[%s]:RunGetMultiTaskAppTaskModesEnableList begin",
            LOG_MULTI_TASK_APP_REST);
    EnableListQuery query = ReadQuery(header);
    if (!ServiceExists()) {
        return VW_SERVICE_NOT_EXIST;
    }
    return query.channelId != 0 ? RunSynchronous(ctIn, query) : RunAsynchronous(header, client, query);
}

VW_RESULT_TYPE RecvGetMultiTaskAppTaskModesEnableList(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                      tagHTTP_CNTENT_INTER_S* ctIn) {
    if (header == nullptr || client == nullptr || ctIn == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_VKS_FRAMEWORK);
        return VW_FAILED;
    }
    VKS_LOG(kFile, VKS_LOG_TRACE, "[%s]:RecvGetMultiTaskAppTaskModesEnableList begin", LOG_VKS_FRAMEWORK);
    VW_RESULT_TYPE result = AsyncRecvMsg_Get(ctIn, client, VKS_URI_TASKS_ENABLE_LIST, DXMP_METHOD_GET);
    if (result != VW_SUCCESS) {
        // The host reports only success or failure of the collection, not the service's code.
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:AsyncRecvMsg_Get failed:ret = %d", LOG_VKS_FRAMEWORK, result);
        return VW_FAILED;
    }
    VKS_LOG(kFile, VKS_LOG_TRACE, "[%s]:RecvGetMultiTaskAppTaskModesEnableList end", LOG_VKS_FRAMEWORK);
    return VW_SUCCESS;
}

VW_RESULT_TYPE FormatGetMultiTaskAppTaskModesEnableList(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                        tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    if (header == nullptr || ctIn == nullptr || buf == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_MULTI_TASK_APP_REST);
        return VW_FAILED;
    }
    VKS_LOG(kFile, VKS_LOG_TRACE, "[%s]:FormatGetMultiTaskAppTaskModesEnableList", LOG_MULTI_TASK_APP_REST);
    const unsigned long long port = header->clientPort;
    if (result == VW_SUCCESS) {
        VKS_OPLOG("%s[%s:%llu] Get TaskModes EnableList Successfully.",
                  "%s[%s:%llu] 获取当前所有任务的算法使能状态成功.", header->szUserName, header->szClientIp,
                  port);
    } else {
        VKS_OPLOG("%s[%s:%llu] Get TaskModes EnableList fail.",
                  "%s[%s:%llu] 获取当前所有任务的算法使能状态失败.", header->szUserName, header->szClientIp,
                  port);
    }
    // Without a record (no reply content) the body is the status envelope for the result.
    return FormatCommonResponse<_VW_TasksEnableList_S>(header, result, ctIn, buf);
}
