#include "request_header.h"

#include <event2/keyvalq_struct.h>
#include <strings.h>

#include <cstdio>
#include <cstring>

namespace vks_host {
namespace {

int Base64Value(char c) {
    static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const char* at = c != '\0' ? strchr(kAlphabet, c) : nullptr;
    return at != nullptr ? static_cast<int>(at - kAlphabet) : -1;
}

// Strict enough for credentials: stops at the first '=' and refuses any other foreign character.
bool Base64Decode(const char* text, std::string* out) {
    unsigned int bits = 0;
    int count = 0;
    for (const char* p = text; *p != '\0' && *p != '='; ++p) {
        int v = Base64Value(*p);
        if (v < 0) {
            return false;
        }
        bits = (bits << 6) | static_cast<unsigned int>(v);
        count += 6;
        if (count >= 8) {
            count -= 8;
            out->push_back(static_cast<char>((bits >> count) & 0xFF));
        }
    }
    return true;
}

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

std::string BasicAuthUser(const char* authorization) {
    if (authorization == nullptr || strncasecmp(authorization, "Basic ", 6) != 0) {
        return "";
    }
    std::string decoded;
    if (!Base64Decode(authorization + 6, &decoded)) {
        return "";
    }
    return decoded.substr(0, decoded.find(':'));
}

int FillRequestHeader(struct evhttp_request* req, tagHTTP_HEADER_S* header) {
    const char* url = evhttp_request_get_uri(req);
    if (url == nullptr || strlen(url) >= sizeof(header->szReqUrl)) {
        return -1;
    }
    CopyText(header->method, sizeof(header->method), MethodName(evhttp_request_get_command(req)));
    CopyText(header->szReqUrl, sizeof(header->szReqUrl), url);
    std::string user =
        BasicAuthUser(evhttp_find_header(evhttp_request_get_input_headers(req), "Authorization"));
    CopyText(header->szUserName, sizeof(header->szUserName), user.empty() ? kDefaultUser : user.c_str());
    char* address = nullptr;
    ev_uint16_t port = 0;
    evhttp_connection_get_peer(evhttp_request_get_connection(req), &address, &port);
    CopyText(header->szClientIp, sizeof(header->szClientIp), address);
    header->clientPort = port;
    return 0;
}

}  // namespace vks_host
