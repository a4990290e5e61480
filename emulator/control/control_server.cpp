#include "control_server.h"

#include <event2/buffer.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/keyvalq_struct.h>
#include <event2/thread.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "control_answer.h"
#include "control_guard.h"
#include "fault_json.h"
#include "json_text.h"
#include "scenario.h"
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
// The journal never keeps more than --journal-size allows.
const uint64_t kJournalLimitMax = 100000;

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
    std::string why;
    json_object* value = ParseStrictJson(text, &why);
    if (value == nullptr) {
        SendError(req, 400, "body " + why);
    }
    return value;
}

FaultTables Tables(const ControlTargets& t) {
    return FaultTables{t.analysisFaults.get(), t.cmdFaults.get()};
}

json_object* FaultList(const ControlTargets& t) {
    return control::FaultList(*t.analysisFaults, *t.cmdFaults);
}

// True when the route takes the request's method (HEAD wherever GET is); otherwise answers 405 with
// the methods it takes in Allow.
bool MethodAllowed(struct evhttp_request* req, const std::string& path,
                   std::initializer_list<const char*> allowed) {
    const char* method = vks_web::MethodName(evhttp_request_get_command(req));
    std::string list;
    bool found = false;
    for (const char* m : allowed) {
        found = found || strcmp(m, method) == 0 || (strcmp(m, "GET") == 0 && strcmp(method, "HEAD") == 0);
        list += (list.empty() ? "" : ", ") + std::string(m) + (strcmp(m, "GET") == 0 ? ", HEAD" : "");
    }
    if (!found) {
        evhttp_add_header(evhttp_request_get_output_headers(req), "Allow", list.c_str());
        SendError(req, 405, std::string(method) + " is not a method of " + EchoedPath(path) + " (allowed: " + list + ")");
    }
    return found;
}

// /control/faults[/ROAD/COMMAND]: GET the list, DELETE all; PUT sets one, DELETE removes it.
void Faults(ControlServer::Impl* s, struct evhttp_request* req, const std::string& path,
            const std::string& rest) {
    enum evhttp_cmd_type method = evhttp_request_get_command(req);
    if (rest.empty()) {
        if (!MethodAllowed(req, path, {"GET", "DELETE"})) {
            return;
        }
        if (method == EVHTTP_REQ_DELETE) {
            s->targets.analysisFaults->Clear();
            s->targets.cmdFaults->Clear();
        }
        return SendJsonObject(req, 200, FaultList(s->targets));
    }
    size_t slash = rest.find('/', 1);
    std::string road = rest.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
    int command = 0;
    if (slash == std::string::npos || !ParseCommand(road, rest.substr(slash + 1), &command)) {
        return SendError(req, 404,
                         "no such fault target: " + EchoedPath(rest) +
                             " (GET /control/commands lists the commands of each road, or all)");
    }
    if (!MethodAllowed(req, path, {"PUT", "DELETE"})) {
        return;
    }
    faults::FaultTable& table =
        road == CONTROL_ROAD_ANALYSIS ? *s->targets.analysisFaults : *s->targets.cmdFaults;
    if (method == EVHTTP_REQ_DELETE) {
        return table.Remove(command) ? SendJsonObject(req, 200, FaultList(s->targets))
                                     : SendError(req, 404, "no fault for " + EchoedPath(rest));
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
void State(ControlServer::Impl* s, struct evhttp_request* req, const std::string& path,
           const std::string& rest) {
    enum evhttp_cmd_type method = evhttp_request_get_command(req);
    std::string kind = rest.empty() ? "" : rest.substr(1);
    std::string error;
    if (kind == "reset") {
        if (!MethodAllowed(req, path, {"POST"})) {
            return;
        }
        bool reset = s->state->ResetToDemo(&error);
        StateChanged(s);  // a failed reset may have changed part of it
        return reset ? SendJsonObject(req, 200, s->state->ReadAll()) : SendError(req, 500, error);
    }
    if (!kind.empty() && !StateAdmin::Known(kind)) {
        return SendError(req, 404, "no such state kind: " + EchoedPath(kind));
    }
    if (!(kind.empty() ? MethodAllowed(req, path, {"GET"}) : MethodAllowed(req, path, {"GET", "PUT"}))) {
        return;
    }
    if (method != EVHTTP_REQ_PUT) {
        json_object* value = kind.empty() ? s->state->ReadAll() : s->state->Read(kind);
        return value != nullptr ? SendJsonObject(req, 200, value)
                                : SendError(req, 500, "state file read failed");
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

// /control/scenario: GET exports the state and the faults as one document, PUT imports one.
void Scenario(ControlServer::Impl* s, struct evhttp_request* req, const std::string& path) {
    if (!MethodAllowed(req, path, {"GET", "PUT"})) {
        return;
    }
    std::string error;
    if (evhttp_request_get_command(req) == EVHTTP_REQ_PUT) {
        json_object* scenario = JsonBody(req);
        if (scenario == nullptr) {
            return;
        }
        bool imported = ImportScenario(*s->state, Tables(s->targets), scenario, &error);
        json_object_put(scenario);
        if (!imported) {
            return SendError(req, 400, error);
        }
        StateChanged(s);
    }
    json_object* scenario = ExportScenario(*s->state, Tables(s->targets));
    return scenario != nullptr ? SendJsonObject(req, 200, scenario)
                               : SendError(req, 500, "state file read failed");
}

// A journal filter's number: digits only, at most max; false with the reason.
bool FilterNumber(const std::string& key, const std::string& text, uint64_t max, uint64_t* value,
                  std::string* error) {
    char* end = nullptr;
    errno = 0;
    unsigned long long n = strtoull(text.c_str(), &end, 10);
    if (text.empty() || text[0] < '0' || text[0] > '9' || *end != '\0' || errno == ERANGE || n > max) {
        *error = key + "=" + text + ": an integer in 0.." + std::to_string(max) + " is expected";
        return false;
    }
    *value = n;
    return true;
}

bool KnownCommand(const std::string& road, int command) {
    for (const char* known : Roads()) {
        if ((road.empty() || road == known) && FindCommand(known, command) != nullptr) {
            return true;
        }
    }
    return false;
}

// The journal's filters from the query; false with the reason for the first bad one.
bool ReadFilter(struct evhttp_request* req, JournalFilter* filter, std::string* error) {
    const char* raw = evhttp_uri_get_query(evhttp_request_get_evhttp_uri(req));
    struct evkeyvalq query;
    if (raw == nullptr) {
        return true;
    }
    if (evhttp_parse_query_str(raw, &query) != 0) {
        *error = "the query cannot be read";
        return false;
    }
    bool ok = true;
    for (struct evkeyval* kv = query.tqh_first; ok && kv != nullptr; kv = kv->next.tqe_next) {
        std::string key = kv->key;
        std::string value = kv->value;
        uint64_t n = 0;
        if (key == "road") {
            ok = KnownRoad(value.c_str());
            filter->road = value;
            *error = ok ? "" : "road=" + value + ": not a road (analysis or command-channel)";
        } else if (key == "command") {
            ok = FilterNumber(key, value, INT32_MAX, &n, error);
            filter->command = static_cast<int>(n);
        } else if (key == "since") {
            ok = FilterNumber(key, value, UINT64_MAX, &n, error);
            filter->since = n;
        } else if (key == "limit") {
            ok = FilterNumber(key, value, kJournalLimitMax, &n, error);
            filter->limit = static_cast<size_t>(n);
        } else {
            ok = false;
            *error = key + ": not a filter of the journal (road, command, since, limit)";
        }
    }
    evhttp_clear_headers(&query);
    if (ok && filter->command != 0 && !KnownCommand(filter->road, filter->command)) {
        *error = "command=" + std::to_string(filter->command) + ": not a command of " +
                 (filter->road.empty() ? std::string("either road") : filter->road) +
                 " (GET /control/commands lists them)";
        return false;
    }
    return ok;
}

// /control/journal?road=&command=&since=&limit=: GET filtered (every filter checked), DELETE clears.
void JournalRoute(ControlServer::Impl* s, struct evhttp_request* req, const std::string& path) {
    if (!MethodAllowed(req, path, {"GET", "DELETE"})) {
        return;
    }
    JournalFilter filter;
    std::string error;
    if (evhttp_request_get_command(req) == EVHTTP_REQ_DELETE) {
        s->targets.journal->Clear();  // takes no filter: everything goes
    } else if (!ReadFilter(req, &filter, &error)) {
        return SendError(req, 400, error);
    }
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
        Faults(s, req, path, rest);
    } else if (under("/control/state", &rest)) {
        State(s, req, path, rest);
    } else if (path == "/control/scenario") {
        Scenario(s, req, path);
    } else if (path == "/control/commands") {
        if (MethodAllowed(req, path, {"GET"})) {
            SendJsonObject(req, 200, CommandList());
        }
    } else if (path == "/control/journal") {
        JournalRoute(s, req, path);
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
