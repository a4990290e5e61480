// Bounds on what the control port reads of a request, so that a client cannot have it buffer (or
// echo) a request of any size: the request line, the head and the body each have a limit, and a
// request beyond one gets its JSON error (414, 431, 413) and the connection is closed.
#ifndef VKS_CONTROL_CONNECTIONS_H
#define VKS_CONTROL_CONNECTIONS_H

#include <event2/event.h>
#include <event2/http.h>

#include <cstddef>
#include <unordered_map>

namespace control {

constexpr size_t kMaxRequestLine = 8192;   // method, target and version
constexpr size_t kMaxRequestHead = 16384;  // request line and header lines
constexpr size_t kMaxRequestBody = 1u << 20;

struct WatchedConnection;

struct ConnectionWatches {
    struct event_base* base = nullptr;
    std::unordered_map<struct bufferevent*, WatchedConnection*> byBev;
};

// Sets evhttp's own bounds and watches every connection http accepts. 0, or -1.
int WatchConnections(ConnectionWatches* watches, struct evhttp* http, struct event_base* base);

// Once http is freed: releases what is left of the watches.
void UnwatchConnections(ConnectionWatches* watches);

// The status the head of req was refused with while it arrived (414, 431), 0 when none. Watching
// starts over for the next request on the connection.
int HeadVerdict(ConnectionWatches* watches, struct evhttp_request* req);

// The error message for a status the bounds give.
const char* BoundMessage(int code);

}  // namespace control

#endif
