// One HTTP request in flight: its phase record plus what the event loop needs to answer it.
#ifndef VKS_HOST_REQUEST_CTX_H
#define VKS_HOST_REQUEST_CTX_H

#include <event2/event.h>
#include <event2/http.h>

#include "access_server.h"
#include "connections.h"
#include "phase_request.h"

namespace vks_host {

// Where a request stands. Written by whoever holds the request (a worker while a job runs, the
// loop thread otherwise); a worker hands the request back through the done queue, whose mutex
// orders the accesses on both sides.
enum class Stage {
    kFront,       // queued or running: PreProc, Parse, Run (and Format when no reply is awaited)
    kAwaitReply,  // Run registered a descriptor; the loop arms it
    kRecv,        // reply readable on the descriptor: read it, Recv, then Format
    kFormatOnly,  // reply failed or timed out: Format with the failure
    kAnswer,      // body ready to send
};

struct RequestCtx {
    PhaseRequest phases;
    AccessServer* server;
    Connection* conn;            // the connection the request came on; loop thread only
    struct evhttp_request* req;  // null once the client has gone; loop thread only
    struct event* reply;         // the timer of an awaited reply, set while the loop waits for it
    struct event* clientWatch;   // the client's socket while its reply is awaited; loop thread only
    Stage stage;
    bool watched;     // its service file is in the server's reply watch
    bool replyReady;  // the watch reported the reply before the loop armed the wait; loop thread only
    bool waitedLong;  // the wait outlasted kClientWatchAfterMs: the client's socket is watched
    bool holdsLane;   // a write running its phases: the lane of its resource is held until its end
    bool queued;      // a write waiting in the lane of its resource
};

}  // namespace vks_host

#endif
