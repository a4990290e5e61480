#include "control_answer.h"

#include <json-c/json.h>

#include "web_files.h"

namespace control {

const size_t kMaxEchoedPath = 255;

std::string ErrorJson(const std::string& message) {
    json_object* body = json_object_new_object();
    json_object_object_add(body, "error", json_object_new_string(message.c_str()));
    std::string text =
        json_object_to_json_string_ext(body, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
    json_object_put(body);
    return text;
}

void SendControlError(struct evhttp_request* req, int code, const std::string& message) {
    vks_web::SendText(req, code, "application/json; charset=utf-8", ErrorJson(message));
}

void RefuseFile(struct evhttp_request* req, int code, const char* reason) {
    SendControlError(
        req, code,
        code == 404 ? "no such file: " + EchoedPath(vks_web::RequestPath(req)) : std::string(reason));
}

std::string EchoedPath(const std::string& path) {
    return path.size() <= kMaxEchoedPath ? path : path.substr(0, kMaxEchoedPath);
}

}  // namespace control
