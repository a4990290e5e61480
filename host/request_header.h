// tagHTTP_HEADER_S from an evhttp request.
#ifndef VKS_HOST_REQUEST_HEADER_H
#define VKS_HOST_REQUEST_HEADER_H

#include <event2/http.h>

#include <string>

#include "http_records.h"

namespace vks_host {

// The request method as text ("GET", "PUT", ...); "" for a method evhttp has no name for.
const char* MethodName(enum evhttp_cmd_type cmd);

// Method, URL with its query, user, client address and port. -1 when the URL does not fit.
int FillRequestHeader(struct evhttp_request* req, tagHTTP_HEADER_S* header);

// The user of an "Authorization: Basic ..." value; "" when the value is not Basic or not decodable.
std::string BasicAuthUser(const char* authorization);

// The user reported for requests without Basic credentials.
constexpr const char* kDefaultUser = "admin";

}  // namespace vks_host

#endif
