// MultiTaskAppHistoryRecords, DELETE: command 22026 with a deletion record built from the query.
// Both times given delete that range (type 3); either missing deletes without a range (type 4).
#include <stdlib.h>

#include "app/parse_model/multi_task/cmd_channel_comm.h"
#include "app/parse_model/multi_task/query_keys.h"
#include "app/parse_model/multi_task/settings_resource.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"
#include "vks_multi_task_records.h"
#include "zkapi_common.h"

namespace {

const char kParseName[] = "ParseDeleteMultiTaskAppHistoryRecords";

// Reads one time into its field; a failure turns the request into a deletion without range.
void ReadTime(tagHTTP_HEADER_S* header, const std::string& key, char* field, HistoryRecordDeletePara* para) {
    if (GetURIQueryParamByKey(header, key, field, sizeof(para->startTime)) != 0) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:%s, Query param get failed", kParseName);
        para->deleteType = HISTORY_DELETE_ALL;
    }
}

const vks_cmd::OpLogTexts kDeleteTexts[2] = {
    {"%s[%s:%llu] Delete History Record Successfully. DeleteType: %d, StartTime: %s, EndTime: %s",
     "%s[%s:%llu] 删除历史记录成功. 删除类型: %u, 开始时间: %s, 结束时间: %s"},
    {"%s[%s:%llu] Delete History Record fail. DeleteType: %d, StartTime: %s, EndTime: %s",
     "%s[%s:%llu] 删除历史记录失败. 删除类型: %u, 开始时间: %s, 结束时间: %s"},
};

// The deletion record is copied out of the command body, its times cut to their fields.
void LogDelete(const tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, const void* body) {
    HistoryRecordDeletePara para;
    memcpy_s(&para, sizeof(para), body, sizeof(para));
    para.startTime[sizeof(para.startTime) - 1] = '\0';
    para.endTime[sizeof(para.endTime) - 1] = '\0';
    const vks_cmd::OpLogTexts& texts = vks_cmd::PickTexts(kDeleteTexts, result);
    VKS_OPLOG(texts.english, texts.chinese, header->szUserName, header->szClientIp,
              static_cast<unsigned long long>(header->clientPort), para.deleteType, para.startTime, para.endTime);
}

const vks_cmd::SettingsWrite kWrite = {VW_CMD_DELETE_HISTORY_RECORDS, sizeof(vwCmdBody),
                                       "RunDeleteMultiTaskAppHistoryRecords",
                                       "FormatDeleteMultiTaskAppHistoryRecords", &LogDelete};

}  // namespace

VW_RESULT_TYPE ParseDeleteMultiTaskAppHistoryRecords(tagHTTP_HEADER_S* header, tagHTTP_BUF_S* content,
                                                     tagHTTP_CNTENT_INTER_S* ctIn) {
    if (vks_cmd::InvalidParseArgs(header, content, ctIn)) {
        return VW_INVALID_PARAM;
    }
    ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:%s", kParseName);
    vwCmdBody* body = static_cast<vwCmdBody*>(malloc(sizeof(vwCmdBody)));
    if (body == nullptr) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:%s, malloc failed cmdBody[%p]", kParseName,
                  static_cast<void*>(body));
        return VW_FAILED;
    }
    vks_cmd::ClearRecord(body, sizeof(*body));
    // The record is built in place: the body is malloc'd, suitably aligned, and holds nothing else.
    HistoryRecordDeletePara* para = reinterpret_cast<HistoryRecordDeletePara*>(body->data);
    para->deleteType = HISTORY_DELETE_IN_RANGE;
    ReadTime(header, g_keyStartTime, para->startTime, para);
    if (para->deleteType == HISTORY_DELETE_IN_RANGE) {
        ReadTime(header, g_keyEndTime, para->endTime, para);
    }
    if (para->deleteType == HISTORY_DELETE_ALL) {
        vks_cmd::ClearRecord(para->startTime, sizeof(para->startTime));
        vks_cmd::ClearRecord(para->endTime, sizeof(para->endTime));
    }
    ctIn->parseOut = body;
    return VW_SUCCESS;
}

VW_RESULT_TYPE RunDeleteMultiTaskAppHistoryRecords(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                   tagHTTP_CNTENT_INTER_S* ctIn) {
    return vks_cmd::RunSettingsWrite(kWrite, header, client, ctIn);
}

VW_RESULT_TYPE FormatDeleteMultiTaskAppHistoryRecords(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                      tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    return vks_cmd::FormatSettingsWrite(kWrite, header, result, ctIn, buf);
}
