#include "request_guard.h"

#include "http_answer.h"

namespace vks_host {

bool RefuseMisdirected(const vks_web::HostAllowList& hosts, struct evhttp_request* req) {
    vks_web::HostVerdict host = vks_web::CheckHost(hosts, req);
    if (host == vks_web::HostVerdict::kForeign) {
        SendJsonError(req, 421, "Misdirected Request");
        return true;
    }
    if (host == vks_web::HostVerdict::kMissing) {
        SendJsonError(req, 400, "Bad Request");
        return true;
    }
    // A page elsewhere cannot read the answer to its write, but the write would land all the same:
    // a browser sends it first and applies the same-origin rule to the answer only. A client
    // outside a browser sends no Origin.
    const char* origin = evhttp_find_header(evhttp_request_get_input_headers(req), "Origin");
    if (origin != nullptr && vks_web::IsWrite(req) && !vks_web::IsOwnOrigin(hosts, origin)) {
        SendJsonError(req, 403, "Forbidden");
        return true;
    }
    return false;
}

}  // namespace vks_host
