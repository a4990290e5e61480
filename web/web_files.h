// Files served as they are from the kit's web root (the repository: docs/openapi, web/, and the
// viewer under node_modules), shared by the access server's docs page and the emulator's console.
#ifndef VKS_WEB_FILES_H
#define VKS_WEB_FILES_H

#include <event2/http.h>

#include <stdint.h>

#include <string>

namespace vks_web {

// The root compiled in: the source tree the kit was built from.
std::string DefaultWebRoot();

// Writes an answer for a request the file server refuses (404 no such file, 405 not GET or HEAD).
using RefusalWriter = void (*)(struct evhttp_request* req, int code, const char* reason);

// Sends root/relative with the content type of its extension. A path with a ".." segment, a missing
// file or one that cannot be read gets 404. Only GET and HEAD are answered (405 otherwise).
// refuse writes the 404 and 405 answers; without it they are plain text.
void SendFile(struct evhttp_request* req, const std::string& root, const std::string& relative,
              RefusalWriter refuse = nullptr);

// The request method as text ("GET", "PUT", ...); "" for a method evhttp has no name for.
const char* MethodName(enum evhttp_cmd_type cmd);

// The request's path, decoded, without the query; "" when it cannot be decoded.
std::string RequestPath(struct evhttp_request* req);

// The port a listening socket was bound to (IPv4 or IPv6); 0 when it cannot be read.
uint16_t BoundPort(struct evhttp_bound_socket* socket);

// Sends body with the given status, content type and Content-Length; a HEAD answer has the same
// headers and no body.
void SendBody(struct evhttp_request* req, int code, const char* reason, const char* type,
              const std::string& body);
// The same with the reason "OK" for 200 and "Error" otherwise.
void SendText(struct evhttp_request* req, int code, const char* type, const std::string& body);

}  // namespace vks_web

#endif
