// MultiTaskAppHistory: the history-record storage switch of a channel, over command 22025.
#include "app/parse_model/multi_task/cmd_channel_comm.h"
#include "app/parse_model/multi_task/query_keys.h"
#include "app/parse_model/multi_task/settings_resource.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"
#include "vks_multi_task_records.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"
#include "zkapi_common.h"

namespace {

// Operation-log pairs by method (GET, PUT) and outcome (success, failure).
const vks_cmd::OpLogTexts kSwitchTexts[2][2] = {
    {{"%s[%s:%llu] Get History Record Switch Params Successfully. ChannelID: %llu, Record Enable: %u",
      "%s[%s:%llu] 获取历史记录存储开关参数成功. 通道ID: %llu, 存储使能: %u"},
     {"%s[%s:%llu] Get History Record Switch Params fail. ChannelID: %llu, Record Enable: %u",
      "%s[%s:%llu] 获取历史记录存储开关参数失败. 通道ID: %llu, 存储使能: %u"}},
    {{"%s[%s:%llu] Put History Record Switch Params Successfully. ChannelID: %llu, Record Enable: %u",
      "%s[%s:%llu] 设置历史记录存储开关参数成功. 通道ID: %llu, 存储使能: %u"},
     {"%s[%s:%llu] Put History Record Switch Params fail. ChannelID: %llu, Record Enable: %u",
      "%s[%s:%llu] 设置历史记录存储开关参数失败. 通道ID: %llu, 存储使能: %u"}},
};

void LogSwitch(const tagHTTP_HEADER_S* header, const vks_cmd::OpLogTexts (&pairs)[2], VW_RESULT_TYPE result,
               const void* record) {
    const auto* r = static_cast<const HistoryRecordSwitch*>(record);
    const vks_cmd::OpLogTexts& texts = vks_cmd::PickTexts(pairs, result);
    VKS_OPLOG(texts.english, texts.chinese, header->szUserName, header->szClientIp,
              static_cast<unsigned long long>(header->clientPort), static_cast<unsigned long long>(r->channelId),
              static_cast<unsigned int>(r->enableRecord));
}

const vks_cmd::SettingsRead kRead = {
    "[%s]:Invalid param, header[%p] buf[%p] ctIn[%p] parseout[%p]", "FormatGetMultiTaskAppHistory",
    [](const tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, const void* record) {
        LogSwitch(header, kSwitchTexts[0], result, record);
    }};
const vks_cmd::SettingsWrite kWrite = {
    VW_CMD_HISTORY_SWITCH, sizeof(HistoryRecordSwitch), "RunPutMultiTaskAppHistory", "FormatPutMultiTaskAppHistory",
    [](const tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, const void* record) {
        LogSwitch(header, kSwitchTexts[1], result, record);
    }};

}  // namespace

VW_RESULT_TYPE RunGetMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                         tagHTTP_CNTENT_INTER_S* ctIn) {
    if (RunArgsMissing(header, client, ctIn)) {
        return VW_INVALID_PARAM;
    }
    ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:RunGetMultiTaskAppHistory");
    // A GET without a readable channel is not refused: it asks for channel 0.
    unsigned long long channelId = 0;
    if (GetURIQueryParamByKey<unsigned long long>(header, g_keyChannelId, &channelId) != 0) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:%s, Query param get failed",
                  "RunGetMultiTaskAppHistory");
    }
    return vks_cmd::GetChannelRecord(header, client->synSock, VW_CMD_HISTORY_SWITCH, channelId,
                                     &ctIn->runOut);
}

VW_RESULT_TYPE FormatGetMultiTaskAppHistory(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                            tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    return vks_cmd::FormatSettingsRead<HistoryRecordSwitch>(kRead, header, result, ctIn, buf);
}

VW_RESULT_TYPE PreProcPutMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagUNIX_SOCKET_S* synSock,
                                             tagHTTP_CNTENT_INTER_S* ctIn) {
    return vks_cmd::PreProcSettings(VW_CMD_HISTORY_SWITCH, header, synSock, ctIn);
}

VW_RESULT_TYPE ParsePutMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagHTTP_BUF_S* content,
                                           tagHTTP_CNTENT_INTER_S* ctIn) {
    return vks_cmd::ParseSettings<HistoryRecordSwitch>("ParsePutMultiTaskAppHistory", header, content, ctIn);
}

VW_RESULT_TYPE RunPutMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                         tagHTTP_CNTENT_INTER_S* ctIn) {
    return vks_cmd::RunSettingsWrite(kWrite, header, client, ctIn);
}

VW_RESULT_TYPE FormatPutMultiTaskAppHistory(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                            tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    return vks_cmd::FormatSettingsWrite(kWrite, header, result, ctIn, buf);
}
