// The host's unix-socket command channel to the system: numbered commands with fixed-size bodies.
#ifndef UNIX_CMD_CHANNEL_H
#define UNIX_CMD_CHANNEL_H

#include <stddef.h>
#include <stdint.h>

#include "http_records.h"

typedef enum VW_CMD_TYPE {
    VW_CMD_GET_HISTORY_RECORDS = 7032,
    VW_CMD_DISPLAY_RECOG_INFOS = 7037,
    VW_CMD_HISTORY_SWITCH = 22025,
    VW_CMD_DELETE_HISTORY_RECORDS = 22026,
} VW_CMD_TYPE;

typedef enum VW_MSG_TYPE {
    VW_MSG_REQUEST = 0,
} VW_MSG_TYPE;

#define VW_CMD_BODY_LEN 21208
#define VW_MSG_DATA_LEN 21408

// A command body: zero-filled, the command's parameters at its start.
typedef struct vwCmdBody {
    unsigned char data[VW_CMD_BODY_LEN];
} vwCmdBody;

// The reply of RestSendSynUnixMsg. Modules read the three named fields.
typedef struct MSG_DATA {
    unsigned char head[164];
    int32_t recvMsgCode;  // received message code
    unsigned char reserved1[8];
    int32_t result;  // the service's result; 0 = success
    unsigned char reserved2[228];
    char szPath[128];  // path of a result file, for commands that produce one
    unsigned char payload[VW_MSG_DATA_LEN - 536];
} MSG_DATA;

#ifdef __cplusplus
static_assert(sizeof(vwCmdBody) == 21208, "vwCmdBody size");
static_assert(sizeof(MSG_DATA) == 21408, "MSG_DATA size");
static_assert(offsetof(MSG_DATA, recvMsgCode) == 164, "MSG_DATA recvMsgCode");
static_assert(offsetof(MSG_DATA, result) == 176, "MSG_DATA result");
static_assert(offsetof(MSG_DATA, szPath) == 408, "MSG_DATA szPath");
#endif

// Length of the record a read of the command gives back.
#define VW_CMD_HISTORY_SWITCH_RECORD_LEN 16
#define VW_CMD_DISPLAY_RECOG_INFOS_RECORD_LEN 64

// Reads a record: on success (0) *out holds a malloc block with the record the command reads back,
// owned by the caller from then on; on failure *out is left unchanged. The block is as long as the
// record the peer's reply carries, and never shorter than the command's record (the lengths above).
// Results: the peer's result, 1 for a null handle, body or out, -1 when the exchange failed (no
// peer, time-out, bad frame), 18 when the record is shorter than the command's.
VW_RESULT_TYPE GetCommon(tagHTTP_HEADER_S* header, tagUNIX_SOCKET_S* sock, VW_CMD_TYPE cmd,
                         vwCmdBody const* body, void** out, unsigned long long reserved, char const* tag);
// Writes a record of length bytes (at most VW_CMD_BODY_LEN). Results as for GetCommon.
VW_RESULT_TYPE SetCommon(tagHTTP_HEADER_S* header, void* data, unsigned int length, tagUNIX_SOCKET_S* sock,
                         VW_CMD_TYPE cmd, unsigned long long reserved, char const* tag);
// Sends a command and receives the raw reply into *reply. 0 when sent and received.
long long RestSendSynUnixMsg(char const* tag, VW_MSG_TYPE msgType, VW_CMD_TYPE cmd, vwCmdBody const* body,
                             tagUNIX_SOCKET_S* sock, MSG_DATA* reply, unsigned long long reserved);

// ---- Host side: connection handles ----
// A handle names the command-channel server's socket. It connects on first use, so creating one
// never fails for a peer that is not there; the command functions above fail instead. A null path
// names the kit's default socket, cmd.sock in the user's private folder (platform/kitdir). Every
// exchange is bounded by timeoutMs (a silent peer fails the call). Null only when out of memory.
tagUNIX_SOCKET_S* UnixSocketOpen(const char* path, int timeoutMs);
void UnixSocketClose(tagUNIX_SOCKET_S* sock);

// Time-out of a handle opened with timeoutMs <= 0.
#define VW_CMD_TIMEOUT_DEFAULT_MS 3000

#endif
