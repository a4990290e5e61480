// The phases every command-channel settings resource shares: a record read whole by one command
// (GET), read, merged with the body and written back whole (PUT), or built and written (DELETE).
// Each resource's exported handlers are thin wrappers that pass its descriptor.
#ifndef VKS_SETTINGS_RESOURCE_H
#define VKS_SETTINGS_RESOURCE_H

#include <cstddef>

#include "app/parse_model/multi_task/cmd_channel_comm.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"
#include "zkapi_common.h"

namespace vks_cmd {

// Writes a resource's operation-log pair for the record a phase reports, chosen by the result.
using OpLogWriter = void (*)(const tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, const void* record);

// A write of one record through one command: what is sent, the trace names, the log pair.
struct SettingsWrite {
    VW_CMD_TYPE cmd;
    size_t recordLen;       // bytes sent from parseOut
    const char* runName;    // trace line of the Run phase
    const char* formatName; // trace line of the Format phase
    OpLogWriter log;        // fed parseOut
};

// A read of one record: the Format phase's invalid-argument line and its trace name (null: none).
struct SettingsRead {
    const char* invalidArgsFormat;
    const char* formatName;
    OpLogWriter log;  // fed runOut
};

// PreProc of a PUT: the stored record of the channel every settings read names.
inline VW_RESULT_TYPE PreProcSettings(VW_CMD_TYPE cmd, tagHTTP_HEADER_S* header, tagUNIX_SOCKET_S* synSock,
                                      tagHTTP_CNTENT_INTER_S* ctIn) {
    if (InvalidPreProcArgs(header, synSock, ctIn)) {
        return VW_INVALID_PARAM;
    }
    return GetChannelRecord(header, synSock, cmd, VKS_CMD_DEFAULT_CHANNEL, &ctIn->preProcOut);
}

// Parse of a PUT: the body merged into the record PreProc read.
template <typename Record>
VW_RESULT_TYPE ParseSettings(const char* name, tagHTTP_HEADER_S* header, tagHTTP_BUF_S* content,
                             tagHTTP_CNTENT_INTER_S* ctIn) {
    if (InvalidParseArgs(header, content, ctIn)) {
        return VW_INVALID_PARAM;
    }
    ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:%s", name);
    return ParseCommon<Record>(header, content, ctIn);
}

inline VW_RESULT_TYPE RunSettingsWrite(const SettingsWrite& w, tagHTTP_HEADER_S* header,
                                       tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn) {
    if (RunArgsMissing(header, client, ctIn)) {
        return VW_INVALID_PARAM;
    }
    ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:%s", w.runName);
    return SetCommon(header, ctIn->parseOut, w.recordLen, client->synSock, w.cmd, VKS_CMD_RESERVED, VKS_CMD_TAG);
}

inline VW_RESULT_TYPE FormatSettingsWrite(const SettingsWrite& w, tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                          tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    if (InvalidFormatPutArgs(header, ctIn, buf)) {
        return VW_INVALID_PARAM;
    }
    ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:%s", w.formatName);
    w.log(header, result, ctIn->parseOut);
    return FormatCommonStatus(header, result, ctIn, buf);
}

// Format of a GET: the log pair, then the record as JSON.
template <typename Record>
VW_RESULT_TYPE FormatSettingsRead(const SettingsRead& r, tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                  tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    if (InvalidFormatGetArgs(header, ctIn, buf, r.invalidArgsFormat)) {
        return VW_INVALID_PARAM;
    }
    if (r.formatName != nullptr) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, "[ZKAPI]:%s", r.formatName);
    }
    r.log(header, result, ctIn->runOut);
    return FormatCommonResponse<Record>(header, result, ctIn, buf);
}

}  // namespace vks_cmd

#endif
