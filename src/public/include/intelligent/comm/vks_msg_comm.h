// Builds a service record from the JSON body of a PUT (the Parse phase of the DXMP resources).
#ifndef VKS_MSG_COMM_H
#define VKS_MSG_COMM_H

#include <cstdint>
#include <cstdlib>

#include <safe_mem_lib.h>

#include "cjson.h"
#include "json_codec/record_bindings.h"
#include "http_records.h"
#include "vks_multi_task_records.h"
#include "vks_log.h"
#include "vw_result.h"

// Starting value of a PUT record when no phase fetched the stored one before. The module's own
// helper: hidden, also where an unoptimised build does not inline it.
template <typename T>
__attribute__((visibility("hidden"))) void MsgDefaultRecord(T* record);

template <>
inline __attribute__((visibility("hidden"))) void MsgDefaultRecord<_FaceRecPopUpPara>(
    _FaceRecPopUpPara* record) {
    record->channelId = VKS_DEFAULT_CHANNEL_ID;
    record->blackPopUp = 0;
    record->whitePopUp = 0;
}

// Merges the body into record through the record's member list, so a PUT body follows the same
// value rules as every other body. An absent key, or a JSON null, keeps the starting value; only a
// body that is not JSON at all is rejected.
template <typename T>
bool MsgDecodeBody(const char* text, T* record) {
    json_object* root = text != nullptr ? cJSON_Parse(text) : nullptr;
    if (root == nullptr) {
        return false;
    }
    int decoded = jsonDecoder<T, NullAlloc, NullDealloc>::decode(root, nullptr, *record, NullAlloc(),
                                                                 NullDealloc(), JSON_FORMAT_DEFAULT);
    cJSON_Delete(root);
    return decoded == 0;
}

// Builds the T of a PUT in ctIn->parseOut from the body: starting from the record in preProcOut when
// one is there, otherwise from the default. 0, -1 (bad argument or body: nothing left in parseOut),
// or 18 when the record cannot be allocated.
template <typename T>
__attribute__((visibility("default"))) VW_RESULT_TYPE ParseMsg(tagHTTP_CNTENT_INTER_S* ctIn,
                                                               tagHTTP_BUF_S* content) {
    if (ctIn == nullptr || content == nullptr) {
        VKS_LOG(VKS_SRC_MSG_COMM, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_VKS_FRAMEWORK);
        return VW_FAILED;
    }
    T* record = static_cast<T*>(malloc(sizeof(T)));
    if (record == nullptr) {
        VKS_LOG(VKS_SRC_MSG_COMM, VKS_LOG_ERROR, "[%s]:Failed to malloc", LOG_VKS_FRAMEWORK);
        return VW_MEMORY_ERROR;
    }
    if (ctIn->preProcOut == nullptr) {
        MsgDefaultRecord(record);
    } else if (memcpy_s(record, sizeof(T), ctIn->preProcOut, sizeof(T)) != 0) {
        VKS_LOG(VKS_SRC_MSG_COMM, VKS_LOG_ERROR, "[%s]:Failed to memcpy_s", LOG_VKS_FRAMEWORK);
    }
    ctIn->parseOut = record;
    if (!MsgDecodeBody(content->pContent, record)) {
        VKS_LOG(VKS_SRC_MSG_COMM, VKS_LOG_ERROR, "[%s]:Failed to json_decode", LOG_VKS_FRAMEWORK);
        ctIn->parseOut = nullptr;
        free(record);
        return VW_FAILED;
    }
    return VW_SUCCESS;
}

#endif
