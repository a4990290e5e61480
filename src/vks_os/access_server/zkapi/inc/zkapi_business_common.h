// The host framework's business templates, instantiated in the module once per record type:
// FormatCommonResponse<T> writes a GET body (the record in runOut, or the status envelope of the
// result), ParseCommon<T> merges a PUT body into the settings record that PreProc fetched.
#ifndef ZKAPI_BUSINESS_COMMON_H
#define ZKAPI_BUSINESS_COMMON_H

#include <stdlib.h>
#include <string.h>

#include "http_records.h"
#include "json_codec/record_bindings.h"
#include "vks_log.h"
#include "vw_result.h"
#include "zkapi_common.h"

namespace zkapi_business_detail {

// The body text of a GET: the record when Run left one (the result code does not enter it),
// otherwise the status envelope of the result.
template <typename T>
char* ResponseText(tagHTTP_HEADER_S* pstHeader, VW_RESULT_TYPE result,
                   const tagHTTP_CNTENT_INTER_S* pstCtInt) {
    if (pstCtInt->runOut != nullptr) {
        return json_encode<T>(*static_cast<const T*>(pstCtInt->runOut));
    }
    ZKAPI_RESPONSE response = FillResponseStatusParam(pstHeader, result);
    return json_encode<ZKAPI_RESPONSE>(response);
}

}  // namespace zkapi_business_detail

// 0 when the body was handed to Copy2Buf, -1 otherwise. Only -1 from Copy2Buf is a refusal.
template <typename T>
VKS_CODEC_EXPORT int FormatCommonResponse(tagHTTP_HEADER_S* pstHeader, VW_RESULT_TYPE result,
                                          tagHTTP_CNTENT_INTER_S* pstCtInt, tagHTTP_BUF_S* pstBuf) {
    // A buffer without Copy2Buf cannot take a body: treated like a missing buffer.
    if (pstHeader == nullptr || pstCtInt == nullptr || pstBuf == nullptr || pstBuf->Copy2Buf == nullptr) {
        ZKAPI_LOG(VKS_SRC_BUSINESS_COMMON, VKS_LOG_ERROR,
                  "[ZKAPI]:%s: invalid param, pstHeader[%p] pstCtInt[%p] pstBuf[%p]", "FormatCommonResponse",
                  static_cast<void*>(pstHeader), static_cast<void*>(pstCtInt), static_cast<void*>(pstBuf));
        return VW_FAILED;
    }
    char* text = zkapi_business_detail::ResponseText<T>(pstHeader, result, pstCtInt);
    if (text == nullptr) {
        ZKAPI_LOG(VKS_SRC_BUSINESS_COMMON, VKS_LOG_ERROR, "[ZKAPI]:%s: json_encode fail",
                  "FormatCommonResponse");
        return VW_FAILED;
    }
    unsigned long long dataLen = strlen(text);
    int copied = pstBuf->Copy2Buf(pstBuf, text, static_cast<unsigned int>(dataLen));
    free(text);
    if (copied == -1) {
        ZKAPI_LOG(VKS_SRC_BUSINESS_COMMON, VKS_LOG_ERROR, "[ZKAPI]:%s: Copy2Buf fail, dataLen[%llu]",
                  "FormatCommonResponse", dataLen);
        return VW_FAILED;
    }
    return VW_SUCCESS;
}

// 0 decoded (the record moves from preProcOut to parseOut), -1 invalid argument, 4 body not
// decodable (the record stays in preProcOut with the members before the failing one changed).
// Without a record in preProcOut there is nothing to merge into: an invalid argument.
template <typename T>
VKS_CODEC_EXPORT VW_RESULT_TYPE ParseCommon(tagHTTP_HEADER_S* pstHeader, tagHTTP_BUF_S* pstHttpContent,
                                            tagHTTP_CNTENT_INTER_S* pstCtIn) {
    if (pstHeader == nullptr || pstHttpContent == nullptr || pstCtIn == nullptr ||
        pstCtIn->preProcOut == nullptr) {
        ZKAPI_LOG(VKS_SRC_BUSINESS_COMMON, VKS_LOG_ERROR,
                  "[ZKAPI]:%s: invalid param, pstHeader[%p] pstHttpContent[%p] pstCtIn[%p]", "ParseCommon",
                  static_cast<void*>(pstHeader), static_cast<void*>(pstHttpContent),
                  static_cast<void*>(pstCtIn));
        return VW_FAILED;
    }
    T* record = static_cast<T*>(pstCtIn->preProcOut);
    int decoded = VW_FAILED;
    json_object* tree = cJSON_Parse(pstHttpContent->pContent);
    if (tree != nullptr) {
        decoded = jsonDecoder<T, NullAlloc, NullDealloc>::decode(tree, nullptr, *record, NullAlloc(),
                                                                 NullDealloc(), JSON_FORMAT_DEFAULT);
        cJSON_Delete(tree);
    }
    if (decoded != 0) {
        // One line, so that the value and the line argument carry the same number.
        // clang-format off
        ZKAPI_LOG(VKS_SRC_BUSINESS_COMMON, VKS_LOG_ERROR, "[ZKAPI]:%s[%d] json decode fail\n", "ParseCommon", __LINE__);
        // clang-format on
        return VW_PARAM_ERROR;
    }
    pstCtIn->parseOut = record;
    pstCtIn->preProcOut = nullptr;
    return VW_SUCCESS;
}

#endif
