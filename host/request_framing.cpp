#include "request_framing.h"

#include <event2/buffer.h>

namespace vks_host {
namespace {

using Stage = RequestFraming::Stage;

const char kBadRequest[] = "Bad Request";

// The refused request's answer is given to a stand-in in its place: a HEAD keeps the answer
// without body, and "Connection: close" makes evhttp close the connection once it is written.
int StandIn(RequestFraming* f, struct evbuffer* out) {
    std::string line = std::string(f->request.head ? "HEAD" : "GET") + " / HTTP/1." +
                       std::to_string(f->request.minor) + "\r\nConnection: close\r\n\r\n";
    evbuffer_add(out, line.data(), line.size());
    f->stage = Stage::kRefused;
    f->pending.clear();
    f->body.clear();
    return 1;
}

int RefuseRequest(RequestFraming* f, int code, const char* reason, struct evbuffer* out) {
    Refuse(&f->refusal, code, reason);
    return StandIn(f, out);
}

void Consume(RequestFraming* f, size_t n) {
    f->pending.erase(0, n);
    f->scanned = 0;
}

// The length of the head in pending (up to its blank line, which is left out), or npos while it is
// incomplete; *next is where what follows it starts. Blank lines before a request line are
// dropped (a client may end a body with an extra CRLF).
size_t HeadEnd(RequestFraming* f, size_t* next) {
    for (size_t nl; (nl = f->pending.find('\n', f->scanned)) != std::string::npos;) {
        size_t lineStart = f->scanned;
        f->scanned = nl + 1;
        bool blank = nl == lineStart || (nl == lineStart + 1 && f->pending[lineStart] == '\r');
        if (blank && lineStart == 0) {
            Consume(f, nl + 1);
        } else if (blank) {
            *next = nl + 1;
            return lineStart;
        }
    }
    return std::string::npos;
}

// A head beyond the bound: the request line alone (414) or the block (431). The envelope names
// what the request line gives of the target (cut to its field there).
int RefuseLongHead(RequestFraming* f, struct evbuffer* out) {
    size_t lineEnd = f->pending.find('\n');
    bool lineTooLong = lineEnd == std::string::npos || lineEnd >= f->maxHead;
    std::string line = f->pending.substr(0, lineTooLong ? f->maxHead : lineEnd);
    size_t space = line.find(' ');
    std::string target = space == std::string::npos ? "" : line.substr(space + 1);
    f->request.target = target.substr(0, target.find(' '));
    f->request.head = line.compare(0, 5, "HEAD ") == 0;
    return lineTooLong ? RefuseRequest(f, 414, "URI Too Long", out)
                       : RefuseRequest(f, 431, "Request Header Fields Too Large", out);
}

// kHead: a complete head is checked and handed on (a chunked body's head waits for the body).
int TakeHead(RequestFraming* f, struct evbuffer* out, bool* more) {
    f->request = RequestHead();
    size_t next = 0;
    size_t end = HeadEnd(f, &next);
    if (end == std::string::npos || next > f->maxHead) {
        *more = false;
        bool tooLong = f->pending.size() > f->maxHead;
        return tooLong ? RefuseLongHead(f, out) : 0;
    }
    if (CheckRequestHead(f->pending.substr(0, end), kMaxRequestBody, &f->request, &f->refusal) != 0) {
        return StandIn(f, out);
    }
    Consume(f, next);
    if (f->request.chunked) {
        f->stage = Stage::kChunkSize;
        f->body.clear();
        f->trailerBytes = 0;
        return 0;
    }
    f->request.lines += "\r\n";
    evbuffer_add(out, f->request.lines.data(), f->request.lines.size());
    f->left = f->request.contentLength;
    f->stage = f->left > 0 ? Stage::kBody : Stage::kHead;
    return 1;
}

// kBody: a Content-Length body passes as it comes.
void PassBody(RequestFraming* f, struct evbuffer* out) {
    size_t n = f->left < f->pending.size() ? static_cast<size_t>(f->left) : f->pending.size();
    evbuffer_add(out, f->pending.data(), n);
    Consume(f, n);
    f->left -= n;
    if (f->left == 0) {
        f->stage = Stage::kHead;
    }
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

size_t SkipBlanks(const std::string& s, size_t i) {
    while (i < s.size() && IsBlank(s[i])) {
        ++i;
    }
    return i;
}

size_t SkipToken(const std::string& s, size_t i) {
    while (i < s.size() && IsTokenChar(static_cast<unsigned char>(s[i]))) {
        ++i;
    }
    return i;
}

// A quoted string from its opening quote: the index after the closing one, or npos.
size_t SkipQuoted(const std::string& s, size_t i) {
    for (++i; i < s.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c == '"') {
            return i + 1;
        }
        if (c == '\\') {
            ++i;
            c = i < s.size() ? static_cast<unsigned char>(s[i]) : 0;
        }
        if ((c < 0x20 && c != '\t') || c == 0x7f) {
            return std::string::npos;
        }
    }
    return std::string::npos;
}

// Chunk extensions after the size: *( BWS ";" BWS name [ BWS "=" BWS ( token / quoted-string ) ] ).
// They are read past, not used.
bool ValidExtensions(const std::string& s, size_t i) {
    while ((i = SkipBlanks(s, i)) < s.size()) {
        if (s[i] != ';') {
            return false;
        }
        size_t name = SkipBlanks(s, i + 1);
        i = SkipToken(s, name);
        if (i == name) {
            return false;
        }
        size_t eq = SkipBlanks(s, i);
        if (eq < s.size() && s[eq] == '=') {
            size_t value = SkipBlanks(s, eq + 1);
            i = value < s.size() && s[value] == '"' ? SkipQuoted(s, value) : SkipToken(s, value);
            if (i == std::string::npos || i == value) {
                return false;
            }
        }
    }
    return true;
}

// A chunk-size line (without its line end): 0 with *size, or the refusal's status.
int ParseChunkSize(const std::string& line, uint64_t room, uint64_t* size, Refusal* refusal) {
    size_t i = 0;
    uint64_t value = 0;
    bool tooLarge = false;
    for (int digit; i < line.size() && (digit = HexValue(line[i])) >= 0; ++i) {
        tooLarge = tooLarge || value > room;  // checked before it can overflow: room is at most 1 MiB
        value = tooLarge ? value : value * 16 + static_cast<uint64_t>(digit);
    }
    if (i == 0 || !ValidExtensions(line, i)) {
        return Refuse(refusal, 400, kBadRequest);
    }
    if (tooLarge || value > room) {
        return Refuse(refusal, 413, "Payload Too Large");
    }
    *size = value;
    return 0;
}

// The next line of pending without its line end, consumed; false while none is complete.
bool TakeLine(RequestFraming* f, std::string* line) {
    size_t nl = f->pending.find('\n');
    if (nl == std::string::npos) {
        return false;
    }
    *line = f->pending.substr(0, nl);
    if (!line->empty() && line->back() == '\r') {
        line->pop_back();
    }
    Consume(f, nl + 1);
    return true;
}

int TakeChunkSize(RequestFraming* f, struct evbuffer* out, bool* more) {
    std::string line;
    if (!TakeLine(f, &line)) {
        *more = false;
        return f->pending.size() > f->maxHead ? RefuseRequest(f, 400, kBadRequest, out) : 0;
    }
    if (ParseChunkSize(line, kMaxRequestBody - f->body.size(), &f->left, &f->refusal) != 0) {
        return StandIn(f, out);
    }
    f->stage = f->left == 0 ? Stage::kTrailer : Stage::kChunkData;
    return 0;
}

void TakeChunkData(RequestFraming* f) {
    size_t n = f->left < f->pending.size() ? static_cast<size_t>(f->left) : f->pending.size();
    f->body.append(f->pending, 0, n);
    Consume(f, n);
    f->left -= n;
    if (f->left == 0) {
        f->stage = Stage::kChunkEnd;
    }
}

// The line end after a chunk's data, and nothing before it.
int TakeChunkEnd(RequestFraming* f, struct evbuffer* out, bool* more) {
    size_t need = !f->pending.empty() && f->pending[0] == '\r' ? 2 : 1;
    if (f->pending.size() < need) {
        *more = false;
        return 0;
    }
    if (f->pending[need - 1] != '\n') {
        return RefuseRequest(f, 400, kBadRequest, out);
    }
    Consume(f, need);
    f->stage = Stage::kChunkSize;
    return 0;
}

// Trailer lines are checked like header lines and dropped; at the blank line the request goes on
// with its decoded body and that body's length.
int TakeTrailer(RequestFraming* f, struct evbuffer* out, bool* more) {
    std::string line;
    if (!TakeLine(f, &line)) {
        *more = false;
        bool tooLong = f->trailerBytes + f->pending.size() > f->maxHead;
        return tooLong ? RefuseRequest(f, 431, "Request Header Fields Too Large", out) : 0;
    }
    f->trailerBytes += line.size() + 2;
    if (f->trailerBytes > f->maxHead) {
        return RefuseRequest(f, 431, "Request Header Fields Too Large", out);
    }
    if (!line.empty()) {
        return CheckFieldLine(line, &f->refusal) != 0 ? StandIn(f, out) : 0;
    }
    std::string head = f->request.lines + "Content-Length: " + std::to_string(f->body.size()) + "\r\n\r\n";
    evbuffer_add(out, head.data(), head.size());
    evbuffer_add(out, f->body.data(), f->body.size());
    f->body.clear();
    f->stage = Stage::kHead;
    return 1;
}

// One step on what pending holds; *more false when it needs more bytes.
int Step(RequestFraming* f, struct evbuffer* out, bool* more) {
    switch (f->stage) {
        case Stage::kHead:
            return TakeHead(f, out, more);
        case Stage::kBody:
            PassBody(f, out);
            return 0;
        case Stage::kChunkSize:
            return TakeChunkSize(f, out, more);
        case Stage::kChunkData:
            TakeChunkData(f);
            return 0;
        case Stage::kChunkEnd:
            return TakeChunkEnd(f, out, more);
        case Stage::kTrailer:
            return TakeTrailer(f, out, more);
        case Stage::kRefused:
            break;
    }
    f->pending.clear();
    *more = false;
    return 0;
}

}  // namespace

int FrameRequests(RequestFraming* f, const char* data, size_t size, struct evbuffer* out) {
    if (f->stage == Stage::kRefused) {
        return 0;
    }
    f->pending.append(data, size);
    int handed = 0;
    for (bool more = true; more && !f->pending.empty();) {
        handed += Step(f, out, &more);
    }
    return handed;
}

}  // namespace vks_host
