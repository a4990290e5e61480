// MultiTaskAppHistoryRecords, GET: the query goes out as command 7032; the service writes the result
// into a file named in the reply, which the module reads whole, removes and hands on as the body.
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "app/parse_model/multi_task/cmd_channel_comm.h"
#include "app/parse_model/multi_task/query_keys.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"
#include "vks_multi_task_records.h"
#include "zkapi_common.h"

// Writes the query's operation-log pair: the values are the request's, whatever the reply said.
void LogHistoryRecordsQuery(const tagHTTP_HEADER_S* header, HistoryRecordQueryPara para,
                            VW_RESULT_TYPE result);

namespace {

const char kRunName[] = "RunGetMultiTaskAppHistoryRecords";
const size_t kResolvedPathLen = 4097;
// Any step of the query that fails after the request went out, but for the service's own result.
const VW_RESULT_TYPE kQueryStepFailed = 1;

enum FieldKind { kFieldU32, kFieldU64, kFieldText };

struct QueryField {
    const std::string* key;
    FieldKind kind;
    size_t offset;
    bool required;
};

// Read in this order; a missing required one ends the request before anything is sent.
const QueryField kQueryFields[] = {
    {&g_keyStartIndex, kFieldU32, offsetof(HistoryRecordQueryPara, StartIndex), true},
    {&g_keyFindNum, kFieldU32, offsetof(HistoryRecordQueryPara, FindNum), true},
    {&g_keyEndTime, kFieldText, offsetof(HistoryRecordQueryPara, EndTime), true},
    {&g_keyDatabaseType, kFieldU32, offsetof(HistoryRecordQueryPara, DatabaseType), true},
    {&g_keyChannelId, kFieldU64, offsetof(HistoryRecordQueryPara, ChannelId), false},
    {&g_keyStartTime, kFieldText, offsetof(HistoryRecordQueryPara, StartTime), false},
    {&g_keyFirstAttri, kFieldU32, offsetof(HistoryRecordQueryPara, FirstAttri), false},
    {&g_keySecondAttri, kFieldU32, offsetof(HistoryRecordQueryPara, SecondAttri), false},
    {&g_keyLibId, kFieldU64, offsetof(HistoryRecordQueryPara, LibId), false},
};

const unsigned int kTimeFieldLen = sizeof(HistoryRecordQueryPara::EndTime);

template <typename T>
int ReadNumber(tagHTTP_HEADER_S* header, const std::string& key, unsigned char* field) {
    T value = 0;
    int ret = GetURIQueryParamByKey<T>(header, key, &value);
    if (ret == 0) {
        memcpy(field, &value, sizeof(value));
    }
    return ret;
}

int ReadField(tagHTTP_HEADER_S* header, const QueryField& f, HistoryRecordQueryPara* para) {
    unsigned char* field = reinterpret_cast<unsigned char*>(para) + f.offset;
    switch (f.kind) {
        case kFieldU32:
            return ReadNumber<unsigned int>(header, *f.key, field);
        case kFieldU64:
            return ReadNumber<unsigned long long>(header, *f.key, field);
        case kFieldText:
            return GetURIQueryParamByKey(header, *f.key, reinterpret_cast<char*>(field), kTimeFieldLen);
    }
    return -1;
}

// False when a required parameter is missing; optional ones that are missing stay zero.
bool ReadQuery(tagHTTP_HEADER_S* header, HistoryRecordQueryPara* para) {
    for (const QueryField& f : kQueryFields) {
        if (ReadField(header, f, para) != 0) {
            ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:%s, Query param get failed", kRunName);
            if (f.required) {
                return false;
            }
        }
    }
    return true;
}

// Sends the query and checks the service's answer; 0 with the reply filled, else the result.
VW_RESULT_TYPE SendQuery(tagHTTP_HEADER_S* header, tagUNIX_SOCKET_S* sock, const HistoryRecordQueryPara& para,
                         MSG_DATA* reply) {
    vwCmdBody body;
    vks_cmd::ClearRecord(&body, sizeof(body));
    memcpy_s(body.data, sizeof(body.data), &para, sizeof(para));
    vks_cmd::ClearRecord(reply, sizeof(*reply));
    if (RestSendSynUnixMsg(VKS_CMD_TAG, VW_MSG_REQUEST, VW_CMD_GET_HISTORY_RECORDS, &body, sock, reply,
                           VKS_CMD_RESERVED) != 0) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:Send SynUnixMsg for Getting cmd[%d] failed",
                  static_cast<int>(VW_CMD_GET_HISTORY_RECORDS));
        return kQueryStepFailed;
    }
    ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE,
              "[ZKAPI]:%s: httpReq[%s %s] sendCmd[%d] recvMsg[%d] Result[%d]", kRunName, header->method,
              header->szReqUrl, static_cast<int>(VW_CMD_GET_HISTORY_RECORDS), reply->recvMsgCode,
              reply->result);
    if (reply->result != 0) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:RestSendSynUnixMsg Result[%d] is not match 0",
                  reply->result);
        return reply->result;
    }
    return VW_SUCCESS;
}

// Reads the result file named in the reply into a new text block; the file is removed once read.
VW_RESULT_TYPE ReadResultFile(MSG_DATA* reply, char** text) {
    char resolved[kResolvedPathLen];
    vks_cmd::ClearRecord(resolved, sizeof(resolved));
    reply->szPath[sizeof(reply->szPath) - 1] = '\0';
    if (realpath(reply->szPath, resolved) == nullptr) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:get face list path failed!");
        return kQueryStepFailed;
    }
    long long size = GetFileSize(resolved, sizeof(resolved));
    if (size == -1) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:get file size fail:%lld", size);
        return kQueryStepFailed;
    }
    char* buf = static_cast<char*>(malloc(static_cast<size_t>(size) + 1));
    if (buf == nullptr) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:malloc Fail");
        return VW_MEMORY_ERROR;
    }
    vks_cmd::ClearRecord(buf, static_cast<rsize_t>(size) + 1);
    if (GetFileContent(resolved, buf, static_cast<unsigned long long>(size)) != 0) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:GetFileContent Fail!");
        free(buf);
        return kQueryStepFailed;
    }
    *text = buf;
    return VW_SUCCESS;
}

// strerror's text, or null after logging the line that stands in for it.
const char* ErrorText(int err, const char* missingLine) {
    const char* text = strerror(err);
    if (text == nullptr) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "%s", missingLine);
    }
    return text;
}

}  // namespace

void LogHistoryRecordsQuery(const tagHTTP_HEADER_S* header, HistoryRecordQueryPara para,
                            VW_RESULT_TYPE result) {
    static const vks_cmd::OpLogTexts kTexts[2] = {
        {"%s[%s:%llu] Get History Record Successfully. StartIndex: %u, FindNum %u, StartTime: %s, EndTime: "
         "%s, "
         "ChannleId: %llu, DataBaseType: %u, FirstAttriType: %u, SecondAttriType: %u, LibId: %llu",
         "%s[%s:%llu] 获取历史记录成功. 起始索引: %u, 查询数量: %u, 开始时间：%s, 结束时间: %s, 所属设备: "
         "%llu, "
         "数据库类型: %u, 一级属性: %u, 二级属性: %u, 人脸库ID: %llu"},
        {"%s[%s:%llu] Get History Record fail. StartIndex: %u, FindNum %u, StartTime: %s, EndTime: %s, "
         "ChannleId: %llu, DataBaseType: %u, FirstAttriType: %u, SecondAttriType: %u, LibId: %llu",
         "%s[%s:%llu] 获取历史记录失败. 起始索引: %u, 查询数量: %u, 开始时间：%s, 结束时间: %s, 所属设备: "
         "%llu, "
         "数据库类型: %u, 一级属性: %u, 二级属性: %u, 人脸库ID: %llu"},
    };
    const vks_cmd::OpLogTexts& texts = vks_cmd::PickTexts(kTexts, result);
    // The copy's texts are terminated here so that a full 20-byte field cannot run into the next one.
    para.StartTime[sizeof(para.StartTime) - 1] = '\0';
    para.EndTime[sizeof(para.EndTime) - 1] = '\0';
    VKS_OPLOG(texts.english, texts.chinese, header->szUserName, header->szClientIp,
              static_cast<unsigned long long>(header->clientPort), para.StartIndex, para.FindNum,
              para.StartTime, para.EndTime, static_cast<unsigned long long>(para.ChannelId),
              para.DatabaseType, para.FirstAttri, para.SecondAttri,
              static_cast<unsigned long long>(para.LibId));
}

VW_RESULT_TYPE RunGetMultiTaskAppHistoryRecords(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                tagHTTP_CNTENT_INTER_S* ctIn) {
    if (RunArgsMissing(header, client, ctIn)) {
        return VW_INVALID_PARAM;
    }
    ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:%s", kRunName);
    HistoryRecordQueryPara para;
    vks_cmd::ClearRecord(&para, sizeof(para));
    if (!ReadQuery(header, &para)) {
        return VW_PARAM_ERROR;
    }
    MSG_DATA reply;
    VW_RESULT_TYPE result = SendQuery(header, client->synSock, para, &reply);
    char* text = nullptr;
    if (result == VW_SUCCESS) {
        result = ReadResultFile(&reply, &text);
    }
    if (result == VW_SUCCESS) {
        ctIn->runOut = text;
    }
    LogHistoryRecordsQuery(header, para, result);
    return result;
}

VW_RESULT_TYPE FormatGetMultiTaskAppHistoryRecords(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                   tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    if (header == nullptr || ctIn == nullptr || buf == nullptr) {
        VKS_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[%s]:Invalid param, header[%p] buf[%p] ctIn[%p]",
                LOG_MULTI_TASK_APP_REST, static_cast<void*>(header), static_cast<void*>(buf),
                static_cast<void*>(ctIn));
        return VW_INVALID_PARAM;
    }
    ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:FormatGetMultiTaskAppHistoryRecords");
    return FormatCommonResponse<char*>(header, result, ctIn, buf);
}

long long GetFileSize(const char* path, unsigned int pathSize) {
    if (path == nullptr || pathSize == 0) {
        return -1;
    }
    FILE* file = fopen(path, "r");
    if (file == nullptr) {
        const char* err = ErrorText(errno, "[ZKAPI]:strerror(errno) == nullptr");
        if (err != nullptr) {
            ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:Get file size, fopen %s err:%s", path, err);
        }
        return -1;
    }
    if (fseek(file, 0, SEEK_END) != 0) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:Get file size, fseek fail.");
        fclose(file);
        return -1;
    }
    // The position is taken as a 32-bit value: files past 2 GiB are not result files.
    long long size = static_cast<int32_t>(ftell(file));
    int ftellErrno = errno;
    fclose(file);
    if (size == -1) {
        const char* err = ErrorText(ftellErrno, "[ZKAPI]:strerror(errno) is null");
        if (err != nullptr) {
            ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:Get file size, ftell %s err:%s", path, err);
        }
        return -1;
    }
    ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_INFO, "[ZKAPI]:Get file size, ftell %s size:%lld", path, size);
    return size;
}

int GetFileContent(const char* path, char* buf, unsigned long long size) {
    if (path == nullptr || buf == nullptr) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:null point");
        return -1;
    }
    FILE* file = fopen(path, "r");
    if (file == nullptr) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:open file fail:%s", path);
        return -1;
    }
    size_t got = fread(buf, 1, static_cast<size_t>(size), file);
    fclose(file);
    if (got < size) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:fread file fail:%llu",
                  static_cast<unsigned long long>(got));
        return -1;
    }
    buf[size] = '\0';
    if (unlink(path) != 0) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:remove %s failed", path);
    }
    return 0;
}
