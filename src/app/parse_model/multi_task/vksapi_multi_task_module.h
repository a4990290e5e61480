// Exported entry points of the multi-task application module. The host resolves the handlers by
// these bare names and calls them phase by phase (PreProc, Parse, Run, Recv, Format).
#ifndef VKSAPI_MULTI_TASK_MODULE_H
#define VKSAPI_MULTI_TASK_MODULE_H

#include <cstdint>
#include <vector>

#include "dxmp_message.h"
#include "http_records.h"
#include "unix_cmd_channel.h"
#include "vw_result.h"
#include "app/parse_model/com/vksapi_dxmp_comm.h"

#define VKS_EXPORT __attribute__((visibility("default")))

extern "C" {

// MultiTaskAppTaskModesAvailableList, GET
VKS_EXPORT VW_RESULT_TYPE RunGetMultiTaskAppTaskModesAvailableList(tagHTTP_HEADER_S* header,
                                                                   tagHTTP_CLIENT_S* client,
                                                                   tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatGetMultiTaskAppTaskModesAvailableList(tagHTTP_HEADER_S* header,
                                                                      VW_RESULT_TYPE result,
                                                                      tagHTTP_CNTENT_INTER_S* ctIn,
                                                                      tagHTTP_BUF_S* buf);

// MultiTaskAppTaskModesCapacity, GET
VKS_EXPORT VW_RESULT_TYPE RunGetMultiTaskAppTaskModesCapacity(tagHTTP_HEADER_S* header,
                                                              tagHTTP_CLIENT_S* client,
                                                              tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatGetMultiTaskAppTaskModesCapacity(tagHTTP_HEADER_S* header,
                                                                 VW_RESULT_TYPE result,
                                                                 tagHTTP_CNTENT_INTER_S* ctIn,
                                                                 tagHTTP_BUF_S* buf);

// MultiTaskAppTaskModesEnableList, GET
VKS_EXPORT VW_RESULT_TYPE RunGetMultiTaskAppTaskModesEnableList(tagHTTP_HEADER_S* header,
                                                                tagHTTP_CLIENT_S* client,
                                                                tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE RecvGetMultiTaskAppTaskModesEnableList(tagHTTP_HEADER_S* header,
                                                                 tagHTTP_CLIENT_S* client,
                                                                 tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatGetMultiTaskAppTaskModesEnableList(tagHTTP_HEADER_S* header,
                                                                   VW_RESULT_TYPE result,
                                                                   tagHTTP_CNTENT_INTER_S* ctIn,
                                                                   tagHTTP_BUF_S* buf);

// MultiTaskAppDisplayRecogPopUps, GET
VKS_EXPORT VW_RESULT_TYPE RunGetMultiTaskAppDisplayRecogPopUps(tagHTTP_HEADER_S* header,
                                                               tagHTTP_CLIENT_S* client,
                                                               tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatGetMultiTaskAppDisplayRecogPopUps(tagHTTP_HEADER_S* header,
                                                                  VW_RESULT_TYPE result,
                                                                  tagHTTP_CNTENT_INTER_S* ctIn,
                                                                  tagHTTP_BUF_S* buf);

// MultiTaskAppDisplayRecogPopUps, PUT
VKS_EXPORT VW_RESULT_TYPE ParsePutMultiTaskAppDisplayRecogPopUps(tagHTTP_HEADER_S* header,
                                                                 tagHTTP_BUF_S* content,
                                                                 tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE RunPutMultiTaskAppDisplayRecogPopUps(tagHTTP_HEADER_S* header,
                                                               tagHTTP_CLIENT_S* client,
                                                               tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatPutMultiTaskAppDisplayRecogPopUps(tagHTTP_HEADER_S* header,
                                                                  VW_RESULT_TYPE result,
                                                                  tagHTTP_CNTENT_INTER_S* ctIn,
                                                                  tagHTTP_BUF_S* buf);

// MultiTaskAppDisplayRecogInfos, GET
VKS_EXPORT VW_RESULT_TYPE RunGetMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header,
                                                              tagHTTP_CLIENT_S* client,
                                                              tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatGetMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header,
                                                                 VW_RESULT_TYPE result,
                                                                 tagHTTP_CNTENT_INTER_S* ctIn,
                                                                 tagHTTP_BUF_S* buf);

// MultiTaskAppDisplayRecogInfos, PUT
VKS_EXPORT VW_RESULT_TYPE PreProcPutMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header,
                                                                  tagUNIX_SOCKET_S* synSock,
                                                                  tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE ParsePutMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header,
                                                                tagHTTP_BUF_S* content,
                                                                tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE RunPutMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header,
                                                              tagHTTP_CLIENT_S* client,
                                                              tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatPutMultiTaskAppDisplayRecogInfos(tagHTTP_HEADER_S* header,
                                                                 VW_RESULT_TYPE result,
                                                                 tagHTTP_CNTENT_INTER_S* ctIn,
                                                                 tagHTTP_BUF_S* buf);

// MultiTaskAppHistory, GET
VKS_EXPORT VW_RESULT_TYPE RunGetMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                    tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatGetMultiTaskAppHistory(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                       tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf);

// MultiTaskAppHistory, PUT
VKS_EXPORT VW_RESULT_TYPE PreProcPutMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagUNIX_SOCKET_S* synSock,
                                                        tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE ParsePutMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagHTTP_BUF_S* content,
                                                      tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE RunPutMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                    tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatPutMultiTaskAppHistory(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                       tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf);

// MultiTaskAppHistoryRecords, GET
VKS_EXPORT VW_RESULT_TYPE RunGetMultiTaskAppHistoryRecords(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                           tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatGetMultiTaskAppHistoryRecords(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                              tagHTTP_CNTENT_INTER_S* ctIn,
                                                              tagHTTP_BUF_S* buf);

// MultiTaskAppHistoryRecords, DELETE
VKS_EXPORT VW_RESULT_TYPE ParseDeleteMultiTaskAppHistoryRecords(tagHTTP_HEADER_S* header,
                                                                tagHTTP_BUF_S* content,
                                                                tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE RunDeleteMultiTaskAppHistoryRecords(tagHTTP_HEADER_S* header,
                                                              tagHTTP_CLIENT_S* client,
                                                              tagHTTP_CNTENT_INTER_S* ctIn);
VKS_EXPORT VW_RESULT_TYPE FormatDeleteMultiTaskAppHistoryRecords(tagHTTP_HEADER_S* header,
                                                                 VW_RESULT_TYPE result,
                                                                 tagHTTP_CNTENT_INTER_S* ctIn,
                                                                 tagHTTP_BUF_S* buf);

// History-query helpers: size of a file (-1 on failure); read size bytes into buf, NUL-terminate
// it at buf[size] and remove the file (0, or -1).
VKS_EXPORT long long GetFileSize(const char* path, unsigned int pathSize);
VKS_EXPORT int GetFileContent(const char* path, char* buf, unsigned long long size);

// Asynchronous DXMP exchange: the request is sent and its descriptor handed to the host's event loop.
VKS_EXPORT int AsyncBlockDXMPMsgInteraction(tagHTTP_CLIENT_S* httpClient, dxmp_message* msg,
                                            DXMPMsgData* msgData);
VKS_EXPORT int AsyncBlockDXMPMultiMsgInteraction(tagHTTP_CLIENT_S* httpClient, dxmp_message* msg,
                                                 DXMPMultiMsgData* msgData);

// The send and receive sides of the enable list's exchange. Bare names like every other entry point:
// the host looks them up by name. The vector is passed by reference, as the host declares it.
VKS_EXPORT int AsyncSendMsg_Get(tagHTTP_CLIENT_S* httpClient, uint16_t uri, uint8_t method,
                                const std::vector<DXMPMsgHeaderData>& headers);
VKS_EXPORT VW_RESULT_TYPE AsyncRecvMsg_Get(tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_CLIENT_S* client,
                                           uint16_t uri, uint8_t method);
}

#endif
