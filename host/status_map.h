// HTTP status of an answer, from the request's result code.
#ifndef VKS_HOST_STATUS_MAP_H
#define VKS_HOST_STATUS_MAP_H

#include "vw_result.h"

namespace vks_host {

struct HttpStatus {
    int code;
    const char* reason;
};

// result is the request's outcome as the phase runner settled it (EffectiveResult in phases.h);
// parseFailed says that the Parse phase produced it; replyTimedOut marks an asynchronous reply that
// never came.
HttpStatus StatusForResult(VW_RESULT_TYPE result, bool parseFailed, bool replyTimedOut);

}  // namespace vks_host

#endif
