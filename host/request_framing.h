// A connection's requests as they arrive, held back from evhttp until each is known to be well
// framed: the head once it is complete and checked (request_head.h), a Content-Length body as it
// comes, a chunked body once its last chunk is in, decoded and handed on with its length (evhttp
// 2.1 refuses chunk extensions and answers a malformed chunk size as too large). A refused request
// is replaced by a stand-in that evhttp queues in its place, so that its answer keeps its turn
// among the answers to the requests before it; everything after it is dropped.
#ifndef VKS_HOST_REQUEST_FRAMING_H
#define VKS_HOST_REQUEST_FRAMING_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "request_head.h"

struct evbuffer;

namespace vks_host {

// The largest request body taken, whole or decoded from chunks.
constexpr uint64_t kMaxRequestBody = 1u << 20;

struct RequestFraming {
    enum class Stage { kHead, kBody, kChunkSize, kChunkData, kChunkEnd, kTrailer, kRefused };
    size_t maxHead = 16384;  // request line and header block, and the trailer block
    Stage stage = Stage::kHead;
    std::string pending;  // bytes that arrived and were not handed on yet
    size_t scanned = 0;   // of pending, how far a head's end was looked for
    uint64_t left = 0;    // of the body or the current chunk
    RequestHead request;  // the request whose chunked body is gathered, or the refused one
    std::string body;     // the chunked body so far, decoded
    size_t trailerBytes = 0;
    Refusal refusal;  // once set, the stand-in is handed on and later bytes are dropped
};

// Takes size bytes that arrived and appends to out what is whole and checked. Returns how many
// request heads it appended, a stand-in for a refused request included.
int FrameRequests(RequestFraming* f, const char* data, size_t size, struct evbuffer* out);

}  // namespace vks_host

#endif
