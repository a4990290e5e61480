// Which names a request may reach the kit's servers by. A page of another site that has its name
// resolve to 127.0.0.1 (DNS rebinding) reaches a loopback server with its own name in Host, and the
// browser counts that server as the page's own origin: only the Host header tells the two apart.
// Shared by the access server and the emulator's control port.
#ifndef VKS_WEB_HOST_CHECK_H
#define VKS_WEB_HOST_CHECK_H

#include <event2/http.h>

#include <stdint.h>

#include <string>
#include <vector>

namespace vks_web {

struct HostAllowList {
    std::vector<std::string> names;  // compared without case; IPv6 literals in brackets
    uint16_t port = 0;               // the port the server listens on
    std::string portText;            // the same, in decimal
};

// The loopback names (127.0.0.1, localhost, [::1]), listenHost unless it is a wildcard address,
// and the names a user added (--allow-host).
HostAllowList MakeHostAllowList(uint16_t port, const std::string& listenHost,
                                const std::vector<std::string>& added);

enum class HostVerdict { kAllowed, kMissing, kForeign };

// kMissing: an HTTP/1.1 request without Host (HTTP/1.0 may omit it). kForeign: a Host that is not
// one of the names, alone or with the listening port.
HostVerdict CheckHost(const HostAllowList& list, struct evhttp_request* req);

// Whether origin (an Origin header) is one of this server's own: http:// or https:// with an
// allowed name and the listening port (which the origin leaves out when it is the scheme's own).
bool IsOwnOrigin(const HostAllowList& list, const char* origin);

// True for the methods that change something (anything but GET, HEAD and OPTIONS).
bool IsWrite(struct evhttp_request* req);

// Headers every answer carries: the browser takes the declared content type, never a guess.
void AddNoSniff(struct evhttp_request* req);

}  // namespace vks_web

#endif
