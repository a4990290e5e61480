#include "web_files.h"

#include <event2/buffer.h>
#include <event2/keyvalq_struct.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <stdlib.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "host_check.h"

namespace vks_web {
namespace {

const char* ContentType(const std::string& path) {
    static const struct {
        const char* ext;
        const char* type;
    } kTypes[] = {
        {".html", "text/html; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".json", "application/json; charset=utf-8"},
        {".png", "image/png"},
        {".svg", "image/svg+xml"},
        {".map", "application/json; charset=utf-8"},
    };
    for (const auto& t : kTypes) {
        std::string ext = t.ext;
        if (path.size() >= ext.size() && path.compare(path.size() - ext.size(), ext.size(), ext) == 0) {
            return t.type;
        }
    }
    return "application/octet-stream";
}

// The pages load their scripts and styles from this server only and may not be framed: a page of
// another site must not show them under a transparent frame and have the user click through it.
const char kPagePolicy[] =
    "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; object-src 'none'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'";

void AddPageHeaders(struct evhttp_request* req, const char* type) {
    if (strncmp(type, "text/html", 9) != 0) {
        return;
    }
    struct evkeyvalq* headers = evhttp_request_get_output_headers(req);
    evhttp_add_header(headers, "X-Frame-Options", "DENY");
    evhttp_add_header(headers, "Content-Security-Policy", kPagePolicy);
}

bool Escapes(const std::string& relative) {
    return relative.find("..") != std::string::npos || relative.find('\0') != std::string::npos;
}

}  // namespace

std::string DefaultWebRoot() {
    return VKS_WEB_ROOT_DEFAULT;
}

const char* MethodName(enum evhttp_cmd_type cmd) {
    switch (cmd) {
        case EVHTTP_REQ_GET:
            return "GET";
        case EVHTTP_REQ_POST:
            return "POST";
        case EVHTTP_REQ_HEAD:
            return "HEAD";
        case EVHTTP_REQ_PUT:
            return "PUT";
        case EVHTTP_REQ_DELETE:
            return "DELETE";
        case EVHTTP_REQ_OPTIONS:
            return "OPTIONS";
        case EVHTTP_REQ_TRACE:
            return "TRACE";
        case EVHTTP_REQ_CONNECT:
            return "CONNECT";
        case EVHTTP_REQ_PATCH:
            return "PATCH";
    }
    return "";
}

std::string RequestPath(struct evhttp_request* req) {
    const struct evhttp_uri* uri = evhttp_request_get_evhttp_uri(req);
    const char* path = uri != nullptr ? evhttp_uri_get_path(uri) : nullptr;
    if (path == nullptr) {
        return "";
    }
    char* decoded = evhttp_uridecode(path, 0, nullptr);
    std::string out = decoded != nullptr ? decoded : "";
    free(decoded);
    return out;
}

void SendBody(struct evhttp_request* req, int code, const char* reason, const char* type,
              const std::string& body) {
    AddNoSniff(req);
    struct evkeyvalq* headers = evhttp_request_get_output_headers(req);
    evhttp_add_header(headers, "Content-Type", type);
    // evhttp sends no length to an HTTP/1.0 client, and a HEAD answer's body and no length.
    evhttp_add_header(headers, "Content-Length", std::to_string(body.size()).c_str());
    if (evhttp_request_get_command(req) == EVHTTP_REQ_HEAD) {
        evhttp_send_reply(req, code, reason, nullptr);
        return;
    }
    struct evbuffer* out = evbuffer_new();
    if (out == nullptr) {
        evhttp_send_error(req, HTTP_INTERNAL, nullptr);
        return;
    }
    evbuffer_add(out, body.data(), body.size());
    evhttp_send_reply(req, code, reason, out);
    evbuffer_free(out);
}

void SendText(struct evhttp_request* req, int code, const char* type, const std::string& body) {
    SendBody(req, code, code == 200 ? "OK" : "Error", type, body);
}

void SendFile(struct evhttp_request* req, const std::string& root, const std::string& relative,
              RefusalWriter refuse) {
    enum evhttp_cmd_type method = evhttp_request_get_command(req);
    if (method != EVHTTP_REQ_GET && method != EVHTTP_REQ_HEAD) {
        evhttp_add_header(evhttp_request_get_output_headers(req), "Allow", "GET, HEAD");
        if (refuse != nullptr) {
            refuse(req, 405, "Method Not Allowed");
        } else {
            SendText(req, 405, "text/plain; charset=utf-8", "method not allowed\n");
        }
        return;
    }
    std::ifstream in;
    std::ostringstream body;
    if (!Escapes(relative)) {
        in.open(root + "/" + relative, std::ios::binary);
    }
    if (!in.is_open() || !(body << in.rdbuf())) {
        if (refuse != nullptr) {
            refuse(req, 404, "Not Found");
        } else {
            SendText(req, 404, "text/plain; charset=utf-8", "not found: " + relative + "\n");
        }
        return;
    }
    AddPageHeaders(req, ContentType(relative));
    SendText(req, 200, ContentType(relative), body.str());
}

uint16_t BoundPort(struct evhttp_bound_socket* socket) {
    struct sockaddr_storage addr;
    socklen_t len = sizeof(addr);
    if (getsockname(evhttp_bound_socket_get_fd(socket), reinterpret_cast<struct sockaddr*>(&addr), &len) !=
        0) {
        return 0;
    }
    if (addr.ss_family == AF_INET6) {
        return ntohs(reinterpret_cast<struct sockaddr_in6*>(&addr)->sin6_port);
    }
    return ntohs(reinterpret_cast<struct sockaddr_in*>(&addr)->sin_port);
}

}  // namespace vks_web
