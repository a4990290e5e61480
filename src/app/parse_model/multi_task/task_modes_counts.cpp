// MultiTaskAppTaskModesAvailableList and MultiTaskAppTaskModesCapacity, GET: one typed DXMP GET of a
// 24-byte count record. The two resources differ only in the command, the record and the texts.
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"

#include "app/parse_model/multi_task/handler_trace.h"
#include "vks_log.h"
#include "vks_multi_task_records.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"

namespace {

const char* const kFile = VKS_SRC_MULTI_TASK;
// These two resources name a fixed requester in the operation log instead of the header's user.
const char* const kRequester = "ZKAPI[ApiAdmin]";

template <typename T>
struct CountsResource {
    unsigned short uri;
    uint64_t T::*members[3];
    const char* runBegin;
    const char* runFailed;
    const char* runEnd;
    const char* okEnglish;
    const char* okChinese;
    const char* failEnglish;
    const char* failChinese;
};

const CountsResource<_VW_AvailableList_S> kAvailable = {
    VKS_URI_AVAILABLE_LIST,
    {&_VW_AvailableList_S::faceDetection, &_VW_AvailableList_S::vhdDetection,
     &_VW_AvailableList_S::vhdFaceMode},
    "[%s]:RunGetMultiTaskAppTaskModesAvailableList begin",
    "[%s]:RunGetMultiTaskAppTaskModesAvailableList failed with %d\n",
    "[%s]:RunGetMultiTaskAppTaskModesAvailableList end",
    "%s[%s:%llu] Get RVN Available List Params Successfully. faceDetection:%llu, vhdDetection:%llu, "
    "vhdFaceMode:%llu",
    "%s[%s:%llu] 获取多机互助设备可创建的各类任务数目成功. 人卡:%llu, 微卡:%llu, 混行:%llu",
    "%s[%s:%llu] Get RVN Available List Params fail. faceDetection:%llu, vhdDetection:%llu, vhdFaceMode:%llu",
    "%s[%s:%llu] 获取多机互助可创建的各类任务数目失败. 人卡:%llu, 微卡:%llu, 混行:%llu",
};

const CountsResource<_VW_CapacityList_S> kCapacity = {
    VKS_URI_CAPACITY_LIST,
    {&_VW_CapacityList_S::faceDetect, &_VW_CapacityList_S::vhdDetect, &_VW_CapacityList_S::vhdFaceDetect},
    "[%s]:RunGetMultiTaskAppTaskModesCapacity begin",
    "[%s]:RunGetMultiTaskAppTaskModesCapacity failed with %d\n",
    "[%s]:RunGetMultiTaskAppTaskModesCapacity end",
    "%s[%s:%llu] Get RVN Capacity List Params Successfully. faceDetect:%llu, vhdDetect:%llu, "
    "vhdFaceDetect:%llu",
    "%s[%s:%llu] 获取多机互助设备可创建的各类最大任务数目成功. 人卡:%llu, 微卡:%llu, 混行:%llu",
    "%s[%s:%llu] Get RVN Capacity List Params fail. faceDetect:%llu, vhdDetect:%llu, vhdFaceDetect:%llu",
    "%s[%s:%llu] 获取多机互助可创建的各类最大任务数目失败. 人卡:%llu, 微卡:%llu, 混行:%llu",
};

template <typename T>
VW_RESULT_TYPE RunGetCounts(const CountsResource<T>& res, tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                            tagHTTP_CNTENT_INTER_S* ctIn) {
    if (RunArgsMissing(header, client, ctIn)) {
        return VW_INVALID_PARAM;
    }
    const HandlerStepTexts texts = {LOG_MULTI_TASK_APP_REST, LOG_MULTI_TASK_APP_REST, res.runBegin,
                                    res.runFailed, res.runEnd};
    return RunTracedStep(texts, [&res, ctIn] {
        return ProcMsg_Get<T>(ctIn, res.uri, DXMP_METHOD_GET, DXMP_ITEM_CHANNEL_ID, VKS_DEFAULT_CHANNEL_ID);
    });
}

template <typename T>
VW_RESULT_TYPE FormatGetCounts(const CountsResource<T>& res, tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                               tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    if (header == nullptr || ctIn == nullptr || buf == nullptr || ctIn->runOut == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_MULTI_TASK_APP_REST);
        return VW_FAILED;
    }
    const T* record = static_cast<const T*>(ctIn->runOut);
    bool ok = result == VW_SUCCESS;
    VKS_OPLOG(ok ? res.okEnglish : res.failEnglish, ok ? res.okChinese : res.failChinese, kRequester,
              header->szClientIp, static_cast<unsigned long long>(header->clientPort),
              static_cast<unsigned long long>(record->*res.members[0]),
              static_cast<unsigned long long>(record->*res.members[1]),
              static_cast<unsigned long long>(record->*res.members[2]));
    return FormatCommonResponse<T>(header, result, ctIn, buf);
}

}  // namespace

VW_RESULT_TYPE RunGetMultiTaskAppTaskModesAvailableList(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                        tagHTTP_CNTENT_INTER_S* ctIn) {
    return RunGetCounts(kAvailable, header, client, ctIn);
}

VW_RESULT_TYPE FormatGetMultiTaskAppTaskModesAvailableList(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                           tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    return FormatGetCounts(kAvailable, header, result, ctIn, buf);
}

VW_RESULT_TYPE RunGetMultiTaskAppTaskModesCapacity(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                   tagHTTP_CNTENT_INTER_S* ctIn) {
    return RunGetCounts(kCapacity, header, client, ctIn);
}

VW_RESULT_TYPE FormatGetMultiTaskAppTaskModesCapacity(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                      tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    return FormatGetCounts(kCapacity, header, result, ctIn, buf);
}
