#include "answer_log.h"

#include <json-c/json.h>

#include <cstdio>
#include <cstdlib>

namespace vks_test {

void LogAnswer(const std::string& method, const std::string& target, const HttpResponse& response) {
    const char* path = getenv("VKS_ANSWER_LOG");
    FILE* out = path != nullptr ? fopen(path, "a") : nullptr;
    if (out == nullptr) {
        return;
    }
    json_object* line = json_object_new_object();
    json_object_object_add(line, "method", json_object_new_string(method.c_str()));
    json_object_object_add(line, "target", json_object_new_string(target.c_str()));
    json_object_object_add(line, "status", json_object_new_int(response.status));
    json_object_object_add(line, "type",
                           json_object_new_string(HeaderValue(response, "Content-Type").c_str()));
    json_object_object_add(
        line, "body",
        json_object_new_string_len(response.body.data(), static_cast<int>(response.body.size())));
    fprintf(out, "%s\n", json_object_to_json_string_ext(line, JSON_C_TO_STRING_PLAIN));
    json_object_put(line);
    fclose(out);
}

}  // namespace vks_test
