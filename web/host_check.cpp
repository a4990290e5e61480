#include "host_check.h"

#include <event2/http_struct.h>
#include <event2/keyvalq_struct.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace vks_web {
namespace {

// Every request is looked at: no copy of the header is made.
bool Listed(const HostAllowList& list, std::string_view name) {
    return std::any_of(list.names.begin(), list.names.end(), [name](const std::string& allowed) {
        return allowed.size() == name.size() && strncasecmp(allowed.data(), name.data(), name.size()) == 0;
    });
}

// host is "name" or "name:port" (an IPv6 literal in brackets); defaultPort is the port a missing
// one stands for, 0 when a missing port is always accepted (Host).
bool AllowedHostPort(const HostAllowList& list, std::string_view host, uint16_t defaultPort) {
    size_t close = host.rfind(']');
    size_t colon = host.rfind(':');
    if (colon == std::string_view::npos || (close != std::string_view::npos && colon < close)) {
        return Listed(list, host) && (defaultPort == 0 || defaultPort == list.port);
    }
    return Listed(list, host.substr(0, colon)) && host.substr(colon + 1) == list.portText;
}

}  // namespace

HostAllowList MakeHostAllowList(uint16_t port, const std::string& listenHost,
                                const std::vector<std::string>& added) {
    HostAllowList list;
    list.port = port;
    list.portText = std::to_string(port);
    list.names = {"127.0.0.1", "localhost", "[::1]"};
    std::string listen = listenHost.find(':') != std::string::npos && listenHost[0] != '['
                             ? "[" + listenHost + "]"
                             : listenHost;
    if (!listen.empty() && listen != "0.0.0.0" && listen != "[::]") {
        list.names.push_back(listen);
    }
    for (const std::string& name : added) {
        list.names.push_back(name);
    }
    return list;
}

HostVerdict CheckHost(const HostAllowList& list, struct evhttp_request* req) {
    const char* host = evhttp_find_header(evhttp_request_get_input_headers(req), "Host");
    if (host == nullptr) {
        bool http11 = req->major > 1 || (req->major == 1 && req->minor >= 1);
        return http11 ? HostVerdict::kMissing : HostVerdict::kAllowed;
    }
    return AllowedHostPort(list, host, 0) ? HostVerdict::kAllowed : HostVerdict::kForeign;
}

bool IsOwnOrigin(const HostAllowList& list, const char* origin) {
    static const struct {
        const char* scheme;
        uint16_t port;
    } kSchemes[] = {{"http://", 80}, {"https://", 443}};
    std::string_view text = origin != nullptr ? origin : "";
    for (const auto& s : kSchemes) {
        size_t length = strlen(s.scheme);
        if (text.size() > length && strncasecmp(text.data(), s.scheme, length) == 0) {
            return AllowedHostPort(list, text.substr(length), s.port);
        }
    }
    return false;
}

bool IsWrite(struct evhttp_request* req) {
    enum evhttp_cmd_type method = evhttp_request_get_command(req);
    return method != EVHTTP_REQ_GET && method != EVHTTP_REQ_HEAD && method != EVHTTP_REQ_OPTIONS;
}

void AddNoSniff(struct evhttp_request* req) {
    struct evkeyvalq* headers = evhttp_request_get_output_headers(req);
    if (evhttp_find_header(headers, "X-Content-Type-Options") == nullptr) {
        evhttp_add_header(headers, "X-Content-Type-Options", "nosniff");
    }
}

}  // namespace vks_web
