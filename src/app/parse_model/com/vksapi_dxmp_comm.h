// Synchronous DXMP exchange with the analysis service and the typed round trips built on it.
#ifndef VKSAPI_DXMP_COMM_H
#define VKSAPI_DXMP_COMM_H

#include <cstdint>
#include <vector>

#include "dxmp_message.h"
#include "http_records.h"
#include "vw_result.h"

// One header item of a request.
struct DXMPMsgHeaderData {
    uint16_t headType;
    const void* pData;
    uint32_t dataLen;  // passed to the library as 16 bits
};

// Request description of the one-item exchange.
struct DXMPMsgData {
    DXMPMsgHeaderData header;
    const void* content;
    uint32_t contentLen;
    uint16_t uri;
    uint8_t msgMethod;  // low 7 bits used: 2 get, 3 put
};

// Request description of the several-item exchange; items are sent in vector order.
struct DXMPMultiMsgData {
    std::vector<DXMPMsgHeaderData> headers;
    const void* content;
    uint32_t contentLen;
    uint16_t uri;
    uint8_t msgMethod;
};

extern "C" {
// 0 when a valid reply (status 200, same uri) is in msg; -1 on every failure.
__attribute__((visibility("default"))) int SyncBlockDXMPMsgInteraction(dxmp_message* msg, DXMPMsgData* msgData);
__attribute__((visibility("default"))) int SyncBlockDXMPMultiMsgInteraction(dxmp_message* msg,
                                                                            DXMPMultiMsgData* msgData);
}

// ProcMsg_Get<T> / ProcMsg_Put<T> templates follow here.

#endif
