// Request records that the access server hands to every handler phase of a plug-in module.
#ifndef HTTP_RECORDS_H
#define HTTP_RECORDS_H

#include <stdint.h>

#include "vw_result.h"

#define HTTP_METHOD_LEN 16
#define HTTP_URL_LEN 1024
#define HTTP_USER_LEN 64
#define HTTP_IP_LEN 64

struct dxmp_message;
typedef struct tagUNIX_SOCKET_S tagUNIX_SOCKET_S;  // opaque to modules; see unix_cmd_channel.h

// The parsed request. szReqUrl is the request target as the client sent it: path and query string.
typedef struct tagHTTP_HEADER_S {
    char method[HTTP_METHOD_LEN];
    char szReqUrl[HTTP_URL_LEN];
    char szUserName[HTTP_USER_LEN];
    char szClientIp[HTTP_IP_LEN];
    uint64_t clientPort;
} tagHTTP_HEADER_S;

// A body buffer: pContent is the NUL-terminated request body (Parse); Copy2Buf appends response text
// (Format) and returns -1 when the text could not be taken. pPrivate belongs to the host.
typedef struct tagHTTP_BUF_S {
    int (*Copy2Buf)(struct tagHTTP_BUF_S* self, const char* text, unsigned int length);
    const char* pContent;
    void* pPrivate;
} tagHTTP_BUF_S;

// Per-request interchange record: three slots, each null or one malloc block that the host frees
// after the Format phase.
typedef struct tagHTTP_CNTENT_INTER_S {
    void* preProcOut;
    void* parseOut;
    void* runOut;
} tagHTTP_CNTENT_INTER_S;

// The client connection. pRecvMsg receives the reply of an asynchronous DXMP request before the host
// calls the Recv phase. pPrivate belongs to the host.
typedef struct tagHTTP_CLIENT_S {
    tagUNIX_SOCKET_S* synSock;
    struct dxmp_message* pRecvMsg;
    void* pPrivate;
} tagHTTP_CLIENT_S;

#endif
