// A scripted stand-in for the plug-in module, loaded by the access server in the server-core tests.
// It exports the handlers of one resource, MultiTaskAppHistory (GET: Run, Recv, Format; PUT: PreProc,
// Parse, Run, Format), behaves as the request's query tells it, and writes into its response body
// what the server did: the phases called in order, the result Format received and the header fields.
//
// Query keys: fail=PreProc (PreProc fails with 7); parse=N (Parse returns N); result=N (Run returns N);
// peer=PATH (Run sends a DXMP request to the unix socket PATH and hands the descriptor to the
// server); after=cancel|keep (Run then fails, cancelling the registration or not);
// format=none (Format writes nothing and returns -1); big=N (Format first appends N bytes of 'x').
#include <json-c/json.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "dxmp_message.h"
#include "http_records.h"
#include "unix_cmd_channel.h"

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

std::string QueryValue(const tagHTTP_HEADER_S* header, const std::string& key) {
    const char* query = strchr(header->szReqUrl, '?');
    std::string text = query != nullptr ? query + 1 : "";
    size_t pos = 0;
    while (pos <= text.size()) {
        size_t end = text.find('&', pos);
        std::string pair = text.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
        if (pair.compare(0, key.size() + 1, key + "=") == 0) {
            return pair.substr(key.size() + 1);
        }
        if (end == std::string::npos) {
            break;
        }
        pos = end + 1;
    }
    return "";
}

// The phase trace lives in runOut, a malloc block the server must free after Format.
void Trace(tagHTTP_CNTENT_INTER_S* ctIn, const std::string& phase) {
    std::string trace = ctIn->runOut != nullptr ? static_cast<char*>(ctIn->runOut) : "";
    trace += trace.empty() ? phase : "," + phase;
    free(ctIn->runOut);
    ctIn->runOut = strdup(trace.c_str());
}

int ConnectPeer(const std::string& path) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
    if (fd >= 0 && connect(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Registration before the send, our reference dropped after it: the order the real module keeps.
VW_RESULT_TYPE SendAsynchronously(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client) {
    int fd = ConnectPeer(QueryValue(header, "peer"));
    dxmp_message* msg = fd >= 0 ? dxmp_message_new(0) : nullptr;
    if (msg == nullptr) {
        if (fd >= 0) {
            close(fd);
        }
        return -1;
    }
    uint16_t uri = 1201;
    memcpy(msg->pFixedHeader + DXMP_HDR_URI, &uri, sizeof(uri));
    msg->pFixedHeader[DXMP_HDR_FLAGS_METHOD] = DXMP_METHOD_GET;
    VW_RESULT_TYPE rc = 0;
    if (AddDxmpAsynEvent(client, fd, msg) != 0) {
        close(fd);
        rc = -1;
    } else if (dxmp_message_sendfd(msg, fd) != 0) {
        DeleteDxmpAsynEvent(client, fd);
        rc = -1;
    } else if (QueryValue(header, "after") == "cancel") {
        rc = DeleteDxmpAsynEvent(client, fd) == 0 ? -1 : -2;
    } else if (QueryValue(header, "after") == "keep") {
        rc = -1;
    }
    dxmp_message_put(msg);
    return rc;
}

VW_RESULT_TYPE RunAny(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client, tagHTTP_CNTENT_INTER_S* ctIn) {
    Trace(ctIn, "Run");
    if (!QueryValue(header, "peer").empty()) {
        return SendAsynchronously(header, client);
    }
    return atoi(QueryValue(header, "result").c_str());
}

void AddText(json_object* obj, const char* key, const char* value) {
    json_object_object_add(obj, key, json_object_new_string(value != nullptr ? value : ""));
}

json_object* Report(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn) {
    json_object* report = json_object_new_object();
    AddText(report, "trace", static_cast<char*>(ctIn->runOut));
    json_object_object_add(report, "result", json_object_new_int(result));
    AddText(report, "method", header->method);
    AddText(report, "url", header->szReqUrl);
    AddText(report, "user", header->szUserName);
    AddText(report, "ip", header->szClientIp);
    json_object_object_add(report, "port", json_object_new_int64(static_cast<int64_t>(header->clientPort)));
    AddText(report, "body", static_cast<char*>(ctIn->parseOut));
    json_object_object_add(report, "preProcOut", json_object_new_boolean(ctIn->preProcOut != nullptr));
    return report;
}

VW_RESULT_TYPE FormatAny(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result, tagHTTP_CNTENT_INTER_S* ctIn,
                         tagHTTP_BUF_S* buf) {
    Trace(ctIn, "Format");
    if (QueryValue(header, "format") == "none") {
        return -1;
    }
    json_object* report = Report(header, result, ctIn);
    std::string big(strtoul(QueryValue(header, "big").c_str(), nullptr, 10), 'x');
    if (!big.empty()) {
        int copied = buf->Copy2Buf(buf, big.data(), static_cast<unsigned int>(big.size()));
        json_object_object_add(report, "copy", json_object_new_int(copied));
    }
    const char* text =
        json_object_to_json_string_ext(report, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
    int rc = buf->Copy2Buf(buf, text, static_cast<unsigned int>(strlen(text)));
    json_object_put(report);
    return rc == -1 ? -1 : 0;
}

}  // namespace

FAKE_EXPORT VW_RESULT_TYPE PreProcPutMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagUNIX_SOCKET_S* synSock,
                                                         tagHTTP_CNTENT_INTER_S* ctIn) {
    Trace(ctIn, synSock != nullptr ? "PreProc" : "PreProc(no synSock)");
    ctIn->preProcOut = strdup("current settings");
    return QueryValue(header, "fail") == "PreProc" ? 7 : 0;
}

FAKE_EXPORT VW_RESULT_TYPE ParsePutMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagHTTP_BUF_S* content,
                                                       tagHTTP_CNTENT_INTER_S* ctIn) {
    Trace(ctIn, "Parse");
    // The settings block moves to parseOut, as a merging Parse does; the body text rides along.
    free(ctIn->preProcOut);
    ctIn->preProcOut = nullptr;
    ctIn->parseOut = strdup(content->pContent);
    return atoi(QueryValue(header, "parse").c_str());
}

FAKE_EXPORT VW_RESULT_TYPE RunPutMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                     tagHTTP_CNTENT_INTER_S* ctIn) {
    return RunAny(header, client, ctIn);
}

FAKE_EXPORT VW_RESULT_TYPE FormatPutMultiTaskAppHistory(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                        tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    return FormatAny(header, result, ctIn, buf);
}

FAKE_EXPORT VW_RESULT_TYPE RunGetMultiTaskAppHistory(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                                     tagHTTP_CNTENT_INTER_S* ctIn) {
    return RunAny(header, client, ctIn);
}

// Consumes the reply as the real module does: content into the trace, result item as the result,
// message released and pRecvMsg cleared.
FAKE_EXPORT VW_RESULT_TYPE RecvGetMultiTaskAppHistory(tagHTTP_HEADER_S*, tagHTTP_CLIENT_S* client,
                                                      tagHTTP_CNTENT_INTER_S* ctIn) {
    dxmp_message* msg = client->pRecvMsg;
    if (msg == nullptr) {
        Trace(ctIn, "Recv(no reply)");
        return -1;
    }
    void* data = nullptr;
    uint32_t length = 0;
    std::string content =
        dxmp_content(msg, &data, &length) == 0 ? std::string(static_cast<char*>(data), length) : "";
    Trace(ctIn, "Recv:" + content);
    void* value = nullptr;
    uint16_t valueLength = 0;
    VW_RESULT_TYPE result = -1;
    if (dxmp_header_get(msg, DXMP_ITEM_RESULT, &value, &valueLength) == 0 && valueLength == sizeof(result)) {
        memcpy(&result, value, sizeof(result));
    }
    dxmp_message_put(msg);
    client->pRecvMsg = nullptr;
    return result;
}

FAKE_EXPORT VW_RESULT_TYPE FormatGetMultiTaskAppHistory(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                                        tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf) {
    return FormatAny(header, result, ctIn, buf);
}
