#include "access_server.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/http_struct.h>
#include <sys/ioctl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

#include "async_hooks.h"
#include "connections.h"
#include "docs_routes.h"
#include "host_log.h"
#include "http_answer.h"
#include "login.h"
#include "loop_events.h"
#include "phases.h"
#include "request_ctx.h"
#include "request_framing.h"
#include "request_guard.h"
#include "request_header.h"
#include "status_map.h"
#include "tls.h"
#include "unix_cmd_channel.h"
#include "web_files.h"

namespace vks_host {
namespace {

constexpr const char kApiPrefix[] = "/api/";

void SubmitJob(RequestCtx* ctx, Stage stage);
void DestroyRequest(RequestCtx* ctx);
void WatchClient(RequestCtx* ctx);

// A write runs its phases only while it holds the lane of its resource: PreProc's read, Parse's
// merge and Run's store of one request never interleave with another write of that resource.
void EnterLane(RequestCtx* ctx) {
    WriteLane& lane = ctx->server->lanes[ctx->phases.handlers->resourceId];
    if (lane.busy) {
        ctx->queued = true;
        lane.waiting.push_back(ctx);
        return;
    }
    lane.busy = true;
    ctx->holdsLane = true;
    SubmitJob(ctx, Stage::kFront);
}

void LeaveLane(RequestCtx* ctx) {
    WriteLane& lane = ctx->server->lanes[ctx->phases.handlers->resourceId];
    if (ctx->queued) {
        lane.waiting.erase(std::find(lane.waiting.begin(), lane.waiting.end(), ctx));
        ctx->queued = false;
        return;
    }
    if (!ctx->holdsLane) {
        return;
    }
    ctx->holdsLane = false;
    lane.busy = false;
    if (!lane.waiting.empty()) {
        RequestCtx* next = lane.waiting.front();
        lane.waiting.pop_front();
        next->queued = false;
        EnterLane(next);
    }
}

// At most this many idle command-channel connections are kept: more requests in flight than that
// are rare, and each kept connection holds a thread of the emulator.
const size_t kIdleCmdSocketsKept = 64;

// A request's command-channel handle: an idle one (connected already) or a new one that connects
// on first use. Reusing the connection spares each request a connect and the service an accept.
tagUNIX_SOCKET_S* TakeCmdSocket(AccessServer* server) {
    if (server->idleCmdSockets.empty()) {
        return UnixSocketOpen(server->options.cmdSocket.c_str(), server->options.cmdTimeoutMs);
    }
    tagUNIX_SOCKET_S* sock = server->idleCmdSockets.back();
    server->idleCmdSockets.pop_back();
    return sock;
}

// A handle whose last exchange failed has already dropped its connection; it reconnects when used.
void ReturnCmdSocket(AccessServer* server, tagUNIX_SOCKET_S* sock) {
    if (sock == nullptr) {
        return;
    }
    if (server->draining || server->idleCmdSockets.size() >= kIdleCmdSocketsKept) {
        UnixSocketClose(sock);
        return;
    }
    server->idleCmdSockets.push_back(sock);
}

// Before its service file is closed: the watch must not report it any more.
void Unwatch(RequestCtx* ctx) {
    if (ctx->watched) {
        ctx->server->replies.Remove(ctx->phases.asyncFd);
        ctx->watched = false;
    }
}

void DestroyRequest(RequestCtx* ctx) {
    AccessServer* server = ctx->server;
    FreeEvent(&ctx->reply);
    FreeEvent(&ctx->clientWatch);
    Unwatch(ctx);
    CancelRegistration(&ctx->phases);
    ReleaseRequestData(&ctx->phases);
    ReturnCmdSocket(server, ctx->phases.client.synSock);
    ctx->phases.client.synSock = nullptr;
    LeaveLane(ctx);
    server->live.erase(ctx);
    delete ctx;
    CheckDrained(server);
}

void SendAnswer(RequestCtx* ctx) {
    const PhaseRequest& p = ctx->phases;
    HttpStatus status = StatusForResult(EffectiveResult(p), p.parseFailed, p.replyTimedOut);
    CarryRequest(ctx->conn, nullptr);
    AnswerHandedOver(ctx->conn, ctx->req);
    SendJson(ctx->req, status.code, status.reason, p.body.text);
    ctx->req = nullptr;
}

// What reading the awaited reply gave: the reply, nothing yet (the read would have waited), or a
// descriptor that carried no valid reply.
enum class ReplyRead { kTaken, kNotYet, kFailed };

// Switches O_NONBLOCK with one call: FIONBIO is served by the kernel itself (it never reaches the
// service file system) and, unlike F_SETFL, needs no F_GETFL first.
bool SetNonBlocking(int fd, bool on) {
    int value = on ? 1 : 0;
    return ioctl(fd, FIONBIO, &value) == 0;
}

// Reads the reply from fd into *msg. With wait false the descriptor is non-blocking for this one
// read, so a reply that is not there yet costs what a readiness check would, and nothing is read.
ReplyRead ReadAwaitedReply(int fd, bool wait, dxmp_message** msg) {
    if (!wait && !SetNonBlocking(fd, true)) {
        return ReplyRead::kNotYet;  // the loop waits for it instead
    }
    *msg = dxmp_message_new(0);
    int rc = *msg != nullptr ? dxmp_message_recvfd(*msg, fd) : -1;
    bool notYet = rc != 0 && !wait && errno == EAGAIN;  // a frame cut short is EPROTO, never EAGAIN
    if (notYet) {
        // The module opens the service file blocking, and the parked request's later read waits
        // for its whole frame. Taken or failed, the descriptor is closed next: no need.
        SetNonBlocking(fd, false);
    }
    if (rc == 0) {
        return ReplyRead::kTaken;
    }
    dxmp_message_put(*msg);
    *msg = nullptr;
    return notYet ? ReplyRead::kNotYet : ReplyRead::kFailed;
}

// Gives up the registration (the descriptor and our request reference are done with either way)
// and keeps a reply for Recv. True when Recv is to run on it, false when the request fails.
bool SettleReply(PhaseRequest* p, dxmp_message* msg) {
    CancelRegistration(p);
    if (msg == nullptr) {
        p->result = VW_FAILED;
        return false;
    }
    p->client.pRecvMsg = msg;
    return true;
}

// The awaited reply is readable on fd (a worker), or (readable false) the wait timed out (the loop).
bool TakeReply(PhaseRequest* p, int fd, bool readable) {
    dxmp_message* msg = nullptr;
    if (!readable) {
        HOST_LOG(3, "reply timed out on fd %d for %s", fd, p->header.szReqUrl);
        p->replyTimedOut = true;
    } else if (ReadAwaitedReply(fd, true, &msg) != ReplyRead::kTaken) {
        HOST_LOG(3, "no valid reply on fd %d for %s", fd, p->header.szReqUrl);
    }
    return SettleReply(p, msg);
}

// Whether to look for the reply before parking (see EarlyReads). Any worker.
bool TryEarly(RequestCtx* ctx) {
    EarlyReads& early = ctx->server->early[ctx->phases.handlers->resourceId];
    return !early.missed.load(std::memory_order_relaxed) ||
           early.parked.fetch_add(1, std::memory_order_relaxed) % 16 == 15;
}

void NoteEarly(RequestCtx* ctx, ReplyRead found) {
    ctx->server->early[ctx->phases.handlers->resourceId].missed.store(found == ReplyRead::kNotYet,
                                                                      std::memory_order_relaxed);
}

// Worker thread: the phases of the request's current stage, then back to the loop.
void PhaseJob(void* arg) {
    auto* ctx = static_cast<RequestCtx*>(arg);
    PhaseRequest* p = &ctx->phases;
    if (ctx->stage == Stage::kFront) {
        RunFrontPhases(p);
        if (AwaitsReply(*p)) {
            // A service that answers at once has its reply there before Run returns. Taking it on
            // the same worker spares two trips through the loop (parking, then the reply's wake-up).
            dxmp_message* msg = nullptr;
            ReplyRead early = ReplyRead::kNotYet;
            if (TryEarly(ctx)) {
                early = ReadAwaitedReply(p->asyncFd, false, &msg);
                NoteEarly(ctx, early);
            }
            if (early == ReplyRead::kNotYet) {
                ctx->watched = ctx->server->replies.Add(p->asyncFd, ctx);
                if (ctx->watched) {
                    ctx->stage = Stage::kAwaitReply;
                    ctx->server->done.Push(ctx);
                    return;
                }
                HOST_LOG(3, "cannot wait for fd %d", p->asyncFd);
            } else if (early == ReplyRead::kFailed) {
                HOST_LOG(3, "no valid reply on fd %d for %s", p->asyncFd, p->header.szReqUrl);
            }
            if (SettleReply(p, msg)) {
                RunRecvPhase(p);
            }
        } else {
            CancelRegistration(p);  // a Run that failed after registering: the reply is not wanted
        }
    } else if (ctx->stage == Stage::kRecv && TakeReply(p, p->asyncFd, true)) {
        RunRecvPhase(p);
    }
    RunFormatPhase(p);
    ctx->stage = Stage::kAnswer;
    ctx->server->done.Push(ctx);
}

// A client that leaves while its reply is awaited is looked for only once the wait has lasted this
// long: most replies come sooner, and watching the socket costs the loop two epoll changes.
const int kClientWatchAfterMs = 500;

// Loop thread: the wait ends, the reply readable (a worker reads it: a read of the service file is
// a round trip to the service, which the loop does not wait for) or timed out.
void EndWait(RequestCtx* ctx, bool readable) {
    FreeEvent(&ctx->reply);
    FreeEvent(&ctx->clientWatch);  // from here a departure shows when the answer is written
    if (!readable) {
        Unwatch(ctx);
        TakeReply(&ctx->phases, ctx->phases.asyncFd, false);
        SubmitJob(ctx, Stage::kFormatOnly);
        return;
    }
    ctx->watched = false;  // reported once, then disabled; closing the file ends the entry
    SubmitJob(ctx, Stage::kRecv);
}

// Loop thread: the wait's timer. Its first firing, kClientWatchAfterMs into the wait, starts
// watching the client's socket (see ArmReply); a later one is the reply's time-out.
void OnReplyTimer(evutil_socket_t, short, void* arg) {
    auto* ctx = static_cast<RequestCtx*>(arg);
    int left = ctx->server->options.replyTimeoutMs - kClientWatchAfterMs;
    if (!ctx->waitedLong && left > 0) {
        ctx->waitedLong = true;
        struct timeval rest = Millis(left);
        if (evtimer_add(ctx->reply, &rest) == 0) {
            WatchClient(ctx);
            return;
        }
    }
    EndWait(ctx, false);
}

// Loop thread: the reply watch reports a parked request's reply. The worker's hand-over of the
// request may still be queued: the reply then waits for it (ArmReply).
void OnReplyReady(void* item, void*) {
    auto* ctx = static_cast<RequestCtx*>(item);
    if (ctx->reply == nullptr) {  // not armed yet
        ctx->replyReady = true;
        return;
    }
    EndWait(ctx, true);
}

void DropClient(RequestCtx* ctx) {
    evhttp_connection_free(evhttp_request_get_connection(ctx->req));
}

// Loop thread: the probe went out a moment ago. A client that had closed its socket for good
// answered it with a reset; one that only half-closed it keeps waiting for its answer.
void OnProbeDone(evutil_socket_t fd, short, void* arg) {
    auto* ctx = static_cast<RequestCtx*>(arg);
    int err = 0;
    socklen_t len = sizeof(err);
    FreeEvent(&ctx->clientWatch);
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) != 0 || err != 0) {
        DropClient(ctx);
    }
}

// Loop thread: evhttp does not read a connection whose request is being handled, so a client that
// leaves while its reply is awaited is noticed here. Freeing the connection runs OnClientGone.
// End of file means the client closed its socket or only its sending side (a half-close, which
// HTTP allows). An HTTP/1.1 client is then sent an interim "100 Continue", which every such client
// must skip: a socket closed for good answers it with a reset. An HTTP/1.0 client keeps its request.
void OnClientReadable(evutil_socket_t fd, short, void* arg) {
    auto* ctx = static_cast<RequestCtx*>(arg);
    static const char kProbe[] = "HTTP/1.1 100 Continue\r\n\r\n";
    static const struct timeval kProbeWait = {0, 50 * 1000};
    char byte = 0;
    ssize_t n = recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    FreeEvent(&ctx->clientWatch);
    // TLS has no half-close a server could answer after, and a probe in clear text would break the
    // session: over TLS an end of file is a departure.
    if ((n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) || (n == 0 && ctx->server->tls != nullptr)) {
        DropClient(ctx);
    } else if (n == 0 && ctx->req->major == 1 && ctx->req->minor >= 1) {
        if (send(fd, kProbe, sizeof(kProbe) - 1, MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
            DropClient(ctx);
            return;
        }
        ctx->clientWatch = event_new(ctx->server->base, fd, 0, &OnProbeDone, ctx);
        if (ctx->clientWatch != nullptr && event_add(ctx->clientWatch, &kProbeWait) != 0) {
            FreeEvent(&ctx->clientWatch);
        }
    }
    // More data from a live client (a pipelined request) waits for the answer; the watch ends.
}

void WatchClient(RequestCtx* ctx) {
    struct evhttp_connection* conn = evhttp_request_get_connection(ctx->req);
    evutil_socket_t fd = bufferevent_getfd(evhttp_connection_get_bufferevent(conn));
    ctx->clientWatch = event_new(ctx->server->base, fd, EV_READ, &OnClientReadable, ctx);
    if (ctx->clientWatch != nullptr && event_add(ctx->clientWatch, nullptr) != 0) {
        FreeEvent(&ctx->clientWatch);
    }
}

// Loop thread: the worker parked the request, its service file in the reply watch.
void ArmReply(RequestCtx* ctx) {
    const PhaseRequest& p = ctx->phases;
    if (ctx->replyReady) {
        EndWait(ctx, true);
        return;
    }
    struct timeval timeout = Millis(std::min(kClientWatchAfterMs, ctx->server->options.replyTimeoutMs));
    ctx->reply = evtimer_new(ctx->server->base, &OnReplyTimer, ctx);
    if (ctx->reply == nullptr || evtimer_add(ctx->reply, &timeout) != 0) {
        HOST_LOG(3, "cannot wait for fd %d", p.asyncFd);
        FreeEvent(&ctx->reply);
        Unwatch(ctx);
        CancelRegistration(&ctx->phases);
        ctx->phases.result = VW_FAILED;
        SubmitJob(ctx, Stage::kFormatOnly);
        return;
    }
}

// Loop thread: a worker finished a job.
void OnJobDone(void* item, void*) {
    auto* ctx = static_cast<RequestCtx*>(item);
    if (ctx->req == nullptr) {  // the client left meanwhile: nothing to answer
        DestroyRequest(ctx);
        return;
    }
    if (ctx->stage == Stage::kAwaitReply) {
        ArmReply(ctx);
        return;
    }
    SendAnswer(ctx);
    DestroyRequest(ctx);
}

// 503, and the connection closes after it: the server is stopping.
void AnswerStopping(Connection* conn, struct evhttp_request* req) {
    evhttp_add_header(evhttp_request_get_output_headers(req), "Connection", "close");
    AnswerHandedOver(conn, req);
    SendJsonError(req, 503, "Service Unavailable");
}

// A request none of whose phases ran: refusing it loses nothing, the client may send it again.
void RefuseUnstarted(RequestCtx* ctx) {
    if (ctx->req != nullptr) {
        CarryRequest(ctx->conn, nullptr);
        AnswerStopping(ctx->conn, ctx->req);
    }
    DestroyRequest(ctx);
}

bool NotStarted(void* arg) {
    return static_cast<RequestCtx*>(arg)->stage == Stage::kFront;
}

void SubmitJob(RequestCtx* ctx, Stage stage) {
    ctx->stage = stage;
    if (!ctx->server->pools[ctx->phases.handlers->road].Submit(&PhaseJob, ctx)) {
        RefuseUnstarted(ctx);
    }
}

// "/api/<Resource>" with nothing after the name; empty otherwise.
std::string ResourceOf(struct evhttp_request* req) {
    const char* path = evhttp_uri_get_path(evhttp_request_get_evhttp_uri(req));
    if (path == nullptr || strncmp(path, kApiPrefix, sizeof(kApiPrefix) - 1) != 0) {
        return "";
    }
    std::string resource = path + sizeof(kApiPrefix) - 1;
    return resource.find('/') == std::string::npos ? resource : "";
}

RequestCtx* NewRequest(AccessServer* server, struct evhttp_request* req, const HandlerSet* handlers,
                       Connection* conn, const std::string& user) {
    auto* ctx = conn != nullptr ? new (std::nothrow) RequestCtx() : nullptr;
    if (ctx == nullptr) {
        return nullptr;
    }
    ctx->server = server;
    ctx->conn = conn;
    ctx->req = req;
    struct evbuffer* in = evhttp_request_get_input_buffer(req);
    ctx->phases.requestBody.resize(evbuffer_get_length(in));
    evbuffer_copyout(in, &ctx->phases.requestBody[0], ctx->phases.requestBody.size());
    InitPhaseRequest(&ctx->phases, handlers, server->options.maxBody);
    FillRequestHeader(req, user, &ctx->phases.header);
    ctx->phases.client.synSock = TakeCmdSocket(server);
    server->live.insert(ctx);
    CarryRequest(conn, ctx);
    return ctx;
}

void OnHttpRequest(struct evhttp_request* req, void* arg) {
    auto* server = static_cast<AccessServer*>(arg);
    Connection* conn = RequestArrived(server, req);
    Refusal refusal;
    if (const RequestHead* refused = RefusedRequest(conn, &refusal)) {
        // Before every other check: the stand-in itself is nothing a client sent.
        AnswerHandedOver(conn, req);
        SendJsonErrorFor(req, refusal.code, refusal.reason, refused->target.c_str());
        return;
    }
    if (RefuseMisdirected(server->hosts, req)) {
        return;
    }
    if (server->draining) {
        AnswerStopping(conn, req);
        return;
    }
    std::string user;
    if (!AdmitRequest(server, req, &user)) {
        return;
    }
    if (ServeDocs(server->options.webRoot, req)) {
        return;
    }
    std::string resource = ResourceOf(req);
    const HandlerSet* handlers = nullptr;
    RouteLookup found = kNoSuchResource;
    if (!resource.empty()) {
        // HEAD runs the GET's phases; the answer then goes out without its body.
        enum evhttp_cmd_type cmd = evhttp_request_get_command(req);
        found = FindRoute(*server->module, resource.c_str(),
                          vks_web::MethodName(cmd == EVHTTP_REQ_HEAD ? EVHTTP_REQ_GET : cmd), &handlers);
    }
    if (found == kNoSuchResource) {
        SendJsonError(req, 404, "Not Found");
        return;
    }
    if (found == kMethodNotAllowed) {
        evhttp_add_header(evhttp_request_get_output_headers(req), "Allow",
                          AllowedMethods(*server->module, resource.c_str()).c_str());
        SendJsonError(req, 405, "Method Not Allowed");
        return;
    }
    if (strlen(evhttp_request_get_uri(req)) >= HTTP_URL_LEN) {
        SendJsonError(req, 414, "URI Too Long");
        return;
    }
    RequestCtx* ctx = NewRequest(server, req, handlers, conn, user);
    if (ctx == nullptr) {
        SendJsonError(req, 503, "Service Unavailable");
        return;
    }
    if (handlers->writes) {
        EnterLane(ctx);
    } else {
        SubmitJob(ctx, Stage::kFront);
    }
}

// Time the 503s of a forced stop get to leave before the loop ends anyway.
constexpr int kForcedFlushMs = 300;

// The drain time is over (or a second signal came): the requests that have not started get 503,
// those inside the module are given up, and the loop ends once the 503s are written. A worker
// blocked in the module must not hold the stop up: StopAccessServer then leaves it where it is.
void ForceStop(AccessServer* server) {
    server->forced = true;
    std::vector<RequestCtx*> refused;
    for (WriteLane& lane : server->lanes) {
        refused.insert(refused.end(), lane.waiting.begin(), lane.waiting.end());
    }
    std::vector<void*> queued;
    for (WorkerPool& pool : server->pools) {
        pool.TakeQueued(&NotStarted, &queued);
    }
    for (void* arg : queued) {
        refused.push_back(static_cast<RequestCtx*>(arg));
    }
    HOST_LOG(3, "forced stop: %zu requests refused, %zu given up", refused.size(),
             server->live.size() - refused.size());
    for (RequestCtx* ctx : refused) {
        RefuseUnstarted(ctx);
    }
    struct timeval flush = Millis(kForcedFlushMs);
    if (server->drainTimer == nullptr || evtimer_add(server->drainTimer, &flush) != 0) {
        event_base_loopexit(server->base, nullptr);
        return;
    }
    CheckDrained(server);
}

void OnDrainTimeout(evutil_socket_t, short, void* arg) {
    auto* server = static_cast<AccessServer*>(arg);
    if (server->forced) {
        event_base_loopexit(server->base, nullptr);  // the 503s had their time
        return;
    }
    HOST_LOG(3, "drain time-out: %zu requests still in flight", server->live.size());
    ForceStop(server);
}

// The first signal stops accepting and lets the requests in flight finish and be answered; a
// second one stops at once, as the drain time-out does.
void OnSignal(evutil_socket_t, short, void* arg) {
    auto* server = static_cast<AccessServer*>(arg);
    if (server->draining) {
        if (!server->forced) {
            ForceStop(server);
        }
        return;
    }
    server->draining = true;
    StopAccepting(server);
    HOST_LOG(1, "stopping: %zu requests in flight", server->live.size());
    struct timeval drain = Millis(server->options.drainTimeoutMs);
    server->drainTimer = evtimer_new(server->base, &OnDrainTimeout, server);
    if (server->drainTimer == nullptr || evtimer_add(server->drainTimer, &drain) != 0) {
        event_base_loopexit(server->base, nullptr);
        return;
    }
    CheckDrained(server);
}

int SetUpHttp(AccessServer* server, std::string* err) {
    server->http = evhttp_new(server->base);
    if (server->http == nullptr) {
        *err = "evhttp_new failed";
        return -1;
    }
    // Every method reaches the router, so that an unserved one gets our JSON 405.
    evhttp_set_allowed_methods(server->http, EVHTTP_REQ_GET | EVHTTP_REQ_POST | EVHTTP_REQ_HEAD |
                                                 EVHTTP_REQ_PUT | EVHTTP_REQ_DELETE | EVHTTP_REQ_OPTIONS |
                                                 EVHTTP_REQ_TRACE | EVHTTP_REQ_CONNECT | EVHTTP_REQ_PATCH);
    const HostOptions& o = server->options;
    evhttp_set_max_body_size(server->http, kMaxRequestBody);
    evhttp_set_max_headers_size(server->http, o.maxHeaderBytes);
    struct timeval idle = Millis(o.idleTimeoutMs);
    evhttp_set_timeout_tv(server->http, &idle);
    evhttp_set_gencb(server->http, &OnHttpRequest, server);
    struct evhttp_bound_socket* socket =
        evhttp_bind_socket_with_handle(server->http, o.listenHost.c_str(), o.listenPort);
    if (socket == nullptr) {
        *err =
            "cannot listen on " + o.listenHost + ":" + std::to_string(o.listenPort) + ": " + strerror(errno);
        return -1;
    }
    // libevent listens with a backlog of 128; a burst of clients beyond it would have its SYNs
    // dropped and retried a second later. Calling listen() again raises the backlog in place, to
    // the most the system allows (net.core.somaxconn caps it).
    if (listen(evhttp_bound_socket_get_fd(socket), INT_MAX) != 0) {
        *err = std::string("cannot raise the listen backlog: ") + strerror(errno);
        return -1;
    }
    server->boundPort = vks_web::BoundPort(socket);
    server->hosts = vks_web::MakeHostAllowList(server->boundPort, o.listenHost, o.allowHosts);
    if (WatchConnections(server, socket) != 0) {
        *err = "cannot watch the connections";
        return -1;
    }
    return 0;
}

// The login and HTTPS the options ask for.
int SetUpLogin(AccessServer* server, std::string* err) {
    const HostOptions& o = server->options;
    if (!o.tlsCert.empty() && (server->tls = NewTlsContext(o.tlsCert, o.tlsKey, err)) == nullptr) {
        return -1;
    }
    if (o.authFile.empty()) {
        return 0;
    }
    server->login.reset(new (std::nothrow) DigestAuth());
    if (server->login == nullptr) {
        *err = "out of memory";
        return -1;
    }
    server->login->allowBasic = o.authBasic;
    server->login->nonceLifetimeMs = static_cast<int64_t>(o.nonceLifetimeS) * 1000;
    return LoadAuthFile(o.authFile, server->login.get(), err);
}

int SetUpSignals(AccessServer* server) {
    const int numbers[2] = {SIGINT, SIGTERM};
    for (int i = 0; i < 2; ++i) {
        server->signals[i] = evsignal_new(server->base, numbers[i], &OnSignal, server);
        if (server->signals[i] == nullptr || event_add(server->signals[i], nullptr) != 0) {
            return -1;
        }
    }
    return 0;
}

}  // namespace

// Once a signal asked to stop, the loop ends when no request is in flight and every answer has
// left (or when the drain time-out fires).
void CheckDrained(AccessServer* server) {
    if (server->draining && server->unsent == 0 && (server->live.empty() || server->forced)) {
        event_base_loopexit(server->base, nullptr);
    }
}

// Loop thread: libevent is about to free the connection and its pending request.
void OnClientGone(RequestCtx* ctx) {
    HOST_LOG(1, "client left before the answer to %s", ctx->phases.header.szReqUrl);
    ctx->req = nullptr;
    if (ctx->reply != nullptr || ctx->queued) {  // on the loop, not on a worker: clean up now
        DestroyRequest(ctx);
    }
}

int StartAccessServer(AccessServer* server, const HostOptions& options, const ModuleTable* module,
                      std::string* err) {
    server->options = options;
    server->module = module;
    server->base = nullptr;
    server->http = nullptr;
    server->listener = nullptr;
    server->signals[0] = server->signals[1] = nullptr;
    server->drainTimer = nullptr;
    server->acceptPause = nullptr;
    server->acceptBackingOff = false;
    server->acceptFailing = false;
    server->atConnectionLimit = false;
    server->connections = 0;
    server->draining = false;
    server->forced = false;
    server->unsent = 0;
    server->tls = nullptr;
    if (SetUpLogin(server, err) != 0) {
        return -1;
    }
    // Only the loop thread touches the base (workers hand back through the done queue): libevent
    // runs without locks of its own.
    if ((server->base = event_base_new()) == nullptr ||
        server->done.Start(server->base, &OnJobDone, nullptr) != 0 ||
        server->replies.Start(server->base, &OnReplyReady, nullptr) != 0) {
        *err = "cannot create the event loop";
        return -1;
    }
    signal(SIGPIPE, SIG_IGN);  // a client that left must not kill the server on write
    if (SetUpHttp(server, err) != 0) {
        return -1;
    }
    if (SetUpSignals(server) != 0) {
        *err = "cannot watch SIGINT/SIGTERM";
        return -1;
    }
    InstallAsynEventHooks();
    for (WorkerPool& pool : server->pools) {
        if (pool.Start(options.workers, options.maxWorkers) != 0) {
            *err = "cannot start the worker threads";
            return -1;
        }
    }
    return 0;
}

int RunAccessServer(AccessServer* server) {
    return event_base_dispatch(server->base) < 0 ? -1 : 0;
}

size_t StopAccessServer(AccessServer* server) {
    if (server->forced) {
        size_t busy = 0;
        for (WorkerPool& pool : server->pools) {
            busy += pool.Busy();
        }
        if (busy > 0) {
            return busy;  // joining would wait for the module; the process ends with them instead
        }
    }
    server->listener = nullptr;  // evhttp_free frees it, before the connections whose ends we count
    if (server->http != nullptr) {
        evhttp_free(server->http);  // drops every connection; their requests lose their client
        server->http = nullptr;
    }
    for (WorkerPool& pool : server->pools) {
        pool.Stop();  // jobs already queued still finish, so their slots are released by Format
    }
    while (!server->live.empty()) {
        DestroyRequest(*server->live.begin());
    }
    for (tagUNIX_SOCKET_S* sock : server->idleCmdSockets) {
        UnixSocketClose(sock);
    }
    server->idleCmdSockets.clear();
    server->done.Stop();  // what finished after the loop ended was released with the rest above
    server->replies.Stop();
    DxmpSetAsynEventHooks(nullptr, nullptr, nullptr);
    for (struct event*& e : server->signals) {
        FreeEvent(&e);
    }
    FreeEvent(&server->drainTimer);
    UnwatchConnections(server);
    if (server->base != nullptr) {
        event_base_free(server->base);
        server->base = nullptr;
    }
    FreeTlsContext(server->tls);  // after the connections, whose sessions hold it
    server->tls = nullptr;
    server->login.reset();
    return 0;
}

}  // namespace vks_host
