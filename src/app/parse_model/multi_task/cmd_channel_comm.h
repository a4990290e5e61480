// Helpers shared by the resources that go through the host's unix-socket command channel: the
// invalid-argument lines of the detailed form, clearing a record, and reading one channel's record.
#ifndef VKS_CMD_CHANNEL_COMM_H
#define VKS_CMD_CHANNEL_COMM_H

#include <safe_mem_lib.h>

#include <cstdint>
#include <cstring>

#include "handler_trace.h"
#include "http_records.h"
#include "unix_cmd_channel.h"
#include "vks_log.h"
#include "vw_result.h"

// Every command-channel call of the module passes these two: the host ignores them.
#define VKS_CMD_TAG "/tmp/A"
#define VKS_CMD_RESERVED 0ULL

// The channel the settings reads name, whatever the request says.
#define VKS_CMD_DEFAULT_CHANNEL 101ULL

namespace vks_cmd {

// One operation-log pair: the English and the Chinese format, fed the same values.
struct OpLogTexts {
    const char* english;
    const char* chinese;
};

// The success pair (index 0) for result 0, the failure pair (index 1) for any other result.
inline const OpLogTexts& PickTexts(const OpLogTexts (&pairs)[2], VW_RESULT_TYPE result) {
    return pairs[result == VW_SUCCESS ? 0 : 1];
}

inline bool InvalidPreProcArgs(const void* header, const void* synSock, const void* ctIn) {
    if (header != nullptr && synSock != nullptr && ctIn != nullptr) {
        return false;
    }
    VKS_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[%s]:Invalid param, header[%p] synSock[%p] ctIn[%p]",
            LOG_MULTI_TASK_APP_REST, header, synSock, ctIn);
    return true;
}

inline bool InvalidParseArgs(const void* header, const void* content, const void* ctIn) {
    if (header != nullptr && content != nullptr && ctIn != nullptr) {
        return false;
    }
    VKS_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[%s]:Invalid param, header[%p] content[%p] ctIn[%p]",
            LOG_MULTI_TASK_APP_REST, header, content, ctIn);
    return true;
}

// Format phase of a PUT or DELETE: the record to report must be in parseOut.
inline bool InvalidFormatPutArgs(const void* header, const tagHTTP_CNTENT_INTER_S* ctIn, const void* buf) {
    if (header != nullptr && ctIn != nullptr && buf != nullptr && ctIn->parseOut != nullptr) {
        return false;
    }
    VKS_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[%s]:Invalid param, header[%p] buf[%p] ctIn[%p]",
            LOG_MULTI_TASK_APP_REST, header, buf, static_cast<const void*>(ctIn));
    return true;
}

// Format phase of a GET that reports the record in runOut; slotName is how the line names the slot.
inline bool InvalidFormatGetArgs(const void* header, const tagHTTP_CNTENT_INTER_S* ctIn, const void* buf,
                                 const char* format) {
    const void* runOut = ctIn != nullptr ? ctIn->runOut : nullptr;
    if (header != nullptr && buf != nullptr && runOut != nullptr) {
        return false;
    }
    VKS_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, format, LOG_MULTI_TASK_APP_REST, header, buf,
            static_cast<const void*>(ctIn), runOut);
    return true;
}

// Clears a record; a refusal is logged and the caller goes on with whatever the record holds.
inline void ClearRecord(void* record, rsize_t len) {
    errno_t ret = memset_s(record, len, 0, len);
    if (ret != 0) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[ZKAPI]:[%s] expect Ret %d, actual Ret %d.", "memset_s",
                  0, static_cast<int>(ret));
    }
}

// Reads the settings record of one channel: the command body carries only the channel ID.
inline VW_RESULT_TYPE GetChannelRecord(tagHTTP_HEADER_S* header, tagUNIX_SOCKET_S* sock, VW_CMD_TYPE cmd,
                                       uint64_t channelId, void** slot) {
    vwCmdBody body;
    ClearRecord(&body, sizeof(body));
    memcpy_s(body.data, sizeof(body.data), &channelId, sizeof(channelId));
    return GetCommon(header, sock, cmd, &body, slot, VKS_CMD_RESERVED, VKS_CMD_TAG);
}

}  // namespace vks_cmd

#endif
