#include "control_guard.h"

#include <event2/buffer.h>
#include <event2/keyvalq_struct.h>
#include <strings.h>

#include <string>

#include "control_answer.h"
#include "web_files.h"

namespace control {
namespace {

const char kMethods[] = "GET, HEAD, PUT, POST, DELETE, OPTIONS";

// application/json, with parameters (charset) or not, in any case.
bool IsJsonType(const char* type) {
    static const char kJson[] = "application/json";
    const size_t length = sizeof(kJson) - 1;
    return strncasecmp(type, kJson, length) == 0 &&
           (type[length] == '\0' || type[length] == ';' || type[length] == ' ');
}

// A write with a body must declare it JSON; one without a body may leave the type out. A page of
// another origin can send a "simple" write (text/plain, a form) without asking first, but not a
// JSON one.
bool AcceptableBody(struct evhttp_request* req) {
    const char* type = evhttp_find_header(evhttp_request_get_input_headers(req), "Content-Type");
    if (type == nullptr) {
        return evbuffer_get_length(evhttp_request_get_input_buffer(req)) == 0;
    }
    return IsJsonType(type);
}

void CloseAfter(struct evhttp_request* req) {
    evhttp_add_header(evhttp_request_get_output_headers(req), "Connection", "close");
}

// A preflight: the methods, and never an Access-Control-Allow-* header, so a browser lets no other
// origin send what it asked about.
void AnswerOptions(struct evhttp_request* req) {
    evhttp_add_header(evhttp_request_get_output_headers(req), "Allow", kMethods);
    vks_web::SendText(req, 200, "application/json; charset=utf-8",
                      std::string("{\"allow\":\"") + kMethods + "\"}");
}

}  // namespace

bool RefuseRequest(ControlGuard* guard, struct evhttp_request* req) {
    int bound = HeadVerdict(&guard->watches, req);
    if (bound != 0) {
        CloseAfter(req);
        SendControlError(req, bound, BoundMessage(bound));
        return true;
    }
    vks_web::HostVerdict host = vks_web::CheckHost(guard->hosts, req);
    if (host != vks_web::HostVerdict::kAllowed) {
        bool foreign = host == vks_web::HostVerdict::kForeign;
        SendControlError(req, foreign ? 421 : 400,
                         foreign ? "this port does not answer to that Host (see --allow-host)"
                                 : "an HTTP/1.1 request needs a Host header");
        return true;
    }
    const char* origin = evhttp_find_header(evhttp_request_get_input_headers(req), "Origin");
    bool foreignOrigin = origin != nullptr && !vks_web::IsOwnOrigin(guard->hosts, origin);
    bool options = evhttp_request_get_command(req) == EVHTTP_REQ_OPTIONS;
    if (foreignOrigin && (options || vks_web::IsWrite(req))) {
        SendControlError(req, 403, "only the console's own origin may change the emulator");
        return true;
    }
    if (options) {
        AnswerOptions(req);
        return true;
    }
    if (vks_web::IsWrite(req) && !AcceptableBody(req)) {
        SendControlError(req, 415, "a request body must be application/json");
        return true;
    }
    return false;
}

}  // namespace control
