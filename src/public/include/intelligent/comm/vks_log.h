// Debug and operation-log helpers of the module.
#ifndef VKS_LOG_H
#define VKS_LOG_H

#include "vw_log.h"

// The module's own debug switch: a 32-bit global the host may set; the module only reads it.
extern "C" int g_enITGTDebugFlag;

#define VKS_LOG_MODULE 4

#define VKS_LOG_TRACE 1
#define VKS_LOG_ERROR 3
#define VKS_LOG_INFO 0

// Lines that begin "[%s]:" carry the module's switch; lines that begin "[ZKAPI]:" the host's.
// The format is the first of the variadic arguments so that a line without values stays pedantic-clean.
#define VKS_LOG(file, level, ...) \
    VW_WriteLog(VKS_LOG_MODULE, (level), g_enITGTDebugFlag, 0, (file), __LINE__, __VA_ARGS__)
#define ZKAPI_LOG(file, level, ...) \
    VW_WriteLog(VKS_LOG_MODULE, (level), g_enDebugFlag, 0, (file), __LINE__, __VA_ARGS__)

// One operation-log line: written twice, first to destination 2, then to 1.
#define VKS_OPLOG(english, chinese, ...)                                           \
    do {                                                                           \
        VW_WriteLanguageLog(2, VKS_LOG_MODULE, (english), (chinese), __VA_ARGS__); \
        VW_WriteLanguageLog(1, VKS_LOG_MODULE, (english), (chinese), __VA_ARGS__); \
    } while (0)

// Log-module names.
#define LOG_MULTI_TASK_APP_REST "LogMultiTaskAppRest"
#define LOG_FACE_APP_REST "LogFaceAppRest"
#define LOG_VKS_FRAMEWORK "LogVKSFrameWork"

// Source-file names carried by the debug lines.
#define VKS_SRC_DXMP_COMM "src/app/parse_model/com/vksapi_dxmp_comm"
#define VKS_SRC_DXMP_COMM_FROM_TASK "src/app/parse_model/multi_task/../com/vksapi_dxmp_comm"
#define VKS_SRC_MULTI_TASK "src/app/parse_model/multi_task/vksapi_multi_task_module"
#define VKS_SRC_MSG_COMM "src/public/include/intelligent/comm/vks_msg_comm"
#define VKS_SRC_BUSINESS_COMMON "src/vks_os/access_server/zkapi/inc/zkapi_business_common"

#endif
