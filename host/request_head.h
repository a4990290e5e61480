// The request line and header block of one request, checked strictly before evhttp reads them.
// evhttp 2.1 takes what a stricter reader frames differently (the first of two Content-Length
// values, "+41", folded lines, a NUL that cuts a value short): a request that two parsers on its
// way read differently can hide another one, so such a request is refused here.
#ifndef VKS_HOST_REQUEST_HEAD_H
#define VKS_HOST_REQUEST_HEAD_H

#include <cstdint>
#include <string>

namespace vks_host {

// The status a request is answered with instead of being served (code 0: none).
struct Refusal {
    int code = 0;
    const char* reason = "";
};

struct RequestHead {
    std::string target;   // as sent, cut to the status envelope's field
    bool head = false;    // a HEAD request: its answer has no body
    bool noBody = false;  // HEAD or TRACE: evhttp reads no body after it, whatever the head says
    int minor = 1;        // HTTP/1.<minor>
    bool chunked = false;
    uint64_t contentLength = 0;
    // The request line and the header lines to hand on, each ended by CRLF, without the blank line;
    // a Transfer-Encoding line is left out (the body is handed on decoded, with its length).
    std::string lines;
};

// Checks head: the request line and the header lines, each ended by LF or CRLF, without the blank
// line that ends the block. 0 with *out filled; otherwise the refusal's status, *refusal set and of
// *out what could be read (target, head, minor).
int CheckRequestHead(const std::string& head, uint64_t maxBody, RequestHead* out, Refusal* refusal);

// Checks one header or trailer line (without its line end): a token, a colon, a value without
// control characters, not a continuation of the line before. 0, or 400 with *refusal set.
int CheckFieldLine(const std::string& line, Refusal* refusal);

// A character of a token (method, field name, chunk extension name or value).
bool IsTokenChar(unsigned char c);

// Sets *refusal and returns its status.
int Refuse(Refusal* refusal, int code, const char* reason);

}  // namespace vks_host

#endif
