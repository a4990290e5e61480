#include "control_answer.h"

#include <json-c/json.h>

#include <cstdio>

#include "web_files.h"

namespace control {

const size_t kMaxEchoedPath = 255;

std::string ErrorJson(const std::string& message) {
    json_object* body = json_object_new_object();
    json_object_object_add(body, "error",
                           json_object_new_string_len(message.data(), static_cast<int>(message.size())));
    std::string text =
        json_object_to_json_string_ext(body, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
    json_object_put(body);
    return text;
}

void SendControlError(struct evhttp_request* req, int code, const std::string& message) {
    vks_web::SendText(req, code, "application/json; charset=utf-8", ErrorJson(message));
}

void RefuseFile(struct evhttp_request* req, int code, const char* reason) {
    SendControlError(
        req, code,
        code == 404 ? "no such file: " + EchoedPath(vks_web::RequestPath(req)) : std::string(reason));
}

namespace {

// The length of the UTF-8 character at text[i], 0 when the bytes there are none (a stray or
// overlong byte, a surrogate, beyond U+10FFFF, or cut short).
size_t CharLength(const std::string& text, size_t i) {
    auto at = [&](size_t k) { return static_cast<unsigned char>(text[i + k]); };
    unsigned char c = at(0);
    size_t n = c < 0x80                 ? 1
               : c >= 0xC2 && c <= 0xDF ? 2
               : c >= 0xE0 && c <= 0xEF ? 3
               : c >= 0xF0 && c <= 0xF4 ? 4
                                        : 0;
    if (n == 0 || i + n > text.size()) {
        return 0;
    }
    for (size_t k = 1; k < n; ++k) {
        if ((at(k) & 0xC0) != 0x80) {
            return 0;
        }
    }
    bool outside = (c == 0xE0 && at(1) < 0xA0) || (c == 0xED && at(1) >= 0xA0) ||
                   (c == 0xF0 && at(1) < 0x90) || (c == 0xF4 && at(1) >= 0x90);
    return outside ? 0 : n;
}

}  // namespace

// Answers are UTF-8 as their type says: a byte of the path that is no character is repeated as the
// client would have written it (%XX), and the cut falls between characters.
std::string EchoedPath(const std::string& path) {
    std::string echoed;
    for (size_t i = 0; i < path.size();) {
        size_t n = CharLength(path, i);
        char escaped[4];
        snprintf(escaped, sizeof(escaped), "%%%02X", static_cast<unsigned char>(path[i]));
        std::string piece = n > 0 ? path.substr(i, n) : escaped;
        if (echoed.size() + piece.size() > kMaxEchoedPath) {
            break;
        }
        echoed += piece;
        i += n > 0 ? n : 1;
    }
    return echoed;
}

}  // namespace control
