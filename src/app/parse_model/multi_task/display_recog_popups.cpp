// MultiTaskAppDisplayRecogPopUps, GET and PUT: the black- and white-list pop-up switches, kept by the
// analysis service and exchanged as a 16-byte record with typed DXMP messages (command 229).
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"

#include "app/parse_model/multi_task/handler_trace.h"
#include "vks_log.h"
#include "vks_msg_comm.h"
#include "vks_multi_task_records.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"

namespace {

const char* const kFile = VKS_SRC_MULTI_TASK;

// Both Format phases write the GET's pair: the resource has no texts of its own for the PUT.
void WritePopUpOpLog(const tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, const _FaceRecPopUpPara* record) {
    const unsigned long long port = header->clientPort;
    if (result == VW_SUCCESS) {
        VKS_OPLOG("%s[%s:%llu] Get RVN Face Recog Popup Params Successfully. BlackPopUp: %d, WhitePopUp: %d",
                  "%s[%s:%llu] 获取多机互助人脸识别自动弹窗参数成功. 黑名单比对信息弹框: %d, "
                  "白名单比对信息弹框: %d",
                  header->szUserName, header->szClientIp, port, record->blackPopUp, record->whitePopUp);
    } else {
        VKS_OPLOG("%s[%s:%llu] Get RVN Face Recog Popup Params fail. BlackPopUp %d, WhitePopUp %d",
                  "%s[%s:%llu] 获取多机互助人脸识别自动弹窗参数失败. 黑名单比对信息弹框: %d, "
                  "白名单比对信息弹框: %d",
                  header->szUserName, header->szClientIp, port, record->blackPopUp, record->whitePopUp);
    }
}

}  // namespace

VW_RESULT_TYPE RunGetMultiTaskAppDisplayRecogPopUps(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                    tagHTTP_CNTENT_INTER_S* ctIn) {
    if (RunArgsMissing(header, client, ctIn)) {
        return VW_INVALID_PARAM;
    }
    const HandlerStepTexts texts = {LOG_FACE_APP_REST, LOG_VKS_FRAMEWORK,
                                    "[%s]:RunGetMultiTaskAppDisplayRecogPopUps begin",
                                    "[%s]:RunGetMultiTaskAppDisplayRecogPopUps failed with %d\n",
                                    "[%s]:RunGetMultiTaskAppDisplayRecogPopUps end"};
    return RunTracedStep(texts, [ctIn] {
        return ProcMsg_Get<_FaceRecPopUpPara>(ctIn, VKS_URI_FACE_REC_POPUP, DXMP_METHOD_GET,
                                              DXMP_ITEM_CHANNEL_ID, VKS_DEFAULT_CHANNEL_ID);
    });
}

VW_RESULT_TYPE FormatGetMultiTaskAppDisplayRecogPopUps(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                       tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    if (header == nullptr || ctIn == nullptr || buf == nullptr || ctIn->runOut == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_MULTI_TASK_APP_REST);
        return VW_FAILED;
    }
    WritePopUpOpLog(header, result, static_cast<const _FaceRecPopUpPara*>(ctIn->runOut));
    return FormatCommonResponse<_FaceRecPopUpPara>(header, result, ctIn, buf);
}

VW_RESULT_TYPE ParsePutMultiTaskAppDisplayRecogPopUps(tagHTTP_HEADER_S* header, tagHTTP_BUF_S* content,
                                                      tagHTTP_CNTENT_INTER_S* ctIn) {
    if (header == nullptr || content == nullptr || ctIn == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_VKS_FRAMEWORK);
        return VW_FAILED;
    }
    const HandlerStepTexts texts = {LOG_FACE_APP_REST, LOG_VKS_FRAMEWORK,
                                    "[%s]:ParsePutMultiTaskAppDisplayRecogPopUps begin",
                                    "[%s]:ParsePutMultiTaskAppDisplayRecogPopUps failed with %d\n",
                                    "[%s]:ParsePutMultiTaskAppDisplayRecogPopUps end"};
    return RunTracedStep(texts, [ctIn, content] { return ParseMsg<_FaceRecPopUpPara>(ctIn, content); });
}

VW_RESULT_TYPE RunPutMultiTaskAppDisplayRecogPopUps(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                    tagHTTP_CNTENT_INTER_S* ctIn) {
    if (header == nullptr || client == nullptr || ctIn == nullptr || ctIn->parseOut == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_VKS_FRAMEWORK);
        return VW_FAILED;
    }
    const HandlerStepTexts texts = {LOG_FACE_APP_REST, LOG_VKS_FRAMEWORK,
                                    "[%s]:RunPutMultiTaskAppDisplayRecogPopUps begin",
                                    "[%s]:RunPutMultiTaskAppDisplayRecogPopUps failed with %d\n",
                                    "[%s]:RunPutMultiTaskAppDisplayRecogPopUps end"};
    return RunTracedStep(texts, [ctIn] {
        return ProcMsg_Put<_FaceRecPopUpPara>(ctIn, VKS_URI_FACE_REC_POPUP, DXMP_METHOD_PUT,
                                              DXMP_ITEM_CHANNEL_ID, VKS_DEFAULT_CHANNEL_ID);
    });
}

VW_RESULT_TYPE FormatPutMultiTaskAppDisplayRecogPopUps(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                       tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    if (header == nullptr || ctIn == nullptr || buf == nullptr || ctIn->parseOut == nullptr) {
        VKS_LOG(kFile, VKS_LOG_ERROR, "[%s]:Invalid Param", LOG_VKS_FRAMEWORK);
        return VW_FAILED;
    }
    WritePopUpOpLog(header, result, static_cast<const _FaceRecPopUpPara*>(ctIn->parseOut));
    return FormatCommonStatus(header, result, ctIn, buf);
}
