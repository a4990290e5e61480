#include "status_map.h"

namespace vks_host {

HttpStatus StatusForResult(VW_RESULT_TYPE result, bool parseFailed, bool replyTimedOut) {
    if (replyTimedOut) {
        return {504, "Gateway Timeout"};
    }
    // Parse only decodes the client's body or query: whatever code it chose, the request was bad,
    // unless memory ran out.
    if (parseFailed && result != VW_MEMORY_ERROR) {
        return {400, "Bad Request"};
    }
    switch (result) {
        case VW_SUCCESS:
            return {200, "OK"};
        case VW_PARAM_ERROR:  // the client's query or body
            return {400, "Bad Request"};
        case VW_SERVICE_NOT_EXIST:
            return {503, "Service Unavailable"};
        case VW_FAILED:
        case VW_INVALID_PARAM:
        case VW_MEMORY_ERROR:
            return {500, "Internal Server Error"};
        default:  // the analysis service's own result code, passed through by the module
            return {502, "Bad Gateway"};
    }
}

}  // namespace vks_host
