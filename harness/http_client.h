// A small blocking HTTP/1.1 client for tests and benchmarks: one request per connection.
#ifndef VKS_HTTP_CLIENT_H
#define VKS_HTTP_CLIENT_H

#include <cstdint>
#include <string>

namespace vks_test {

struct HttpResponse {
    int status = -1;      // -1: no response (connect, send or read failed)
    std::string headers;  // the header block, lines as received
    std::string body;
};

// Connects to 127.0.0.1:port with send and receive time-outs of timeoutMs. The descriptor, or -1.
int HttpConnect(uint16_t port, int timeoutMs);
// Writes one request with "Connection: close" and, when body is not empty, a Content-Length.
// extraHeaders are complete lines, each ending in "\r\n".
bool HttpSendRequest(int fd, const std::string& method, const std::string& target, const std::string& body,
                     const std::string& extraHeaders);
// Reads until the server closes the connection and splits status, headers and body.
bool HttpReadResponse(int fd, HttpResponse* out);
// All three in one, closing the descriptor.
HttpResponse HttpRequest(uint16_t port, const std::string& method, const std::string& target,
                         const std::string& body = "", const std::string& extraHeaders = "",
                         int timeoutMs = 10000);
// Value of a header (name compared without case), "" when absent.
std::string HeaderValue(const HttpResponse& response, const std::string& name);

}  // namespace vks_test

#endif
