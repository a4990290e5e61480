#include "control_connections.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>

#include <new>
#include <string>
#include <vector>

#include "control_answer.h"
#include "error_page.h"

namespace control {

// evhttp bounds the head too, but refuses a long one with a 400 and cannot tell the request line
// from the rest: the head is counted here as it arrives, with bounds no larger than evhttp's (which
// leaves line ends out), so a head evhttp refuses always has its status here first.
struct WatchedConnection {
    ConnectionWatches* watches;
    struct bufferevent* bev;
    struct evbuffer_cb_entry* input;
    struct evbuffer_cb_entry* output;
    struct event* adopt;  // one pass of the loop after the accept: evhttp has set up its connection
    bool rewriting;
    bool inHead;  // counting the bytes of a head; false from its end until the request is handled
    bool requestLineDone;
    bool lastWasCr;
    size_t headBytes;
    size_t lineBytes;
    int verdict;
};

namespace {

void Release(WatchedConnection* w) {
    if (w->input != nullptr) {
        evbuffer_remove_cb_entry(bufferevent_get_input(w->bev), w->input);
    }
    if (w->output != nullptr) {
        evbuffer_remove_cb_entry(bufferevent_get_output(w->bev), w->output);
    }
    if (w->adopt != nullptr) {
        event_free(w->adopt);
    }
    delete w;
}

void Forget(WatchedConnection* w) {
    w->watches->byBev.erase(w->bev);
    Release(w);
}

void OnClosed(struct evhttp_connection*, void* arg) {
    Forget(static_cast<WatchedConnection*>(arg));
}

// evhttp builds its connection around our bufferevent right after asking for it and passes that
// connection as the bufferevent's callback argument; one pass of the loop later it is there.
void OnAdopt(evutil_socket_t, short, void* arg) {
    auto* w = static_cast<WatchedConnection*>(arg);
    bufferevent_data_cb readCb = nullptr;
    bufferevent_data_cb writeCb = nullptr;
    bufferevent_event_cb eventCb = nullptr;
    void* evcon = nullptr;
    event_free(w->adopt);
    w->adopt = nullptr;
    bufferevent_getcb(w->bev, &readCb, &writeCb, &eventCb, &evcon);
    if (evcon != nullptr) {
        evhttp_connection_set_closecb(static_cast<struct evhttp_connection*>(evcon), &OnClosed, w);
    }
}

// One byte of a head: counts it, notes the end of the request line and of the head.
void CountHeadByte(WatchedConnection* w, char c) {
    ++w->headBytes;
    if (c != '\n') {
        ++w->lineBytes;
        w->lastWasCr = c == '\r';
    } else {
        bool empty = w->lineBytes == 0 || (w->lineBytes == 1 && w->lastWasCr);
        w->inHead = !(w->requestLineDone && empty);
        w->requestLineDone = true;
        w->lineBytes = 0;
    }
    if (!w->requestLineDone && w->lineBytes > kMaxRequestLine) {
        w->verdict = 414;
    } else if (w->headBytes > kMaxRequestHead) {
        w->verdict = 431;
    }
}

// Counts the input from byte from on, while it is a head within its bounds.
void Scan(WatchedConnection* w, struct evbuffer* in, size_t from) {
    struct evbuffer_ptr at;
    if (evbuffer_ptr_set(in, &at, from, EVBUFFER_PTR_SET) != 0) {
        return;
    }
    int count = evbuffer_peek(in, -1, &at, nullptr, 0);
    std::vector<struct evbuffer_iovec> pieces(static_cast<size_t>(count > 0 ? count : 0));
    count = evbuffer_peek(in, -1, &at, pieces.data(), count);
    for (int i = 0; i < count && w->inHead && w->verdict == 0; ++i) {
        const char* bytes = static_cast<const char*>(pieces[i].iov_base);
        for (size_t j = 0; j < pieces[i].iov_len && w->inHead && w->verdict == 0; ++j) {
            CountHeadByte(w, bytes[j]);
        }
    }
}

void OnInput(struct evbuffer* in, const struct evbuffer_cb_info* info, void* arg) {
    auto* w = static_cast<WatchedConnection*>(arg);
    if (info->n_added > 0 && w->inHead && w->verdict == 0) {
        Scan(w, in, evbuffer_get_length(in) - info->n_added);
    }
}

// evhttp's page for a head it refused carries 400: the bounds' own status replaces it.
std::string ErrorBody(void* arg, int* code, std::string* reason) {
    auto* w = static_cast<WatchedConnection*>(arg);
    if (*code == 400 && w->verdict != 0) {
        *code = w->verdict;
        *reason = w->verdict == 414 ? "URI Too Long" : "Request Header Fields Too Large";
    }
    const char* bound = BoundMessage(*code);
    return ErrorJson(bound != nullptr ? bound : *reason);
}

void OnOutput(struct evbuffer* out, const struct evbuffer_cb_info* info, void* arg) {
    auto* w = static_cast<WatchedConnection*>(arg);
    vks_web::ReplaceErrorPageOnAdd(out, info, &w->rewriting, &ErrorBody, w);
}

void StartHead(WatchedConnection* w) {
    w->inHead = true;
    w->requestLineDone = false;
    w->lastWasCr = false;
    w->headBytes = 0;
    w->lineBytes = 0;
    w->verdict = 0;
}

// evhttp asks for the bufferevent of every accepted connection: the one it would make itself.
struct bufferevent* OnAccepted(struct event_base* base, void* arg) {
    auto* watches = static_cast<ConnectionWatches*>(arg);
    struct bufferevent* bev = bufferevent_socket_new(base, -1, BEV_OPT_CLOSE_ON_FREE);
    auto* w = bev != nullptr ? new (std::nothrow) WatchedConnection() : nullptr;
    if (w == nullptr) {
        return bev;  // out of memory: served unwatched, or refused by evhttp
    }
    w->watches = watches;
    w->bev = bev;
    StartHead(w);
    w->input = evbuffer_add_cb(bufferevent_get_input(bev), &OnInput, w);
    w->output = evbuffer_add_cb(bufferevent_get_output(bev), &OnOutput, w);
    w->adopt = event_new(base, -1, 0, &OnAdopt, w);
    bool ok = w->input != nullptr && w->output != nullptr && w->adopt != nullptr;
    try {
        ok = ok && watches->byBev.emplace(bev, w).second;
    } catch (const std::bad_alloc&) {
        ok = false;
    }
    if (!ok) {
        Release(w);
        return bev;
    }
    event_active(w->adopt, EV_READ, 0);
    return bev;
}

}  // namespace

const char* BoundMessage(int code) {
    switch (code) {
        case 413:
            return "request body too large (the limit is 1048576 bytes)";
        case 414:
            return "request target too long (the request line is limited to 8192 bytes)";
        case 431:
            return "request head too large (the limit is 16384 bytes)";
        default:
            return nullptr;
    }
}

int WatchConnections(ConnectionWatches* watches, struct evhttp* http, struct event_base* base) {
    watches->base = base;
    evhttp_set_max_headers_size(http, kMaxRequestHead);
    evhttp_set_max_body_size(http, kMaxRequestBody);
    evhttp_set_bevcb(http, &OnAccepted, watches);
    return 0;
}

void UnwatchConnections(ConnectionWatches* watches) {
    // Connections evhttp freed before they were adopted: their buffers (and our entries) are gone.
    for (auto& entry : watches->byBev) {
        if (entry.second->adopt != nullptr) {
            event_free(entry.second->adopt);
        }
        delete entry.second;
    }
    watches->byBev.clear();
}

int HeadVerdict(ConnectionWatches* watches, struct evhttp_request* req) {
    struct bufferevent* bev = evhttp_connection_get_bufferevent(evhttp_request_get_connection(req));
    auto found = watches->byBev.find(bev);
    if (found == watches->byBev.end()) {
        return 0;
    }
    WatchedConnection* w = found->second;
    int verdict = w->verdict;
    // What is in the input now follows this request (evhttp has taken its head and body).
    StartHead(w);
    Scan(w, bufferevent_get_input(bev), 0);
    return verdict;
}

}  // namespace control
