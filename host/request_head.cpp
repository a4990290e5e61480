#include "request_head.h"

#include <strings.h>

#include <cctype>
#include <cstring>

#include "zkapi_common.h"

namespace vks_host {
namespace {

const char kBadRequest[] = "Bad Request";

// The methods the router takes; CONNECT and any other method are not served at all.
const char* const kMethods[] = {"GET", "HEAD", "POST", "PUT", "DELETE", "OPTIONS", "TRACE", "PATCH"};

bool IsToken(const std::string& text) {
    for (unsigned char c : text) {
        if (!IsTokenChar(c)) {
            return false;
        }
    }
    return !text.empty();
}

// A request target is visible ASCII: no blank, control character or byte beyond ASCII.
bool IsVisible(const std::string& text) {
    for (unsigned char c : text) {
        if (c <= 0x20 || c >= 0x7f) {
            return false;
        }
    }
    return !text.empty();
}

// A field value may hold blanks, tabs, visible characters and bytes from 0x80 on; a NUL, a bare
// CR or another control character is refused rather than cut at or passed on.
bool IsFieldValue(const std::string& text) {
    for (unsigned char c : text) {
        if ((c < 0x20 && c != '\t') || c == 0x7f) {
            return false;
        }
    }
    return true;
}

std::string TrimBlanks(const std::string& text) {
    size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

int CheckVersion(const std::string& version, int* minor, Refusal* refusal) {
    if (version == "HTTP/1.1" || version == "HTTP/1.0") {
        *minor = version[7] - '0';
        return 0;
    }
    // The version is not checked for visible characters first: a byte from 0x80 on must not reach
    // isdigit() as a negative value.
    bool wellFormed = version.size() == 8 && version.compare(0, 5, "HTTP/") == 0 &&
                      isdigit(static_cast<unsigned char>(version[5])) && version[6] == '.' &&
                      isdigit(static_cast<unsigned char>(version[7]));
    return wellFormed ? Refuse(refusal, 505, "HTTP Version Not Supported")
                      : Refuse(refusal, 400, kBadRequest);
}

// "METHOD SP target SP HTTP/1.x", nothing more and nothing less.
int CheckRequestLine(const std::string& line, RequestHead* out, Refusal* refusal) {
    size_t first = line.find(' ');
    size_t second = first == std::string::npos ? first : line.find(' ', first + 1);
    if (second == std::string::npos || line.find(' ', second + 1) != std::string::npos) {
        return Refuse(refusal, 400, kBadRequest);
    }
    std::string method = line.substr(0, first);
    std::string target = line.substr(first + 1, second - first - 1);
    out->target = target.substr(0, sizeof(ZKAPI_RESPONSE_STATUS::RequestURL) - 1);
    out->head = method == "HEAD";
    out->noBody = out->head || method == "TRACE";
    if (!IsToken(method) || !IsVisible(target)) {
        return Refuse(refusal, 400, kBadRequest);
    }
    if (CheckVersion(line.substr(second + 1), &out->minor, refusal) != 0) {
        return refusal->code;
    }
    for (const char* known : kMethods) {
        if (method == known) {
            return 0;
        }
    }
    return Refuse(refusal, 501, "Not Implemented");
}

// What the header lines say about the framing of the body and the host.
struct Framing {
    int hosts = 0;
    int transferEncodings = 0;
    bool hasLength = false;
    bool lengthTooLarge = false;
    uint64_t length = 0;
};

// Content-Length is 1*DIGIT; a repeated one must give the same number.
int NoteContentLength(const std::string& value, uint64_t maxBody, Framing* f, Refusal* refusal) {
    if (value.empty() || value.find_first_not_of("0123456789") != std::string::npos) {
        return Refuse(refusal, 400, kBadRequest);
    }
    uint64_t length = 0;
    bool tooLarge = false;
    for (char c : value) {
        tooLarge = tooLarge || length > (UINT64_MAX - 9) / 10;
        length = tooLarge ? length : length * 10 + static_cast<uint64_t>(c - '0');
    }
    tooLarge = tooLarge || length > maxBody;
    if (f->hasLength && (length != f->length || tooLarge != f->lengthTooLarge)) {
        return Refuse(refusal, 400, kBadRequest);
    }
    f->hasLength = true;
    f->length = length;
    f->lengthTooLarge = tooLarge;
    return 0;
}

// One header line; *keep is false for a line not handed on.
int NoteField(const std::string& line, uint64_t maxBody, Framing* f, bool* keep, Refusal* refusal) {
    *keep = true;
    if (CheckFieldLine(line, refusal) != 0) {
        return refusal->code;
    }
    std::string name = line.substr(0, line.find(':'));
    std::string value = TrimBlanks(line.substr(name.size() + 1));
    if (strcasecmp(name.c_str(), "Host") == 0) {
        ++f->hosts;
    } else if (strcasecmp(name.c_str(), "Content-Length") == 0) {
        return NoteContentLength(value, maxBody, f, refusal);
    } else if (strcasecmp(name.c_str(), "Transfer-Encoding") == 0) {
        ++f->transferEncodings;
        *keep = false;
        if (strcasecmp(value.c_str(), "chunked") != 0) {
            return Refuse(refusal, 501, "Not Implemented");  // a coding the server does not know
        }
    }
    return 0;
}

// The block as a whole: one Host (required from HTTP/1.1 on), one way of framing the body, and no
// body where evhttp would take it for the next request.
int CheckFraming(const Framing& f, RequestHead* out, Refusal* refusal) {
    bool chunked = f.transferEncodings > 0;
    bool body = chunked || f.length > 0;
    if (f.hosts > 1 || (f.hosts == 0 && out->minor >= 1) || f.transferEncodings > 1 ||
        (chunked && (f.hasLength || out->minor == 0)) || (body && out->noBody)) {
        return Refuse(refusal, 400, kBadRequest);
    }
    if (f.lengthTooLarge) {
        return Refuse(refusal, 413, "Payload Too Large");
    }
    out->chunked = chunked;
    out->contentLength = f.length;
    return 0;
}

}  // namespace

bool IsTokenChar(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           (c != '\0' && strchr("!#$%&'*+-.^_`|~", c) != nullptr);
}

int Refuse(Refusal* refusal, int code, const char* reason) {
    refusal->code = code;
    refusal->reason = reason;
    return code;
}

int CheckFieldLine(const std::string& line, Refusal* refusal) {
    size_t colon = line.find(':');
    // A line that starts with a blank continues the one before (obsolete folding): refused, since
    // evhttp would join it to a value that other readers end at the line before.
    if (colon == std::string::npos || !IsToken(line.substr(0, colon)) ||
        !IsFieldValue(line.substr(colon + 1))) {
        return Refuse(refusal, 400, kBadRequest);
    }
    return 0;
}

int CheckRequestHead(const std::string& head, uint64_t maxBody, RequestHead* out, Refusal* refusal) {
    Framing framing;
    bool requestLine = true;
    for (size_t start = 0; start < head.size();) {
        size_t end = head.find('\n', start);
        end = end == std::string::npos ? head.size() : end;
        std::string line = head.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        bool keep = true;
        int rc = requestLine ? CheckRequestLine(line, out, refusal)
                             : NoteField(line, maxBody, &framing, &keep, refusal);
        if (rc != 0) {
            return rc;
        }
        if (keep) {
            out->lines += line + "\r\n";
        }
        requestLine = false;
        start = end + 1;
    }
    return CheckFraming(framing, out, refusal);
}

}  // namespace vks_host
