// DXMP message library: the binary request/reply messages exchanged with services over the service
// file system, and the host's registry of asynchronous replies.
#ifndef DXMP_MESSAGE_H
#define DXMP_MESSAGE_H

#include <stdint.h>

#include "http_records.h"

// Byte offsets within the fixed header that callers may read or write.
#define DXMP_HDR_BYTE2 2         // reserved byte, set to 0 by requesters
#define DXMP_HDR_FLAGS_METHOD 3  // bit 7: reply flag (set by the library), bits 0-6: method
#define DXMP_HDR_URI 4           // 16-bit command number, native byte order
#define DXMP_HDR_STATUS 6        // 16-bit status of a reply (200 = handled)
#define DXMP_FIXED_HEADER_LEN 16

#define DXMP_HDR_MAGIC0 0       // 'D'
#define DXMP_HDR_MAGIC1 1       // 'X'
#define DXMP_HDR_FRAME_LEN 8    // 32-bit little-endian length of the whole frame, fixed header included
#define DXMP_HDR_ITEM_COUNT 12  // 16-bit little-endian number of header items
#define DXMP_MAX_FRAME_LEN (1u << 20)  // frames declaring more are refused, never allocated
#define DXMP_MAX_ITEMS 64

#define DXMP_METHOD_GET 2
#define DXMP_METHOD_PUT 3

// Header item types used by the multi-task application.
#define DXMP_ITEM_RESULT 0xB001           // 4-byte result code of a reply
#define DXMP_ITEM_CHANNEL_ID 0xB002       // 8-byte channel identifier
#define DXMP_ITEM_ENABLE_LIST_REQ 0xB010  // request block of the task-mode enable list
#define DXMP_ITEM_CHANNEL_GROUP 0xB011    // 4-byte channel group

// A message is opaque except for its first member, the address of its fixed header
// (DXMP_FIXED_HEADER_LEN bytes, see docs/dxmp-wire-format.md).
typedef struct dxmp_message {
    uint8_t* pFixedHeader;
} dxmp_message;

#ifdef __cplusplus
extern "C" {
#endif

dxmp_message* dxmp_message_new(int flags);          // one reference; null when out of memory
dxmp_message* dxmp_message_get(dxmp_message* msg);  // takes another reference, returns msg
void dxmp_message_put(dxmp_message* msg);           // drops one reference; the last frees it

// Copies the value. A second set of the same type replaces its value and keeps the item's place.
int dxmp_header_set(dxmp_message* msg, uint16_t type, const void* value, uint16_t length);
int dxmp_header_get(dxmp_message* msg, uint16_t type, void** value, uint16_t* length);  // 0 if present
void dxmp_header_clear(dxmp_message* msg);

int dxmp_content_add(dxmp_message* msg, const void* data, uint32_t length, int flags);  // appends a copy
int dxmp_content(dxmp_message* msg, void** data, uint32_t* length);  // 0 when there is content
void dxmp_content_clear(dxmp_message* msg);

int dxmp_message_sendfd(dxmp_message* msg, int fd);  // 0, or -1 with errno set
int dxmp_message_recvfd(dxmp_message* msg, int fd);  // 0, or -1 (bad frame, limit exceeded, I/O error)

// Length of the frame whose fixed header is given (DXMP_FIXED_HEADER_LEN bytes): 0 and *length, or -1
// for a bad magic or a length outside [DXMP_FIXED_HEADER_LEN, DXMP_MAX_FRAME_LEN]. Lets a transport cut
// a byte stream into frames without decoding them.
int dxmp_frame_length(const uint8_t* fixedHeader, uint32_t* length);

// Encoding to and from memory, for services that are not reached through a descriptor.
// dxmp_message_encode returns a malloc block (caller frees) and its length, or null.
uint8_t* dxmp_message_encode(dxmp_message* msg, uint32_t* length);
int dxmp_message_decode(dxmp_message* msg, const uint8_t* data, uint32_t length);

// ---- Asynchronous replies (host event machinery) ----
// Registers fd for the client's outstanding request with the host's event loop; from then on the
// host owns the descriptor. 0 on success.
int AddDxmpAsynEvent(tagHTTP_CLIENT_S* client, int fd, dxmp_message* request);
// Cancels that registration; the host closes the descriptor. 0 on success.
int DeleteDxmpAsynEvent(tagHTTP_CLIENT_S* client, int fd);

// The access server (or a test) installs the implementation of the two calls above. Without hooks
// both calls fail with -1. Once it returns, no call of the previous hooks is still running; a hook must
// not install hooks itself.
typedef int (*DxmpAsynAddFn)(void* ctx, tagHTTP_CLIENT_S* client, int fd, dxmp_message* request);
typedef int (*DxmpAsynDelFn)(void* ctx, tagHTTP_CLIENT_S* client, int fd);
void DxmpSetAsynEventHooks(DxmpAsynAddFn add, DxmpAsynDelFn del, void* ctx);

#ifdef __cplusplus
}
#endif

#endif
