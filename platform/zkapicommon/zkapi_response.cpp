// The host's common responses: the status envelope of a result and the body of a text GET.
// The mapping from result codes to status codes and texts is documented in docs/result-mapping.md.
#include <stdio.h>
#include <string.h>

#include "cjson.h"
#include "vw_log.h"
#include "zkapi_common.h"

namespace {

const int kLogModule = 4;
const int kLogError = 3;
const int32_t kResponseVersion = 1;

struct StatusText {
    VW_RESULT_TYPE result;
    const char* text;
};

// The status code is the result itself, so a service's own code reaches the client unchanged;
// the text names the known codes and says "Service Error" for any other.
const StatusText kStatusTexts[] = {
    {VW_SUCCESS, "OK"},
    {VW_INVALID_PARAM, "Invalid Argument"},
    {VW_FAILED, "Operation Failed"},
    {VW_PARAM_ERROR, "Invalid Parameter"},
    {VW_MEMORY_ERROR, "Out Of Memory"},
    {VW_SERVICE_NOT_EXIST, "Service Not Exist"},
};
const char kDefaultStatusText[] = "Service Error";

const char* StatusTextOf(VW_RESULT_TYPE result) {
    for (const StatusText& entry : kStatusTexts) {
        if (entry.result == result) {
            return entry.text;
        }
    }
    return kDefaultStatusText;
}

json_object* BuildEnvelopeTree(const ZKAPI_RESPONSE_STATUS& status) {
    json_object* root = cJSON_CreateObject();
    json_object* inner = cJSON_CreateObject();
    if (root == nullptr || inner == nullptr) {
        cJSON_Delete(root);
        cJSON_Delete(inner);
        return nullptr;
    }
    cJSON_AddItemToObject(inner, "RequestURL", cJSON_CreateString(status.RequestURL));
    cJSON_AddItemToObject(inner, "StatusCode", cJSON_CreateNumber(static_cast<long long>(status.StatusCode)));
    cJSON_AddItemToObject(inner, "StatusString", cJSON_CreateString(status.StatusString));
    cJSON_AddItemToObject(root, "ResponseStatus", inner);
    return root;
}

// Hands the whole text to the output buffer; only -1 from Copy2Buf means it was not taken.
int WriteBody(tagHTTP_BUF_S* buf, const char* text) {
    size_t length = strlen(text);
    if (buf->Copy2Buf(buf, text, static_cast<unsigned int>(length)) == -1) {
        VW_WriteLog(kLogModule, kLogError, g_enDebugFlag, 0, __FILE__, __LINE__,
                    "[ZKAPI]:%s: Copy2Buf fail, dataLen[%llu]", "WriteBody",
                    static_cast<unsigned long long>(length));
        return -1;
    }
    return 0;
}

bool CanWrite(const tagHTTP_HEADER_S* header, const tagHTTP_BUF_S* buf, const char* caller) {
    if (header == nullptr || buf == nullptr || buf->Copy2Buf == nullptr) {
        VW_WriteLog(kLogModule, kLogError, g_enDebugFlag, 0, __FILE__, __LINE__,
                    "[ZKAPI]:%s: invalid param, pstHeader[%p] pstBuf[%p]", caller,
                    static_cast<const void*>(header), static_cast<const void*>(buf));
        return false;
    }
    return true;
}

}  // namespace

ZKAPI_RESPONSE FillResponseStatusParam(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result) {
    ZKAPI_RESPONSE response;
    memset(&response, 0, sizeof(response));
    response.version = kResponseVersion;
    if (header != nullptr) {
        // The request target as the client sent it, cut to fit with its NUL.
        char* url = response.ResponseStatus.RequestURL;
        size_t length = strnlen(header->szReqUrl, sizeof(header->szReqUrl));
        if (length >= sizeof(response.ResponseStatus.RequestURL)) {
            length = sizeof(response.ResponseStatus.RequestURL) - 1;
        }
        memcpy(url, header->szReqUrl, length);
    }
    response.ResponseStatus.StatusCode = result;
    snprintf(response.ResponseStatus.StatusString, sizeof(response.ResponseStatus.StatusString), "%s",
             StatusTextOf(result));
    return response;
}

int FormatCommonStatus(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* /*ctIn*/,
                       tagHTTP_BUF_S* buf) {
    if (!CanWrite(header, buf, "FormatCommonStatus")) {
        return -1;
    }
    ZKAPI_RESPONSE response = FillResponseStatusParam(header, result);
    json_object* tree = BuildEnvelopeTree(response.ResponseStatus);
    const char* text = cJSON_Print(tree);
    int ret = -1;
    if (text != nullptr) {
        ret = WriteBody(buf, text);
    } else {
        VW_WriteLog(kLogModule, kLogError, g_enDebugFlag, 0, __FILE__, __LINE__,
                    "[ZKAPI]:%s: json_encode fail", "FormatCommonStatus");
    }
    cJSON_Delete(tree);
    return ret;
}

template <>
int FormatCommonResponse<char*>(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                tagHTTP_BUF_S* buf) {
    if (!CanWrite(header, buf, "FormatCommonResponse")) {
        return -1;
    }
    if (ctIn == nullptr) {
        VW_WriteLog(kLogModule, kLogError, g_enDebugFlag, 0, __FILE__, __LINE__,
                    "[ZKAPI]:%s: invalid param, pstCtInt[%p]", "FormatCommonResponse",
                    static_cast<void*>(ctIn));
        return -1;
    }
    if (ctIn->runOut == nullptr) {
        return FormatCommonStatus(header, result, ctIn, buf);
    }
    return WriteBody(buf, static_cast<const char*>(ctIn->runOut));
}
