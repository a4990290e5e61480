// The control port's error answers: {"error": "..."} as JSON.
#ifndef VKS_CONTROL_ANSWER_H
#define VKS_CONTROL_ANSWER_H

#include <event2/http.h>

#include <string>

namespace control {

// The error body's text: {"error": message}.
std::string ErrorJson(const std::string& message);

void SendControlError(struct evhttp_request* req, int code, const std::string& message);

// The file server's refusals (404, 405) as the port's own errors.
void RefuseFile(struct evhttp_request* req, int code, const char* reason);

// A request's path as an error message repeats it: cut to 255 bytes, so that a long target is
// never copied into the answer whole.
std::string EchoedPath(const std::string& path);

}  // namespace control

#endif
