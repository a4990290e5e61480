// Requests the access server refuses before routing: those that name it by a name it does not
// answer to, and writes that a page of another origin sent.
#ifndef VKS_HOST_REQUEST_GUARD_H
#define VKS_HOST_REQUEST_GUARD_H

#include <event2/http.h>

#include "host_check.h"

namespace vks_host {

// Answers a foreign Host (421), an HTTP/1.1 request without Host (400) and a write whose Origin is
// not this server's own (403), each with the status envelope. True when it answered.
bool RefuseMisdirected(const vks_web::HostAllowList& hosts, struct evhttp_request* req);

}  // namespace vks_host

#endif
