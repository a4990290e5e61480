// The development access server: evhttp front, worker pool for the handler phases, and the event
// loop that waits for asynchronous replies.
#ifndef VKS_HOST_ACCESS_SERVER_H
#define VKS_HOST_ACCESS_SERVER_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <vector>
#include <string>
#include <unordered_map>

#include "digest_auth.h"
#include "done_queue.h"
#include "host_check.h"
#include "reply_watch.h"
#include "module_table.h"
#include "options.h"
#include "worker_pool.h"

struct event_base;
struct evhttp;
struct event;
struct evhttp_bound_socket;
struct bufferevent;
struct ssl_ctx_st;

namespace vks_host {

struct RequestCtx;
struct Connection;

// The writes of one resource: one runs its phases at a time, the others wait in arrival order.
struct WriteLane {
    bool busy = false;
    std::deque<RequestCtx*> waiting;
};

// Whether a resource's service answers before Run returns, as the last early read found: an early
// read that finds nothing costs a round trip to the service for nothing, so after a miss the
// resource's requests park at once, and every 16th tries again.
struct EarlyReads {
    std::atomic<bool> missed{false};
    std::atomic<uint32_t> parked{0};
};

struct AccessServer {
    HostOptions options;
    const ModuleTable* module;
    struct event_base* base;
    struct evhttp* http;
    struct evhttp_bound_socket* listener;
    struct event* signals[2];
    struct event* drainTimer;   // armed once a signal asked to stop
    struct event* acceptPause;  // re-enables accepting after descriptors ran out
    bool acceptBackingOff;      // accept() failed a moment ago
    bool acceptFailing;         // one warning per episode of accept() failing
    bool atConnectionLimit;     // one warning per episode of the connection limit
    int connections;            // open client connections
    std::unordered_map<struct bufferevent*, Connection*> connectionsByBev;  // loop thread only
    bool draining;
    bool forced;  // the drain time ran out or a second signal came
    int unsent;   // answers handed to evhttp and not yet written whole
    uint16_t boundPort;
    // The names requests may give in Host, with boundPort.
    vks_web::HostAllowList hosts;
    // --auth-file; null: no login.
    std::unique_ptr<DigestAuth> login;
    // --tls-cert/--tls-key; null: plain HTTP.
    struct ssl_ctx_st* tls;
    DoneQueue done;      // jobs the workers finished, back to the loop; outlives the pools
    ReplyWatch replies;  // service files of parked requests; outlives the pools
    WorkerPool pools[kRoadCount];
    WriteLane lanes[kRouteCount];   // by HandlerSet::resourceId; loop thread only
    EarlyReads early[kRouteCount];  // by HandlerSet::resourceId; any worker
    std::set<RequestCtx*> live;     // touched by the loop thread only
    // Command-channel handles of finished requests, kept with their connection for the next
    // request; loop thread only.
    std::vector<tagUNIX_SOCKET_S*> idleCmdSockets;
};

// Binds the listening socket and starts the workers. 0, or -1 with the reason in *err.
int StartAccessServer(AccessServer* server, const HostOptions& options, const ModuleTable* module,
                      std::string* err);
// Serves until SIGINT or SIGTERM, then until the requests in flight are answered. When the drain
// time-out runs out, or at a second signal, the requests not started yet get 503 and the loop ends
// a moment later whatever the module still does.
int RunAccessServer(AccessServer* server);
// Stops the workers and releases every request still in flight; the module stays loaded. After a
// forced stop with workers still inside the module it releases nothing and returns their number:
// the caller must then end the process without touching the server or the module again.
size_t StopAccessServer(AccessServer* server);

}  // namespace vks_host

#endif
