// Answers written to the HTTP client.
#ifndef VKS_HOST_HTTP_ANSWER_H
#define VKS_HOST_HTTP_ANSWER_H

#include <event2/http.h>

#include <string>

namespace vks_host {

// Sends body as application/json with the given status and its Content-Length (HTTP/1.0 answers
// included); the answer to a HEAD request goes without the body.
void SendJson(struct evhttp_request* req, int code, const char* reason, const std::string& body);

// The status envelope's text: {"ResponseStatus": {"RequestURL" (target cut to the record's field),
// "StatusCode", "StatusString"}}, printed as the module's bodies are.
std::string StatusEnvelope(int code, const char* reason, const char* target);

// The status envelope for an error the server answers itself (unknown resource or method, URL too
// long): {"ResponseStatus": {"RequestURL", "StatusCode" (the HTTP status), "StatusString"}}.
void SendJsonError(struct evhttp_request* req, int code, const char* reason);
// The same, naming target as the RequestURL instead of req's own.
void SendJsonErrorFor(struct evhttp_request* req, int code, const char* reason, const char* target);

}  // namespace vks_host

#endif
