#include "connections.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/listener.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "access_server.h"
#include "error_page.h"
#include "host_log.h"
#include "http_answer.h"
#include "loop_events.h"
#include "request_framing.h"
#include "tls.h"

namespace vks_host {

struct Connection {
    AccessServer* server;
    struct bufferevent* bev;
    struct evhttp_connection* evcon;  // known from the first loop pass after the accept on
    struct evbuffer_cb_entry* input;
    struct evbuffer_cb_entry* output;
    bool rewriting;             // OnOutput is replacing a page: its own changes are not looked at
    struct event* headerTimer;  // armed by the first bytes of a request, until it is complete
    struct event* adopt;        // one pass of the loop after the accept: evhttp has set up evcon
    RequestCtx* ctx;
    int unsent;  // answers handed to evhttp and not yet written whole
    RequestFraming framing;
    bool framingInput;  // FrameInput is moving the input: its own changes are not looked at
    int handedOn;       // requests handed to evhttp (request_framing.h)
    int arrived;        // requests evhttp delivered
    int standIn;        // which of them stands in for a refused request (0: none)
};

namespace {

const int kAcceptPauseMs = 100;

// Accepting runs unless accept() just failed or the connection limit is reached.
void UpdateAccepting(AccessServer* server) {
    if (server->listener == nullptr) {
        return;
    }
    struct evconnlistener* listener = evhttp_bound_socket_get_listener(server->listener);
    if (!server->acceptBackingOff && server->connections < server->options.maxConnections) {
        evconnlistener_enable(listener);
    } else {
        evconnlistener_disable(listener);
    }
}

void Release(Connection* conn) {
    if (conn->input != nullptr) {
        evbuffer_remove_cb_entry(bufferevent_get_input(conn->bev), conn->input);
    }
    if (conn->output != nullptr) {
        evbuffer_remove_cb_entry(bufferevent_get_output(conn->bev), conn->output);
    }
    FreeEvent(&conn->headerTimer);
    FreeEvent(&conn->adopt);
    delete conn;
}

void Forget(Connection* conn) {
    AccessServer* server = conn->server;
    server->connectionsByBev.erase(conn->bev);
    server->unsent -= conn->unsent;  // lost with the connection
    Release(conn);
    if (--server->connections < server->options.maxConnections) {
        server->atConnectionLimit = false;
    }
    UpdateAccepting(server);
}

// evhttp is about to free the connection (the client left, a time-out, an error, the server stops).
void OnConnectionClosed(struct evhttp_connection*, void* arg) {
    auto* conn = static_cast<Connection*>(arg);
    RequestCtx* ctx = conn->ctx;
    conn->ctx = nullptr;
    AccessServer* server = conn->server;
    if (ctx != nullptr) {
        OnClientGone(ctx);
    }
    Forget(conn);
    CheckDrained(server);
}

void OnAnswerWritten(struct evhttp_request*, void* arg) {
    auto* conn = static_cast<Connection*>(arg);
    --conn->unsent;
    --conn->server->unsent;
    CheckDrained(conn->server);
}

void Adopt(Connection* conn, struct evhttp_connection* evcon) {
    if (conn->evcon == nullptr && evcon != nullptr) {
        conn->evcon = evcon;
        evhttp_connection_set_closecb(evcon, &OnConnectionClosed, conn);
    }
}

// evhttp builds its connection object around our bufferevent right after asking for it and passes
// that object as the bufferevent's callback argument; one pass of the loop later it is there.
void OnAdopt(evutil_socket_t, short, void* arg) {
    auto* conn = static_cast<Connection*>(arg);
    FreeEvent(&conn->adopt);
    bufferevent_data_cb readCb = nullptr;
    bufferevent_data_cb writeCb = nullptr;
    bufferevent_event_cb eventCb = nullptr;
    void* evcon = nullptr;
    bufferevent_getcb(conn->bev, &readCb, &writeCb, &eventCb, &evcon);
    Adopt(conn, static_cast<struct evhttp_connection*>(evcon));
}

void OnHeaderTimeout(evutil_socket_t, short, void* arg) {
    auto* conn = static_cast<Connection*>(arg);
    HOST_LOG(1, "closing a connection whose request did not arrive within %d ms",
             conn->server->options.headerTimeoutMs);
    if (conn->evcon != nullptr) {
        evhttp_connection_free(conn->evcon);  // runs OnConnectionClosed
    }
}

// The bytes just read are taken out of the input and put back as far as they make whole, checked
// requests (request_framing.h). The input held only such bytes before, so the new ones are its last.
// The bufferevent calls its reader, evhttp, only after this.
void FrameInput(Connection* conn, struct evbuffer* in, size_t added) {
    conn->framingInput = true;
    std::string fresh(added, '\0');
    struct evbuffer* checked = evbuffer_new();
    size_t before = evbuffer_get_length(in) - added;
    if (checked != nullptr && evbuffer_remove_buffer(in, checked, before) == static_cast<int>(before) &&
        evbuffer_remove(in, &fresh[0], added) == static_cast<int>(added)) {
        evbuffer_add_buffer(in, checked);
        conn->handedOn += FrameRequests(&conn->framing, fresh.data(), fresh.size(), in);
        if (conn->framing.refusal.code != 0 && conn->standIn == 0) {
            conn->standIn = conn->handedOn;
        }
    } else {
        HOST_LOG(3, "%s", "cannot check a request's framing: closing its connection");
        bufferevent_disable(conn->bev, EV_READ);
        event_active(conn->headerTimer, EV_TIMEOUT, 0);
    }
    if (checked != nullptr) {
        evbuffer_free(checked);
    }
    conn->framingInput = false;
}

void OnInput(struct evbuffer* in, const struct evbuffer_cb_info* info, void* arg) {
    auto* conn = static_cast<Connection*>(arg);
    if (info->n_added == 0 || conn->framingInput) {
        return;
    }
    if (conn->ctx == nullptr && !evtimer_pending(conn->headerTimer, nullptr)) {
        struct timeval limit = Millis(conn->server->options.headerTimeoutMs);
        evtimer_add(conn->headerTimer, &limit);
    }
    FrameInput(conn, in, info->n_added);
}

// An error page evhttp wrote itself becomes the status envelope, with an empty RequestURL (evhttp
// has dropped the target by then).
std::string ErrorEnvelope(void*, int* code, std::string* reason) {
    return StatusEnvelope(*code, reason->c_str(), "");
}

void OnOutput(struct evbuffer* out, const struct evbuffer_cb_info* info, void* arg) {
    auto* conn = static_cast<Connection*>(arg);
    vks_web::ReplaceErrorPageOnAdd(out, info, &conn->rewriting, &ErrorEnvelope, nullptr);
}

Connection* Track(AccessServer* server, struct bufferevent* bev) {
    auto* conn = new (std::nothrow)
        Connection{server,  bev, nullptr,          nullptr, nullptr, false, nullptr, nullptr,
                   nullptr, 0,   RequestFraming(), false,   0,       0,     0};
    if (conn == nullptr) {
        return nullptr;
    }
    conn->framing.maxHead = static_cast<size_t>(server->options.maxHeaderBytes);
    conn->headerTimer = evtimer_new(server->base, &OnHeaderTimeout, conn);
    conn->adopt = event_new(server->base, -1, 0, &OnAdopt, conn);
    conn->input = evbuffer_add_cb(bufferevent_get_input(bev), &OnInput, conn);
    conn->output = evbuffer_add_cb(bufferevent_get_output(bev), &OnOutput, conn);
    bool ok = conn->headerTimer != nullptr && conn->adopt != nullptr && conn->input != nullptr &&
              conn->output != nullptr;
    try {
        if (ok) {
            server->connectionsByBev[bev] = conn;
        }
    } catch (const std::bad_alloc&) {
        ok = false;
    }
    if (!ok) {
        Release(conn);
        return nullptr;
    }
    ++server->connections;
    return conn;
}

// evhttp asks for the bufferevent of every accepted connection: the one it would make itself, or with
// HTTPS one that runs TLS over the socket (the buffers seen here and by evhttp hold the clear text).
struct bufferevent* OnAccepted(struct event_base* base, void* arg) {
    auto* server = static_cast<AccessServer*>(arg);
    server->acceptFailing = false;  // an accept went through: the episode is over
    struct bufferevent* bev = NewConnectionBufferevent(base, server->tls);
    Connection* conn = bev != nullptr ? Track(server, bev) : nullptr;
    if (conn == nullptr) {
        return bev;  // out of memory: served untracked, or refused by evhttp
    }
    event_active(conn->adopt, EV_READ, 0);
    if (server->tls != nullptr) {
        // A TLS handshake adds nothing to the clear-text input until it is done: the time the first
        // request may take starts at the accept, so that a handshake trickled byte by byte is cut off.
        struct timeval limit = Millis(server->options.headerTimeoutMs);
        evtimer_add(conn->headerTimer, &limit);
    }
    if (server->connections >= server->options.maxConnections && !server->atConnectionLimit) {
        HOST_LOG(3, "%d connections open: accepting pauses until one closes", server->connections);
        server->atConnectionLimit = true;
    }
    UpdateAccepting(server);
    return bev;
}

// The pause timer stays added (far in the future while accepting runs), so that the accept error
// callback can find it among the loop's events.
void ArmPause(AccessServer* server, int ms) {
    struct timeval after = ms > 0 ? Millis(ms) : timeval{1 << 30, 0};
    evtimer_add(server->acceptPause, &after);
}

void OnAcceptResume(evutil_socket_t, short, void* arg) {
    auto* server = static_cast<AccessServer*>(arg);
    server->acceptBackingOff = false;
    ArmPause(server, 0);
    UpdateAccepting(server);
}

// The listener hands its error callback evhttp's argument, not ours: the server is found through
// its pause timer, which was created for it with the server as argument.
int FindServer(const struct event_base*, const struct event* e, void* arg) {
    if (event_get_callback(e) != &OnAcceptResume) {
        return 0;
    }
    *static_cast<AccessServer**>(arg) = static_cast<AccessServer*>(event_get_callback_arg(e));
    return 1;
}

// Descriptors ran out (or another accept error): accepting pauses for a moment instead of failing
// in a loop, with one warning per episode; the next accepted connection ends the episode.
void OnAcceptError(struct evconnlistener* listener, void*) {
    int err = EVUTIL_SOCKET_ERROR();
    evconnlistener_disable(listener);
    AccessServer* server = nullptr;
    event_base_foreach_event(evconnlistener_get_base(listener), &FindServer, &server);
    if (server == nullptr) {
        return;
    }
    if (!server->acceptFailing) {
        HOST_LOG(3, "accept failed: %s; pausing accept while it lasts", strerror(err));
        server->acceptFailing = true;
    }
    server->acceptBackingOff = true;
    ArmPause(server, kAcceptPauseMs);
}

}  // namespace

int WatchConnections(AccessServer* server, struct evhttp_bound_socket* listener) {
    server->acceptPause = evtimer_new(server->base, &OnAcceptResume, server);
    if (server->acceptPause == nullptr) {
        return -1;
    }
    ArmPause(server, 0);
    server->listener = listener;
    evhttp_set_bevcb(server->http, &OnAccepted, server);
    evconnlistener_set_error_cb(evhttp_bound_socket_get_listener(listener), &OnAcceptError);
    return 0;
}

void StopAccepting(AccessServer* server) {
    if (server->listener != nullptr) {
        evhttp_del_accept_socket(server->http, server->listener);
        server->listener = nullptr;
    }
    FreeEvent(&server->acceptPause);
}

void UnwatchConnections(AccessServer* server) {
    FreeEvent(&server->acceptPause);
}

Connection* RequestArrived(AccessServer* server, struct evhttp_request* req) {
    struct evhttp_connection* evcon = evhttp_request_get_connection(req);
    struct bufferevent* bev = evhttp_connection_get_bufferevent(evcon);
    auto found = server->connectionsByBev.find(bev);
    bool known = found != server->connectionsByBev.end();
    Connection* conn = known ? found->second : Track(server, bev);
    if (conn != nullptr) {
        Adopt(conn, evcon);
        evtimer_del(conn->headerTimer);
        ++conn->arrived;
        if (!known) {
            conn->handedOn = conn->arrived;  // tracked late: this request came in past the framing
        }
    }
    return conn;
}

const RequestHead* RefusedRequest(const Connection* conn, Refusal* refusal) {
    if (conn == nullptr || conn->standIn == 0 || conn->arrived != conn->standIn) {
        return nullptr;
    }
    *refusal = conn->framing.refusal;
    return &conn->framing.request;
}

void CarryRequest(Connection* conn, RequestCtx* ctx) {
    conn->ctx = ctx;
}

void AnswerHandedOver(Connection* conn, struct evhttp_request* req) {
    if (conn != nullptr) {
        ++conn->unsent;
        ++conn->server->unsent;
        evhttp_request_set_on_complete_cb(req, &OnAnswerWritten, conn);
    }
}

}  // namespace vks_host
