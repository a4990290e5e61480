#include "http_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace vks_test {
namespace {

bool WriteAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

int HttpConnect(uint16_t port, int timeoutMs) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    struct timeval tv = {timeoutMs / 1000, (timeoutMs % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
    struct sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool HttpSendRequest(int fd, const std::string& method, const std::string& target, const std::string& body,
                     const std::string& extraHeaders) {
    std::string request = method + " " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n";
    if (!body.empty()) {
        request +=
            "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    }
    request += extraHeaders + "\r\n" + body;
    return WriteAll(fd, request);
}

bool HttpReadResponse(int fd, HttpResponse* out) {
    std::string raw;
    char chunk[4096];
    for (;;) {
        ssize_t n = recv(fd, chunk, sizeof(chunk), 0);
        if (n == 0) {
            break;
        }
        if (n < 0) {
            return false;  // time-out or reset before the server finished
        }
        raw.append(chunk, static_cast<size_t>(n));
    }
    size_t end = raw.find("\r\n\r\n");
    while (raw.compare(0, 10, "HTTP/1.1 1") == 0 && end != std::string::npos) {  // interim answers
        raw.erase(0, end + 4);
        end = raw.find("\r\n\r\n");
    }
    if (raw.compare(0, 9, "HTTP/1.1 ") != 0 || end == std::string::npos) {
        return false;
    }
    out->status = atoi(raw.c_str() + 9);
    out->headers = raw.substr(0, end + 2);
    out->body = raw.substr(end + 4);
    return true;
}

HttpResponse HttpRequest(uint16_t port, const std::string& method, const std::string& target,
                         const std::string& body, const std::string& extraHeaders, int timeoutMs) {
    HttpResponse response;
    int fd = HttpConnect(port, timeoutMs);
    if (fd < 0) {
        return response;
    }
    if (!HttpSendRequest(fd, method, target, body, extraHeaders) || !HttpReadResponse(fd, &response)) {
        response = HttpResponse();
    }
    close(fd);
    return response;
}

std::string HeaderValue(const HttpResponse& response, const std::string& name) {
    size_t pos = 0;
    while ((pos = response.headers.find("\r\n", pos)) != std::string::npos) {
        pos += 2;
        if (strncasecmp(response.headers.c_str() + pos, name.c_str(), name.size()) == 0 &&
            response.headers.compare(pos + name.size(), 2, ": ") == 0) {
            size_t start = pos + name.size() + 2;
            return response.headers.substr(start, response.headers.find("\r\n", start) - start);
        }
    }
    return "";
}

}  // namespace vks_test
