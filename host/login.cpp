#include "login.h"

#include <time.h>

#include "access_server.h"
#include "digest_auth.h"
#include "host_log.h"
#include "http_answer.h"
#include "request_header.h"
#include "tls.h"
#include "web_files.h"

namespace vks_host {
namespace {

int64_t MonotonicMs() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void Refuse(DigestAuth* auth, struct evhttp_request* req, bool stale, int64_t nowMs) {
    struct evkeyvalq* headers = evhttp_request_get_output_headers(req);
    for (const std::string& challenge : NewChallenges(auth, stale, nowMs)) {
        evhttp_add_header(headers, "WWW-Authenticate", challenge.c_str());
    }
    SendJsonError(req, 401, "Unauthorized");
}

}  // namespace

bool AdmitRequest(AccessServer* server, struct evhttp_request* req, std::string* user) {
    bool tls = IsTlsBufferevent(evhttp_connection_get_bufferevent(evhttp_request_get_connection(req)));
    if (server->tls != nullptr && !tls) {
        // No TLS session could be made for the connection (memory ran out) and evhttp read it in
        // clear text: an HTTPS server answers nothing else that way.
        evhttp_add_header(evhttp_request_get_output_headers(req), "Connection", "close");
        SendJsonError(req, 503, "Service Unavailable");
        return false;
    }
    DigestAuth* auth = server->login.get();
    if (auth == nullptr) {
        *user = kAnonymousUser;
        return true;
    }
    int64_t nowMs = MonotonicMs();
    const char* target = evhttp_request_get_uri(req);
    const char* authorization = evhttp_find_header(evhttp_request_get_input_headers(req), "Authorization");
    switch (CheckAuthorization(auth, vks_web::MethodName(evhttp_request_get_command(req)),
                               target != nullptr ? target : "", authorization, tls, nowMs, user)) {
        case AuthVerdict::kGranted:
            return true;
        case AuthVerdict::kStale:
            Refuse(auth, req, true, nowMs);
            return false;
        case AuthVerdict::kBadRequest:
            HOST_LOG(1, "malformed Digest credentials for %s", target);
            SendJsonError(req, 400, "Bad Request");
            return false;
        case AuthVerdict::kChallenge:
            break;
    }
    if (authorization != nullptr) {
        HOST_LOG(1, "credentials refused for %s", target);
    }
    Refuse(auth, req, false, nowMs);
    return false;
}

}  // namespace vks_host
