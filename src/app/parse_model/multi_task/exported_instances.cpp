// Template instances that the module exports (as weak symbols) for its records. Instantiating them
// here, once, also keeps an optimised build from inlining every use away, so the set of exported
// names does not depend on the optimisation level.
#include "app/parse_model/com/vksapi_dxmp_comm.h"
#include "service_registry/service_interface.h"
#include "vks_msg_comm.h"
#include "vks_os/access_server/zkapi/inc/zkapi_business_common.h"

template class Singleton<ServiceInterface>;

template VW_RESULT_TYPE ProcMsg_Get<_VW_AvailableList_S>(tagHTTP_CNTENT_INTER_S*, unsigned short,
                                                         unsigned char, unsigned short, unsigned long long);
template VW_RESULT_TYPE ProcMsg_Get<_VW_CapacityList_S>(tagHTTP_CNTENT_INTER_S*, unsigned short,
                                                        unsigned char, unsigned short, unsigned long long);
template VW_RESULT_TYPE ProcMsg_Get<_FaceRecPopUpPara>(tagHTTP_CNTENT_INTER_S*, unsigned short, unsigned char,
                                                       unsigned short, unsigned long long);
template VW_RESULT_TYPE ProcMsg_Get<_VW_TasksEnableList_S>(tagHTTP_CNTENT_INTER_S*, unsigned short,
                                                           unsigned char, std::vector<DXMPMsgHeaderData>&);
template VW_RESULT_TYPE ProcMsg_Put<_FaceRecPopUpPara>(tagHTTP_CNTENT_INTER_S*, unsigned short, unsigned char,
                                                       unsigned short, unsigned long long);
template VW_RESULT_TYPE ParseMsg<_FaceRecPopUpPara>(tagHTTP_CNTENT_INTER_S*, tagHTTP_BUF_S*);

#define VKS_RESPONSE_INSTANCES(T)                                                                    \
    template char* json_encode<T>(const T&);                                                         \
    template struct jsonEncoder<T>;                                                                  \
    template int FormatCommonResponse<T>(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*, \
                                         tagHTTP_BUF_S*);

VKS_RESPONSE_INSTANCES(_VW_AvailableList_S)
VKS_RESPONSE_INSTANCES(_VW_CapacityList_S)
VKS_RESPONSE_INSTANCES(_VW_TasksEnableList_S)
VKS_RESPONSE_INSTANCES(_FaceRecPopUpPara)
VKS_RESPONSE_INSTANCES(HistoryRecordSwitch)
VKS_RESPONSE_INSTANCES(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA)

template char* json_encode<ZKAPI_RESPONSE>(const ZKAPI_RESPONSE&);
template struct jsonEncoder<ZKAPI_RESPONSE>;

#define VKS_SETTINGS_INSTANCES(T)                           \
    template struct jsonDecoder<T, NullAlloc, NullDealloc>; \
    template VW_RESULT_TYPE ParseCommon<T>(tagHTTP_HEADER_S*, tagHTTP_BUF_S*, tagHTTP_CNTENT_INTER_S*);

VKS_SETTINGS_INSTANCES(HistoryRecordSwitch)
VKS_SETTINGS_INSTANCES(VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA)
template struct jsonDecoder<_FaceRecPopUpPara, NullAlloc, NullDealloc>;
