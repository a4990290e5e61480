// Request building and connection set-up shared by the synchronous and the asynchronous exchange.
// Every function logs its own failure (tag "LogVKSFrameWork", source file given by the caller).
#ifndef VKS_DXMP_REQUEST_H
#define VKS_DXMP_REQUEST_H

#include "app/parse_model/com/vksapi_dxmp_comm.h"

// -1 (logged) when msgData or msg is null, checked in that order.
int DxmpCheckRequest(const void* msgData, const dxmp_message* msg, const char* file);

// Writes uri, byte 2 and the method into the fixed header, then the header item and the content.
// A refused item or content fails with -1.
int DxmpFillRequest(dxmp_message* msg, const DXMPMsgData* msgData, const char* file);
// The same with several items; a refused item is logged and skipped, a refused content fails.
int DxmpFillMultiRequest(dxmp_message* msg, const DXMPMultiMsgData* msgData, const char* file);

// A 16-bit field of the fixed header (uri, status), in native byte order.
uint16_t DxmpFixedHeaderU16(const dxmp_message* msg, int offset);

// Opens the registered service file and sets the reply time-out (and, with setBuffers, the read and
// write buffer sizes). The descriptor, or -1 with nothing left open.
int DxmpOpenService(const char* file, bool setBuffers);

#endif
