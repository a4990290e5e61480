#include "control_server.h"

#include <event2/buffer.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/keyvalq_struct.h>
#include <event2/thread.h>

#include <cstdlib>
#include <thread>

#include "control_answer.h"
#include "control_guard.h"
#include "fault_json.h"
#include "state_admin.h"
#include "web_files.h"

namespace control {

struct ControlServer::Impl {
    ControlOptions options;
    ControlTargets targets;
    std::unique_ptr<StateAdmin> state;
    struct event_base* base = nullptr;
    struct evhttp* http = nullptr;
    uint16_t port = 0;
    ControlGuard guard;
    std::thread thread;

    ~Impl() {
        if (thread.joinable()) {
            event_base_loopexit(base, nullptr);
            thread.join();
        }
        if (http != nullptr) {
            evhttp_free(http);
        }
        UnwatchConnections(&guard.watches);
        if (base != nullptr) {
            event_base_free(base);
        }
    }
};

namespace {

const char kJson[] = "application/json; charset=utf-8";

void SendJsonObject(struct evhttp_request* req, int code, json_object* value) {
    vks_web::SendText(
        req, code, kJson,
        json_object_to_json_string_ext(value, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE));
    json_object_put(value);
}

void SendError(struct evhttp_request* req, int code, const std::string& message) {
    SendControlError(req, code, message);
}

// The request body parsed as JSON, or null (an error already sent) when it is not JSON.
json_object* JsonBody(struct evhttp_request* req) {
    struct evbuffer* in = evhttp_request_get_input_buffer(req);
    std::string text(evbuffer_get_length(in), '\0');
    evbuffer_copyout(in, &text[0], text.size());
    json_tokener_error why = json_tokener_success;
    json_object* value = json_tokener_parse_verbose(text.c_str(), &why);
    if (value == nullptr) {
        SendError(req, 400, std::string("body is not JSON: ") + json_tokener_error_desc(why));
    }
    return value;
}

std::string QueryValue(struct evhttp_request* req, const char* key) {
    struct evkeyvalq query;
    const char* raw = evhttp_uri_get_query(evhttp_request_get_evhttp_uri(req));
    std::string value;
    if (raw != nullptr && evhttp_parse_query_str(raw, &query) == 0) {
        const char* found = evhttp_find_header(&query, key);
        value = found != nullptr ? found : "";
        evhttp_clear_headers(&query);
    }
    return value;
}

json_object* FaultList(const ControlTargets& t) {
    json_object* list = json_object_new_array();
    for (const auto& f : t.analysisFaults->List()) {
        json_object_array_add(list, FaultToJson(CONTROL_ROAD_ANALYSIS, f.first, f.second));
    }
    for (const auto& f : t.cmdFaults->List()) {
        json_object_array_add(list, FaultToJson(CONTROL_ROAD_CMD, f.first, f.second));
    }
    return list;
}

// /control/faults[/ROAD/COMMAND]: GET the list, DELETE all; PUT sets one, DELETE removes it.
void Faults(ControlServer::Impl* s, struct evhttp_request* req, const std::string& rest) {
    enum evhttp_cmd_type method = evhttp_request_get_command(req);
    if (rest.empty()) {
        if (method == EVHTTP_REQ_DELETE) {
            s->targets.analysisFaults->Clear();
            s->targets.cmdFaults->Clear();
        }
        return method == EVHTTP_REQ_GET || method == EVHTTP_REQ_DELETE
                   ? SendJsonObject(req, 200, FaultList(s->targets))
                   : SendError(req, 405, "GET or DELETE");
    }
    size_t slash = rest.find('/', 1);
    std::string road = rest.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
    int command = 0;
    if (slash == std::string::npos || !ParseCommand(road, rest.substr(slash + 1), &command)) {
        return SendError(req, 404,
                         "no such fault target: " + EchoedPath(rest) +
                             " (roads " CONTROL_ROAD_ANALYSIS
                             ": 229, 1201, 1202, 1203, all; " CONTROL_ROAD_CMD
                             ": 7032, 7037, 22025, 22026, all)");
    }
    faults::FaultTable& table =
        road == CONTROL_ROAD_ANALYSIS ? *s->targets.analysisFaults : *s->targets.cmdFaults;
    if (method == EVHTTP_REQ_DELETE) {
        return table.Remove(command) ? SendJsonObject(req, 200, FaultList(s->targets))
                                     : SendError(req, 404, "no fault for " + EchoedPath(rest));
    }
    if (method != EVHTTP_REQ_PUT) {
        return SendError(req, 405, "PUT or DELETE");
    }
    json_object* body = JsonBody(req);
    faults::Fault fault;
    std::string error;
    if (body != nullptr && !FaultFromJson(body, &fault, &error)) {
        SendError(req, 400, error);
    } else if (body != nullptr) {
        table.Set(command, fault);
        SendJsonObject(req, 200, FaultToJson(road.c_str(), command, fault));
    }
    json_object_put(body);
}

void StateChanged(ControlServer::Impl* s) {
    if (s->targets.stateChanges != nullptr) {
        ++*s->targets.stateChanges;
    }
}

// /control/state[/KIND | /reset]
void State(ControlServer::Impl* s, struct evhttp_request* req, const std::string& rest) {
    enum evhttp_cmd_type method = evhttp_request_get_command(req);
    std::string kind = rest.empty() ? "" : rest.substr(1);
    std::string error;
    if (kind == "reset" && method == EVHTTP_REQ_POST) {
        bool reset = s->state->ResetToDemo(&error);
        StateChanged(s);  // a failed reset may have changed part of it
        return reset ? SendJsonObject(req, 200, s->state->ReadAll()) : SendError(req, 500, error);
    }
    if (!kind.empty() && !StateAdmin::Known(kind)) {
        return SendError(req, 404, "no such state kind: " + EchoedPath(kind));
    }
    if (method == EVHTTP_REQ_GET) {
        json_object* value = kind.empty() ? s->state->ReadAll() : s->state->Read(kind);
        return value != nullptr ? SendJsonObject(req, 200, value)
                                : SendError(req, 500, "state file read failed");
    }
    if (method != EVHTTP_REQ_PUT || kind.empty()) {
        return SendError(req, 405, kind.empty() ? "GET" : "GET or PUT");
    }
    json_object* rows = JsonBody(req);
    if (rows != nullptr && !s->state->Replace(kind, rows, &error)) {
        SendError(req, 400, error);
    } else if (rows != nullptr) {
        StateChanged(s);
        SendJsonObject(req, 200, s->state->Read(kind));
    }
    json_object_put(rows);
}

// /control/journal?road=&command=&since=&limit=: GET filtered, DELETE clears.
void JournalRoute(ControlServer::Impl* s, struct evhttp_request* req) {
    enum evhttp_cmd_type method = evhttp_request_get_command(req);
    if (method == EVHTTP_REQ_DELETE) {
        s->targets.journal->Clear();
    } else if (method != EVHTTP_REQ_GET) {
        return SendError(req, 405, "GET or DELETE");
    }
    JournalFilter filter;
    filter.road = QueryValue(req, "road");
    filter.command = atoi(QueryValue(req, "command").c_str());
    filter.since = strtoull(QueryValue(req, "since").c_str(), nullptr, 10);
    filter.limit = strtoul(QueryValue(req, "limit").c_str(), nullptr, 10);
    vks_web::SendText(req, 200, kJson, s->targets.journal->ToJson(filter));
}

void OnRequest(struct evhttp_request* req, void* arg) {
    auto* s = static_cast<ControlServer::Impl*>(arg);
    if (RefuseRequest(&s->guard, req)) {
        return;
    }
    std::string path = vks_web::RequestPath(req);
    const std::string& root = s->options.webRoot;
    auto under = [&path](const std::string& prefix, std::string* rest) {
        bool match = path == prefix || path.compare(0, prefix.size() + 1, prefix + "/") == 0;
        *rest = match ? path.substr(prefix.size()) : "";
        return match;
    };
    std::string rest;
    if (path == "/" || path == "/console") {
        vks_web::SendFile(req, root, "web/console/index.html", &RefuseFile);
    } else if (path == "/openapi.json") {
        vks_web::SendFile(req, root, "docs/openapi/emulator-control.json", &RefuseFile);
    } else if (under("/console", &rest)) {
        vks_web::SendFile(req, root, "web/console" + rest, &RefuseFile);
    } else if (under("/control/faults", &rest)) {
        Faults(s, req, rest);
    } else if (under("/control/state", &rest)) {
        State(s, req, rest);
    } else if (path == "/control/journal") {
        JournalRoute(s, req);
    } else {
        SendError(req, 404, "no such path: " + EchoedPath(path));
    }
}

}  // namespace

ControlServer::ControlServer(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ControlServer::~ControlServer() = default;

uint16_t ControlServer::Port() const {
    return impl_->port;
}

std::unique_ptr<ControlServer> ControlServer::Start(const ControlOptions& options,
                                                    const ControlTargets& targets, std::string* error) {
    std::unique_ptr<Impl> impl(new Impl);
    impl->options = options;
    impl->targets = targets;
    impl->state = StateAdmin::Open(options.dbPath, error);
    if (impl->state == nullptr) {
        return nullptr;
    }
    evthread_use_pthreads();  // the loop is stopped from the daemon's thread
    impl->base = event_base_new();
    impl->http = impl->base != nullptr ? evhttp_new(impl->base) : nullptr;
    if (impl->http == nullptr) {
        *error = "control port: cannot create the event loop";
        return nullptr;
    }
    evhttp_set_allowed_methods(impl->http, EVHTTP_REQ_GET | EVHTTP_REQ_HEAD | EVHTTP_REQ_PUT |
                                               EVHTTP_REQ_POST | EVHTTP_REQ_DELETE | EVHTTP_REQ_OPTIONS);
    WatchConnections(&impl->guard.watches, impl->http, impl->base);
    evhttp_set_gencb(impl->http, &OnRequest, impl.get());
    struct evhttp_bound_socket* socket =
        evhttp_bind_socket_with_handle(impl->http, "127.0.0.1", static_cast<uint16_t>(options.port));
    if (socket == nullptr) {
        *error = "control port: cannot listen on 127.0.0.1:" + std::to_string(options.port);
        return nullptr;
    }
    impl->port = vks_web::BoundPort(socket);
    impl->guard.hosts = vks_web::MakeHostAllowList(impl->port, "127.0.0.1", options.allowHosts);
    struct event_base* base = impl->base;
    impl->thread = std::thread([base] { event_base_dispatch(base); });
    return std::unique_ptr<ControlServer>(new ControlServer(std::move(impl)));
}

}  // namespace control
