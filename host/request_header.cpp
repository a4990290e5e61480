#include "request_header.h"

#include <cstdio>
#include <cstring>

namespace vks_host {
namespace {

void CopyText(char* dst, size_t size, const char* src) {
    snprintf(dst, size, "%s", src != nullptr ? src : "");
}

}  // namespace

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

int FillRequestHeader(struct evhttp_request* req, const std::string& user, tagHTTP_HEADER_S* header) {
    const char* url = evhttp_request_get_uri(req);
    if (url == nullptr || strlen(url) >= sizeof(header->szReqUrl)) {
        return -1;
    }
    CopyText(header->method, sizeof(header->method), MethodName(evhttp_request_get_command(req)));
    CopyText(header->szReqUrl, sizeof(header->szReqUrl), url);
    CopyText(header->szUserName, sizeof(header->szUserName), user.c_str());
    char* address = nullptr;
    ev_uint16_t port = 0;
    evhttp_connection_get_peer(evhttp_request_get_connection(req), &address, &port);
    CopyText(header->szClientIp, sizeof(header->szClientIp), address);
    header->clientPort = port;
    return 0;
}

}  // namespace vks_host
