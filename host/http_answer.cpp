#include "http_answer.h"

#include <cstring>

#include "cjson.h"
#include "web_files.h"
#include "zkapi_common.h"

namespace vks_host {

void SendJson(struct evhttp_request* req, int code, const char* reason, const std::string& body) {
    vks_web::SendBody(req, code, reason, "application/json; charset=utf-8", body);
}

std::string StatusEnvelope(int code, const char* reason, const char* target) {
    // The request target cut to the envelope's field, as the module's own envelopes have it.
    char url[sizeof(ZKAPI_RESPONSE_STATUS::RequestURL)] = "";
    if (target != nullptr) {
        size_t length = strnlen(target, sizeof(url) - 1);
        memcpy(url, target, length);
        url[length] = '\0';
    }
    json_object* status = cJSON_CreateObject();
    cJSON_AddItemToObject(status, "RequestURL", cJSON_CreateString(url));
    cJSON_AddItemToObject(status, "StatusCode", cJSON_CreateNumber(static_cast<long long>(code)));
    cJSON_AddItemToObject(status, "StatusString", cJSON_CreateString(reason));
    json_object* root = cJSON_CreateObject();
    cJSON_AddItemToObject(root, "ResponseStatus", status);
    const char* text = cJSON_Print(root);
    std::string envelope = text != nullptr ? text : "";
    cJSON_Delete(root);
    return envelope;
}

void SendJsonErrorFor(struct evhttp_request* req, int code, const char* reason, const char* target) {
    SendJson(req, code, reason, StatusEnvelope(code, reason, target));
}

void SendJsonError(struct evhttp_request* req, int code, const char* reason) {
    SendJsonErrorFor(req, code, reason, evhttp_request_get_uri(req));
}

}  // namespace vks_host
