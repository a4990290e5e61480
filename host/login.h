// Who a request comes from: with --auth-file the user it proved to be (a request without valid
// credentials is answered here), without it one fixed name whatever the request claims.
#ifndef VKS_HOST_LOGIN_H
#define VKS_HOST_LOGIN_H

#include <event2/http.h>

#include <string>

namespace vks_host {

struct AccessServer;

// The user name of every request when the server has no login: an Authorization header the server
// does not check never names the operation log's user.
constexpr const char* kAnonymousUser = "anonymous";

// True with *user set when req may go on; false when it has been answered (401 with the challenges,
// 400 for malformed Digest parameters, 503 for a request an HTTPS server got in clear text). Loop
// thread only.
bool AdmitRequest(AccessServer* server, struct evhttp_request* req, std::string* user);

}  // namespace vks_host

#endif
