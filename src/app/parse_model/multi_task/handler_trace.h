// Argument check and trace lines shared by the resource handlers.
#ifndef VKS_HANDLER_TRACE_H
#define VKS_HANDLER_TRACE_H

#include "vks_log.h"
#include "vw_result.h"

struct HandlerStepTexts {
    const char* traceTag;  // log-module name of the begin and end lines
    const char* failTag;   // log-module name of the failure line
    const char* begin;
    const char* failed;  // takes the result as %d
    const char* end;
};

// Detailed argument check of a Run phase: true, after its line, when an argument is null.
inline bool RunArgsMissing(const void* header, const void* client, const void* ctIn) {
    if (header != nullptr && client != nullptr && ctIn != nullptr) {
        return false;
    }
    VKS_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, "[%s]:Invalid param, header[%p] client[%p] ctIn[%p]",
            LOG_MULTI_TASK_APP_REST, header, client, ctIn);
    return true;
}

// Runs step between its trace lines; a failure is logged and returned unchanged.
template <typename Step>
VW_RESULT_TYPE RunTracedStep(const HandlerStepTexts& texts, Step step) {
    VKS_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, texts.begin, texts.traceTag);
    VW_RESULT_TYPE result = step();
    if (result != VW_SUCCESS) {
        VKS_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR, texts.failed, texts.failTag, result);
        return result;
    }
    VKS_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_TRACE, texts.end, texts.traceTag);
    return VW_SUCCESS;
}

#endif
