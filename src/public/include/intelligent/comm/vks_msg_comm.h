// Builds a service record from the JSON body of a PUT (the Parse phase of the DXMP resources).
#ifndef VKS_MSG_COMM_H
#define VKS_MSG_COMM_H

#include <cstdint>
#include <cstdlib>

#include <safe_mem_lib.h>

#include "cjson.h"
#include "http_records.h"
#include "vks_multi_task_records.h"
#include "vks_log.h"
#include "vw_result.h"

// What ParseMsg<T> needs to know of a record: its starting value when no record was fetched before,
// and the 32-bit members that the body may set, by key, in decoding order.
template <typename T>
struct MsgBodyFields;

template <>
struct MsgBodyFields<_FaceRecPopUpPara> {
    struct Field {
        const char* key;
        int32_t _FaceRecPopUpPara::*member;
    };
    static constexpr Field kFields[] = {{"blackPopUp", &_FaceRecPopUpPara::blackPopUp},
                                        {"whitePopUp", &_FaceRecPopUpPara::whitePopUp}};
    static void SetDefault(_FaceRecPopUpPara* record) {
        record->channelId = VKS_DEFAULT_CHANNEL_ID;
        record->blackPopUp = 0;
        record->whitePopUp = 0;
    }
};

// A JSON real as an unsigned 32-bit switch: toward zero, saturating; negatives and NaN give 0.
inline uint32_t MsgDoubleToU32(double value) {
    if (!(value > 0.0)) {
        return 0;
    }
    if (value >= 4294967295.0) {
        return UINT32_MAX;
    }
    return static_cast<uint32_t>(value);
}

// One member's 32-bit value by the JSON type of the value; false for a type the body may not use.
inline bool MsgDecodeU32(json_object* value, uint32_t* out) {
    switch (json_object_get_type(value)) {
        case json_type_boolean:
            *out = json_object_get_boolean(value) ? 1u : 0u;
            return true;
        case json_type_double:
            *out = MsgDoubleToU32(json_object_get_double(value));
            return true;
        case json_type_int:
            *out = static_cast<uint32_t>(static_cast<uint64_t>(json_object_get_int64(value)));
            return true;
        default:
            return false;
    }
}

// Merges the body into record. An absent key, or a JSON null, keeps the member's starting value. A
// body that is not a JSON object is rejected: it cannot name any member.
template <typename T>
bool MsgDecodeBody(const char* text, T* record) {
    json_object* root = text != nullptr ? cJSON_Parse(text) : nullptr;
    bool decoded = root != nullptr && json_object_get_type(root) == json_type_object;
    for (const auto& field : MsgBodyFields<T>::kFields) {
        json_object* value = decoded ? cJSON_GetObjectItem(root, field.key) : nullptr;
        uint32_t bits = 0;
        if (value != nullptr) {
            decoded = MsgDecodeU32(value, &bits);
            if (decoded) {
                record->*field.member = static_cast<int32_t>(bits);
            }
        }
    }
    if (root != nullptr) {
        cJSON_Delete(root);
    }
    return decoded;
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
        MsgBodyFields<T>::SetDefault(record);
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
