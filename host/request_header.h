// tagHTTP_HEADER_S from an evhttp request.
#ifndef VKS_HOST_REQUEST_HEADER_H
#define VKS_HOST_REQUEST_HEADER_H

#include <event2/http.h>

#include <string>

#include "http_records.h"

namespace vks_host {

// Method, URL with its query, the user (see login.h), client address and port. -1 when the URL does
// not fit.
int FillRequestHeader(struct evhttp_request* req, const std::string& user, tagHTTP_HEADER_S* header);

}  // namespace vks_host

#endif
