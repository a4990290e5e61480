// Host framework helpers for plug-in modules: query parameters and common responses.
#ifndef ZKAPI_COMMON_H
#define ZKAPI_COMMON_H

#include <stdint.h>

#include <string>

#include "http_records.h"

// The host's API is visible to every module, whatever visibility a module compiles with.
#pragma GCC visibility push(default)

typedef struct ZKAPI_RESPONSE_STATUS {
    char RequestURL[256];
    int64_t StatusCode;
    char StatusString[128];
} ZKAPI_RESPONSE_STATUS;

typedef struct ZKAPI_RESPONSE {
    int32_t version;  // the host's own; not part of the JSON envelope
    ZKAPI_RESPONSE_STATUS ResponseStatus;
} ZKAPI_RESPONSE;

// ---- Query parameters ----
// Reads the value of key from the query string of header->szReqUrl (percent-decoded).
// 0 on success; on any failure (missing key, empty value, not a strict decimal number, out of range)
// a nonzero result and the destination is left untouched. The text reader fails only for a missing
// key (or size 0 or 1): a key that is present with an empty or malformed value, or with a text that
// does not fit with its NUL, reads as 0 with the text "?" (docs/query-parameters.md).
template <typename T>
int GetURIQueryParamByKey(tagHTTP_HEADER_S* header, const std::string& key, T* value);
int GetURIQueryParamByKey(tagHTTP_HEADER_S* header, const std::string& key, char* value, unsigned int size);

extern template int GetURIQueryParamByKey<int>(tagHTTP_HEADER_S*, const std::string&, int*);
extern template int GetURIQueryParamByKey<unsigned int>(tagHTTP_HEADER_S*, const std::string&, unsigned int*);
extern template int GetURIQueryParamByKey<unsigned long long>(tagHTTP_HEADER_S*, const std::string&,
                                                              unsigned long long*);

// ---- Responses ----
// The envelope for a result: the request URL, the status code and text (docs/result-mapping.md).
ZKAPI_RESPONSE FillResponseStatusParam(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result);
// Writes the status-only response for the result through buf->Copy2Buf; 0, or -1 when not written.
int FormatCommonStatus(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                       tagHTTP_BUF_S* buf);

// Writes the body of a GET. Modules instantiate it for their records (zkapi_business_common.h); the
// host provides the instance for a runOut that holds a NUL-terminated text.
template <typename T>
__attribute__((visibility("default"))) int FormatCommonResponse(tagHTTP_HEADER_S* header,
                                                                VW_RESULT_TYPE result,
                                                                tagHTTP_CNTENT_INTER_S* ctIn,
                                                                tagHTTP_BUF_S* buf);
template <>
int FormatCommonResponse<char*>(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                                tagHTTP_BUF_S* buf);

#pragma GCC visibility pop

#endif
