// The development access server: evhttp front, worker pool for the handler phases, and the event
// loop that waits for asynchronous replies.
#ifndef VKS_HOST_ACCESS_SERVER_H
#define VKS_HOST_ACCESS_SERVER_H

#include <cstdint>
#include <set>
#include <string>

#include "module_table.h"
#include "options.h"
#include "worker_pool.h"

struct event_base;
struct evhttp;
struct event;

namespace vks_host {

struct RequestCtx;

struct AccessServer {
    HostOptions options;
    const ModuleTable* module;
    struct event_base* base;
    struct evhttp* http;
    struct event* signals[2];
    uint16_t boundPort;
    WorkerPool pool;
    std::set<RequestCtx*> live;  // touched by the loop thread only
};

// Binds the listening socket and starts the workers. 0, or -1 with the reason in *err.
int StartAccessServer(AccessServer* server, const HostOptions& options, const ModuleTable* module,
                      std::string* err);
// Serves until SIGINT or SIGTERM.
int RunAccessServer(AccessServer* server);
// Stops the workers and releases every request still in flight; the module stays loaded.
void StopAccessServer(AccessServer* server);

}  // namespace vks_host

#endif
