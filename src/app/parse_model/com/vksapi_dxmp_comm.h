// Synchronous DXMP exchange with the analysis service and the typed round trips built on it.
#ifndef VKSAPI_DXMP_COMM_H
#define VKSAPI_DXMP_COMM_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <safe_mem_lib.h>

#include "dxmp_message.h"
#include "http_records.h"
#include "vks_log.h"
#include "vw_result.h"

// One header item of a request.
struct DXMPMsgHeaderData {
    uint16_t headType;
    const void* pData;
    uint32_t dataLen;  // passed to the library as 16 bits
};

// Request description of the one-item exchange.
struct DXMPMsgData {
    DXMPMsgHeaderData header;
    const void* content;
    uint32_t contentLen;
    uint16_t uri;
    uint8_t msgMethod;  // low 7 bits used: 2 get, 3 put
};

// Request description of the several-item exchange; items are sent in vector order.
struct DXMPMultiMsgData {
    std::vector<DXMPMsgHeaderData> headers;
    const void* content;
    uint32_t contentLen;
    uint16_t uri;
    uint8_t msgMethod;
};

extern "C" {
// 0 when a valid reply (status 200, same uri) is in msg; -1 on every failure.
__attribute__((visibility("default"))) int SyncBlockDXMPMsgInteraction(dxmp_message* msg,
                                                                       DXMPMsgData* msgData);
__attribute__((visibility("default"))) int SyncBlockDXMPMultiMsgInteraction(dxmp_message* msg,
                                                                            DXMPMultiMsgData* msgData);
}

// ---- Typed round trips ----
// A record travels as its raw memory image: the content of the DXMP message is exactly sizeof(T)
// bytes. Templates carry default visibility so that the module exports their instances (weak).
#define VKS_TEMPLATE_EXPORT __attribute__((visibility("default")))
// Helpers of the round trips are the module's own business, whatever their record type.
#define VKS_TEMPLATE_INTERNAL __attribute__((visibility("hidden")))
#define VKS_RESULT_ITEM_SIZE 4u

// Result code of a reply (item 0xB001, 4 to 7 bytes: only the first 4 are the code). Returns the
// code, logged with resultFmt, or fallback when the item is missing or has another length.
inline VW_RESULT_TYPE DxmpReplyResult(dxmp_message* msg, const char* file, const char* resultFmt,
                                      VW_RESULT_TYPE fallback) {
    void* value = nullptr;
    uint16_t length = 0;
    if (dxmp_header_get(msg, DXMP_ITEM_RESULT, &value, &length) != 0 || length / VKS_RESULT_ITEM_SIZE != 1) {
        VKS_LOG(file, VKS_LOG_ERROR,
                "[%s]:Failed to dxmp_header_get, dataLen is %u, sizeof  RESULT_TYPE_E is %u",
                LOG_VKS_FRAMEWORK, static_cast<unsigned int>(length), VKS_RESULT_ITEM_SIZE);
        return fallback;
    }
    int32_t code = 0;
    memcpy(&code, value, sizeof(code));
    VKS_LOG(file, VKS_LOG_TRACE, resultFmt, LOG_VKS_FRAMEWORK, code);
    return code;
}

// Copies the reply content into a new sizeof(T) block in ctIn->runOut. A content shorter than T
// stores nothing. A longer one is refused by memcpy_s, which zero-fills the record that is stored
// anyway; with exact set it is instead rejected with 18. Returns 0, or 18 with nothing stored.
template <typename T>
VKS_TEMPLATE_INTERNAL VW_RESULT_TYPE DxmpStoreReplyRecord(dxmp_message* msg, tagHTTP_CNTENT_INTER_S* ctIn,
                                                          bool exact, const char* file) {
    void* data = nullptr;
    uint32_t length = 0;
    if (dxmp_content(msg, &data, &length) != 0 || length < sizeof(T)) {
        VKS_LOG(file, VKS_LOG_TRACE, "[%s]:no dxmp_content", LOG_VKS_FRAMEWORK);
        return VW_SUCCESS;
    }
    void* record = malloc(sizeof(T));
    if (record == nullptr) {
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:Failed to malloc", LOG_VKS_FRAMEWORK);
        return VW_MEMORY_ERROR;
    }
    if (exact && length != sizeof(T)) {
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:length not match sizeof(T) is %u but contentLen is %u",
                LOG_VKS_FRAMEWORK, static_cast<unsigned int>(sizeof(T)), length);
        free(record);
        return VW_MEMORY_ERROR;
    }
    if (memcpy_s(record, sizeof(T), data, length) != 0) {
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:memcpy_s failed", LOG_VKS_FRAMEWORK);
    }
    ctIn->runOut = record;
    return VW_SUCCESS;
}

// Turns the reply of a typed round trip into its result and releases the message. A failed
// exchange reports the service's code when the reply carried one; a valid one without code is 0.
template <typename T>
VKS_TEMPLATE_INTERNAL VW_RESULT_TYPE DxmpFinishRoundTrip(dxmp_message* msg, tagHTTP_CNTENT_INTER_S* ctIn,
                                                         int exchange, bool exact, const char* resultFmt) {
    const char* file = VKS_SRC_DXMP_COMM_FROM_TASK;
    VW_RESULT_TYPE result = exchange;
    if (exchange != 0) {
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:Failed to DxmpMsgGetAndResp", LOG_VKS_FRAMEWORK);
        result = DxmpReplyResult(msg, file, resultFmt, exchange);
    } else {
        VW_RESULT_TYPE stored = DxmpStoreReplyRecord<T>(msg, ctIn, exact, file);
        // A record that could not be kept fails the call; the code is read only for the log.
        result = DxmpReplyResult(msg, file, resultFmt, VW_SUCCESS);
        if (stored != VW_SUCCESS) {
            result = stored;
        }
    }
    dxmp_message_put(msg);
    return result;
}

// New request message of a round trip, or null (logged) when ctIn is missing or memory is out.
inline dxmp_message* DxmpNewRoundTrip(const tagHTTP_CNTENT_INTER_S* ctIn, bool needParseOut) {
    if (ctIn == nullptr || (needParseOut && ctIn->parseOut == nullptr)) {
        VKS_LOG(VKS_SRC_DXMP_COMM_FROM_TASK, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_VKS_FRAMEWORK);
        return nullptr;
    }
    dxmp_message* msg = dxmp_message_new(0);
    if (msg == nullptr) {
        VKS_LOG(VKS_SRC_DXMP_COMM_FROM_TASK, VKS_LOG_ERROR, "[%s]:msg is null", LOG_VKS_FRAMEWORK);
    }
    return msg;
}

// One-item round trip of a T: a GET leaves the reply's record in runOut, a PUT (put set) sends the
// record in parseOut as the content and keeps a reply record only when it is exactly sizeof(T).
template <typename T>
VKS_TEMPLATE_INTERNAL VW_RESULT_TYPE DxmpOneItemRoundTrip(tagHTTP_CNTENT_INTER_S* ctIn, unsigned short uri,
                                                          unsigned char method, unsigned short headType,
                                                          unsigned long long value, bool put) {
    dxmp_message* msg = DxmpNewRoundTrip(ctIn, put);
    if (msg == nullptr) {
        return VW_FAILED;
    }
    DXMPMsgData data = {{headType, &value, sizeof(value)},
                        put ? ctIn->parseOut : nullptr,
                        put ? static_cast<uint32_t>(sizeof(T)) : 0u,
                        uri,
                        method};
    int exchange = SyncBlockDXMPMsgInteraction(msg, &data);
    return DxmpFinishRoundTrip<T>(msg, ctIn, exchange, put,
                                  put ? "[%s]:ProcMsg_Put result:%d" : "[%s]:ProcMsg_Get result:%d");
}

// Asks the service for a T (one header item: headType with the 8-byte value) and leaves a copy of
// the reply's record in ctIn->runOut. 0, the service's result code, 18, or -1.
template <typename T>
VKS_TEMPLATE_EXPORT VW_RESULT_TYPE ProcMsg_Get(tagHTTP_CNTENT_INTER_S* ctIn, unsigned short uri,
                                               unsigned char method, unsigned short headType,
                                               unsigned long long value) {
    return DxmpOneItemRoundTrip<T>(ctIn, uri, method, headType, value, false);
}

// The same with the header items given by the caller (copied into the request).
template <typename T>
VKS_TEMPLATE_EXPORT VW_RESULT_TYPE ProcMsg_Get(tagHTTP_CNTENT_INTER_S* ctIn, unsigned short uri,
                                               unsigned char method,
                                               std::vector<DXMPMsgHeaderData>& headers) {
    // Copied before the message exists: a copy that cannot be allocated throws and leaks nothing.
    DXMPMultiMsgData data = {headers, nullptr, 0, uri, method};
    dxmp_message* msg = DxmpNewRoundTrip(ctIn, false);
    if (msg == nullptr) {
        return VW_FAILED;
    }
    int exchange = SyncBlockDXMPMultiMsgInteraction(msg, &data);
    return DxmpFinishRoundTrip<T>(msg, ctIn, exchange, false, "[%s]:ProcMsg_Get result:%d");
}

// Sends the T in ctIn->parseOut as the content. 0, the service's result code, 18, or -1.
template <typename T>
VKS_TEMPLATE_EXPORT VW_RESULT_TYPE ProcMsg_Put(tagHTTP_CNTENT_INTER_S* ctIn, unsigned short uri,
                                               unsigned char method, unsigned short headType,
                                               unsigned long long value) {
    return DxmpOneItemRoundTrip<T>(ctIn, uri, method, headType, value, true);
}

#endif
