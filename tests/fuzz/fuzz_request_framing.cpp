// The access server's request framing (host/request_framing.h) on any bytes, cut into pieces of any
// size: what it hands to evhttp does not depend on how the bytes arrived, and is always what evhttp
// reads one way only: heads of CRLF lines ending in a blank line, no Transfer-Encoding, at most one
// Content-Length and that many body bytes (none after HEAD or TRACE, which evhttp reads without a
// body), a stand-in only as the last head. Input: the piece size
// (first byte), then the bytes of the connection.
#include <event2/buffer.h>
#include <strings.h>

#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "request_framing.h"

namespace {

using vks_host::FrameRequests;
using vks_host::RequestFraming;

struct Outcome {
    std::string out;
    int handed = 0;
    int refusal = 0;
};

Outcome Frame(const uint8_t* data, size_t size, size_t piece) {
    RequestFraming f;
    f.maxHead = 256;  // small, so that the bounds are reached
    struct evbuffer* out = evbuffer_new();
    Outcome o;
    for (size_t at = 0; at < size; at += piece) {
        size_t n = size - at < piece ? size - at : piece;
        o.handed += FrameRequests(&f, reinterpret_cast<const char*>(data) + at, n, out);
        FUZZ_CHECK(f.pending.size() <= f.maxHead + piece);
    }
    o.out.resize(evbuffer_get_length(out));
    evbuffer_copyout(out, &o.out[0], o.out.size());
    evbuffer_free(out);
    o.refusal = f.refusal.code;
    return o;
}

// The value of a header line named name ("" when it is another one).
bool Named(const std::string& line, const char* name, std::string* value) {
    size_t colon = line.find(':');
    if (colon == std::string::npos || strncasecmp(line.c_str(), name, colon) != 0 || name[colon] != '\0') {
        return false;
    }
    *value = line.substr(colon + 1);
    return true;
}

// Walks the handed-on stream as evhttp would; returns the number of heads.
int CheckStream(const std::string& s, bool refused) {
    int heads = 0;
    size_t at = 0;
    while (at < s.size()) {
        size_t end = s.find("\r\n\r\n", at);
        FUZZ_CHECK(end != std::string::npos);  // heads are handed on whole
        std::string head = s.substr(at, end + 2 - at);
        int lengths = 0;
        unsigned long long length = 0;
        for (size_t line = 0; line < head.size();) {
            size_t eol = head.find("\r\n", line);
            std::string text = head.substr(line, eol - line);
            FUZZ_CHECK(text.find('\n') == std::string::npos && text.find('\r') == std::string::npos);
            std::string value;
            FUZZ_CHECK(!Named(text, "Transfer-Encoding", &value));
            if (Named(text, "Content-Length", &value)) {
                ++lengths;
                length = strtoull(value.c_str(), nullptr, 10);
            }
            line = eol + 2;
        }
        FUZZ_CHECK(lengths <= 1);
        ++heads;
        at = end + 4;
        if (refused && head.find("Connection: close\r\n") != std::string::npos && at == s.size()) {
            break;  // the stand-in, last
        }
        FUZZ_CHECK(length <= vks_host::kMaxRequestBody);
        FUZZ_CHECK(length == 0 || (head.compare(0, 5, "HEAD ") != 0 && head.compare(0, 6, "TRACE ") != 0));
        at += length < s.size() - at ? length : s.size() - at;  // the last body may still be coming
    }
    return heads;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) {
        return 0;
    }
    Outcome whole = Frame(data + 1, size - 1, size);
    Outcome pieces = Frame(data + 1, size - 1, data[0] % 16 + 1);
    FUZZ_CHECK(whole.out == pieces.out);
    FUZZ_CHECK(whole.handed == pieces.handed);
    FUZZ_CHECK(whole.refusal == pieces.refusal);
    FUZZ_CHECK(CheckStream(whole.out, whole.refusal != 0) == whole.handed);
    return 0;
}
