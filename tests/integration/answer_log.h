// Records the answers an end-to-end test received, one JSON line each, into the file named by
// VKS_ANSWER_LOG (nothing when unset), for the check of every answer against the OpenAPI document.
#ifndef VKS_ANSWER_LOG_H
#define VKS_ANSWER_LOG_H

#include <string>

#include "http_client.h"

namespace vks_test {

void LogAnswer(const std::string& method, const std::string& target, const HttpResponse& response);

}  // namespace vks_test

#endif
