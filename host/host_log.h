// Debug lines of the access server itself, through the same log library as the module's.
#ifndef VKS_HOST_HOST_LOG_H
#define VKS_HOST_HOST_LOG_H

#include "vw_log.h"

// Module code of the server's own lines; the plug-in module writes with 4.
#define VKS_HOST_LOG_MODULE 1

#define HOST_LOG(level, fmt, ...)                                                                  \
    VW_WriteLog(VKS_HOST_LOG_MODULE, (level), g_enDebugFlag, 0, __FILE__, __LINE__, "[host]:" fmt, \
                ##__VA_ARGS__)

#endif
