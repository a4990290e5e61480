#include "request_header.h"

#include <cstdio>
#include <cstring>

#include "web_files.h"

namespace vks_host {
namespace {

void CopyText(char* dst, size_t size, const char* src) {
    snprintf(dst, size, "%s", src != nullptr ? src : "");
}

}  // namespace

int FillRequestHeader(struct evhttp_request* req, const std::string& user, tagHTTP_HEADER_S* header) {
    const char* url = evhttp_request_get_uri(req);
    if (url == nullptr || strlen(url) >= sizeof(header->szReqUrl)) {
        return -1;
    }
    CopyText(header->method, sizeof(header->method), vks_web::MethodName(evhttp_request_get_command(req)));
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
