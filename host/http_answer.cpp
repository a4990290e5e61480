#include "http_answer.h"

#include <event2/buffer.h>
#include <json-c/json.h>

namespace vks_host {

void SendJson(struct evhttp_request* req, int code, const char* reason, const std::string& body) {
    struct evkeyvalq* headers = evhttp_request_get_output_headers(req);
    evhttp_add_header(headers, "Content-Type", "application/json; charset=utf-8");
    struct evbuffer* out = evbuffer_new();
    if (out == nullptr) {
        evhttp_send_error(req, HTTP_INTERNAL, nullptr);
        return;
    }
    evbuffer_add(out, body.data(), body.size());
    evhttp_send_reply(req, code, reason, out);
    evbuffer_free(out);
}

void SendJsonError(struct evhttp_request* req, int code, const char* reason) {
    json_object* status = json_object_new_object();
    const char* url = evhttp_request_get_uri(req);
    json_object_object_add(status, "RequestURL", json_object_new_string(url != nullptr ? url : ""));
    json_object_object_add(status, "StatusCode", json_object_new_int(code));
    json_object_object_add(status, "StatusString", json_object_new_string(reason));
    json_object* root = json_object_new_object();
    json_object_object_add(root, "ResponseStatus", status);
    SendJson(req, code, reason,
             json_object_to_json_string_ext(root, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE));
    json_object_put(root);
}

}  // namespace vks_host
