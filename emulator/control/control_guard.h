// What the control port checks before it routes a request. The port listens on loopback, but a
// browser on the same machine reaches it from any page: a page of another site could send it
// writes (a browser sends a cross-origin write and only withholds the answer), or have its own name
// resolve to 127.0.0.1 (DNS rebinding) and count as the port's origin. So the port answers only the
// names it knows, takes writes only from its own console's origin and only as JSON, which a page of
// another origin cannot send without the preflight this port never grants.
#ifndef VKS_CONTROL_GUARD_H
#define VKS_CONTROL_GUARD_H

#include <event2/http.h>

#include "control_connections.h"
#include "host_check.h"

namespace control {

struct ControlGuard {
    vks_web::HostAllowList hosts;
    ConnectionWatches watches;
};

// Answers, in order: a head beyond its bounds (414, 431), a foreign Host (421), an HTTP/1.1
// request without Host (400), OPTIONS (200 with the methods, or 403 for another origin), a write
// from another origin (403) and a write whose body is not declared application/json (415). True
// when it answered.
bool RefuseRequest(ControlGuard* guard, struct evhttp_request* req);

}  // namespace control

#endif
