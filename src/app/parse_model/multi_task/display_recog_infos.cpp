// MultiTaskAppDisplayRecogInfos: which items of a face-recognition hit are displayed, over command 7037.
// Reads always name channel 101; a write sends back the record read, with the channel it carried.
#include "app/parse_model/multi_task/cmd_channel_comm.h"
#include "app/parse_model/multi_task/settings_resource.h"
#include "app/parse_model/multi_task/vksapi_multi_task_module.h"
#include "vks_multi_task_records.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"
#include "zkapi_common.h"

namespace {

#define VKS_DISPLAY_VALUES_EN                                                                           \
    "ChannelID: %llu, MatchRate Enable: %u, SnapTime Enable: %u, DeviceName Enable: %u, FaceLibName "   \
    "Enable: "                                                                                          \
    "%u, Name Enable: %u, CardID Enable: %u, Gender Enable: %u, Province Enable: %u, City Enable: %u, " \
    "CardType Enable: %u, Birthday Enable: %u, BlackMatchPic Enable: %u, WhiteMatchPic Enable: %u"
#define VKS_DISPLAY_VALUES_CN                                                                                                   \
    "镜头ID: %llu, 匹配率: %u, 抓拍时间: %u, 所属设备: %u, 库名称: %u, 姓名: %u, 证件号: %u, 性别: %u, " \
    "省份: %u, 城市: %u, 证件类型: %u, 生日: %u, 黑名单比对图: %u, 白名单比对图: %u"

// The failure texts of both methods name the history switch: that is what the system writes.
const vks_cmd::OpLogTexts kGetTexts[2] = {
    {"%s[%s:%llu] Get MultiTaskApp Display RecogInfos Params Successfully. " VKS_DISPLAY_VALUES_EN,
     "%s[%s:%llu] 获取多机互助界面人脸识别属性展示项参数成功. " VKS_DISPLAY_VALUES_CN},
    {"%s[%s:%llu] Get History Record Switch Params fail. " VKS_DISPLAY_VALUES_EN,
     "%s[%s:%llu] 获取多机互助界面人脸识别属性展示项参数失败. " VKS_DISPLAY_VALUES_CN},
};
const vks_cmd::OpLogTexts kPutTexts[2] = {
    {"%s[%s:%llu] Put MultiTaskApp Display RecogInfos Params Successfully. " VKS_DISPLAY_VALUES_EN,
     "%s[%s:%llu] 设置多机互助界面人脸识别属性展示项参数成功. " VKS_DISPLAY_VALUES_CN},
    {"%s[%s:%llu] Put History Record Switch Params fail. " VKS_DISPLAY_VALUES_EN,
     "%s[%s:%llu] 设置多机互助界面人脸识别属性展示项参数失败. " VKS_DISPLAY_VALUES_CN},
};

unsigned int Flag(ENABLE_TYPE flag) {
    return static_cast<unsigned int>(flag);
}

void LogDisplayInfos(const tagHTTP_HEADER_S* header, const vks_cmd::OpLogTexts& texts, const void* record) {
    const auto* r = static_cast<const VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA*>(record);
    VKS_OPLOG(texts.english, texts.chinese, header->szUserName, header->szClientIp,
              static_cast<unsigned long long>(header->clientPort),
              static_cast<unsigned long long>(r->channelId), Flag(r->matchRate), Flag(r->snapTime),
              Flag(r->deviceName), Flag(r->faceLibName), Flag(r->name), Flag(r->cardId), Flag(r->gender),
              Flag(r->province), Flag(r->city), Flag(r->cardType), Flag(r->birthday), Flag(r->blackMatchPic),
              Flag(r->whiteMatchPic));
}

const vks_cmd::SettingsRead kRead = {
    "[%s]:Invalid param, header[%p] buf[%p] ctIn[%p] runOut[%p]", nullptr,
    [](const tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, const void* record) {
        LogDisplayInfos(header, vks_cmd::PickTexts(kGetTexts, result), record);
    }};
const vks_cmd::SettingsWrite kWrite = {
    VW_CMD_DISPLAY_RECOG_INFOS, sizeof(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA),
    "RunPutMultiTaskAppDisplayRecogInfos", "FormatPutMultiTaskAppDisplayRecogInfos",
    [](const tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, const void* record) {
        LogDisplayInfos(header, vks_cmd::PickTexts(kPutTexts, result), record);
    }};

}  // namespace

VW_RESULT_TYPE RunGetMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                   tagHTTP_CNTENT_INTER_S* ctIn) {
    // This handler alone reports its arguments in the host's form and with the host's switch.
    if (header == nullptr || client == nullptr || ctIn == nullptr) {
        ZKAPI_LOG(VKS_SRC_MULTI_TASK, VKS_LOG_ERROR,
                  "[ZKAPI]:Invalid param, pstHeader[%p] pstClient[%p] pstCtIn[%p]",
                  static_cast<void*>(header), static_cast<void*>(client), static_cast<void*>(ctIn));
        return VW_INVALID_PARAM;
    }
    return vks_cmd::GetChannelRecord(header, client->synSock, VW_CMD_DISPLAY_RECOG_INFOS,
                                     VKS_CMD_DEFAULT_CHANNEL, &ctIn->runOut);
}

VW_RESULT_TYPE FormatGetMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                      tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    return vks_cmd::FormatSettingsRead<VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA>(kRead, header, result, ctIn,
                                                                                    buf);
}

VW_RESULT_TYPE PreProcPutMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header, tagUNIX_SOCKET_S* synSock,
                                                       tagHTTP_CNTENT_INTER_S* ctIn) {
    return vks_cmd::PreProcSettings(VW_CMD_DISPLAY_RECOG_INFOS, header, synSock, ctIn);
}

VW_RESULT_TYPE ParsePutMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header, tagHTTP_BUF_S* content,
                                                     tagHTTP_CNTENT_INTER_S* ctIn) {
    return vks_cmd::ParseSettings<VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA>(
        "ParsePutMultiTaskAppDisplayRecogInfos", header, content, ctIn);
}

VW_RESULT_TYPE RunPutMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                   tagHTTP_CNTENT_INTER_S* ctIn) {
    return vks_cmd::RunSettingsWrite(kWrite, header, client, ctIn);
}

VW_RESULT_TYPE FormatPutMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                      tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    return vks_cmd::FormatSettingsWrite(kWrite, header, result, ctIn, buf);
}
