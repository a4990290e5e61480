#include "journal_decode.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "dxmp_message.h"
#include "intelligent/comm/vks_multi_task_records.h"
#include "command_table.h"
#include "record_fields.h"

namespace control {
namespace {

json_object* DecodeBytes(const Fields& fields, const std::vector<uint8_t>& bytes) {
    return DecodeFields(fields, bytes.data(), bytes.size());
}

json_object* Item(const char* type, const char* name, json_object* value) {
    json_object* item = json_object_new_object();
    json_object_object_add(item, "type", json_object_new_string(type));
    json_object_object_add(item, name, value);
    return item;
}

json_object* BlockItem(const std::vector<uint8_t>& block) {
    json_object* item = json_object_new_object();
    json_object_object_add(item, "type", json_object_new_string("0xB010"));
    json_object_object_add(item, "length", json_object_new_int64(static_cast<int64_t>(block.size())));
    json_object* fields = DecodeBytes(kBlockFields, block);
    if (block.size() > sizeof(VW_JSON_MSG_S)) {
        const char* text = reinterpret_cast<const char*>(block.data()) + sizeof(VW_JSON_MSG_S);
        size_t room = block.size() - sizeof(VW_JSON_MSG_S);
        json_object_object_add(fields, "text",
                               json_object_new_string_len(text, static_cast<int>(strnlen(text, room))));
    }
    json_object_object_add(item, "block", fields);
    return item;
}

const char* DxmpMethod(uint8_t method) {
    return method == DXMP_METHOD_GET ? "get" : method == DXMP_METHOD_PUT ? "put" : "other";
}

const char* CommandOp(uint16_t op) {
    return op == cmdframe::kOpGet   ? "get"
           : op == cmdframe::kOpSet ? "set"
           : op == cmdframe::kOpMsg ? "msg"
                                    : "other";
}

// The record a command body or reply carries, by the command's descriptor and the operation; none
// when the command is unknown or the operation carries no record.
bool CommandFields(uint32_t cmd, uint16_t op, bool reply, Fields* out) {
    const CommandSpec* spec = FindCommand(COMMAND_ROAD_CMD, static_cast<int>(cmd));
    const Fields* fields = nullptr;
    bool get = op == cmdframe::kOpGet;
    if (spec == nullptr) {
        return false;
    } else if (spec->role == CommandRole::kSetting && get && !reply) {
        fields = &kChannelFields;  // a read names its channel
    } else if (spec->role == CommandRole::kSetting && get == reply) {
        fields = spec->record;  // a get's reply and a set's request carry the record
    } else if (spec->role == CommandRole::kQuery && op == cmdframe::kOpMsg) {
        fields = reply ? spec->reply : spec->record;
    } else if (spec->role == CommandRole::kDelete && op == cmdframe::kOpSet && !reply) {
        fields = spec->record;
    }
    if (fields != nullptr) {
        *out = *fields;
    }
    return fields != nullptr;
}

json_object* Body(uint32_t cmd, uint16_t op, bool reply, const std::vector<unsigned char>& payload) {
    json_object* body = json_object_new_object();
    json_object_object_add(body, "op", json_object_new_string(CommandOp(op)));
    json_object_object_add(body, "length", json_object_new_int64(static_cast<int64_t>(payload.size())));
    Fields fields{};
    if (CommandFields(cmd, op, reply, &fields)) {
        json_object_object_add(body, "fields", DecodeFields(fields, payload.data(), payload.size()));
    }
    return body;
}

json_object* DxmpRequest(const analysis::Request& request, bool decoded) {
    json_object* out = json_object_new_object();
    json_object_object_add(out, "uri", json_object_new_int(request.uri));
    json_object_object_add(out, "method", json_object_new_string(DxmpMethod(request.method)));
    json_object_object_add(out, "decoded", json_object_new_boolean(decoded));
    json_object* items = json_object_new_array();
    if (request.hasChannel) {
        json_object_array_add(items, Item("0xB002", "channelId", json_object_new_uint64(request.channelId)));
    }
    if (request.hasBlock) {
        json_object_array_add(items, BlockItem(request.block));
    }
    if (request.hasGroup) {
        json_object_array_add(items,
                              Item("0xB011", "channelGroup", json_object_new_int(request.channelGroup)));
    }
    json_object_object_add(out, "items", items);
    json_object_object_add(out, "contentLength",
                           json_object_new_int64(static_cast<int64_t>(request.content.size())));
    const CommandSpec* spec = FindCommand(COMMAND_ROAD_ANALYSIS, request.uri);
    if (spec != nullptr && spec->record != nullptr && !request.content.empty()) {
        json_object_object_add(out, "content", DecodeBytes(*spec->record, request.content));
    }
    return out;
}

json_object* Fields3(const char* method, json_object* request, json_object* answer, int delayMs,
                     bool faulted) {
    json_object* out = json_object_new_object();
    json_object_object_add(out, "method", json_object_new_string(method));
    json_object_object_add(out, "request", request);
    json_object_object_add(out, "answer", answer);
    json_object_object_add(out, "delayMs", json_object_new_int(delayMs));
    json_object_object_add(out, "faulted", json_object_new_boolean(faulted));
    return out;
}

}  // namespace

json_object* DescribeDxmp(const analysis::Request& request, bool decoded, const analysis::ReplySpec* reply,
                          int delayMs, bool faulted) {
    json_object* answer = nullptr;
    if (reply != nullptr) {
        answer = json_object_new_object();
        json_object_object_add(answer, "status", json_object_new_int(reply->status));
        json_object_object_add(answer, "uri", json_object_new_int(reply->uri));
        if (reply->result != nullptr) {
            json_object_object_add(answer, "result", json_object_new_int(*reply->result));
        }
        json_object_object_add(answer, "contentLength",
                               json_object_new_int64(static_cast<int64_t>(reply->content.size())));
    }
    return Fields3(DxmpMethod(request.method), DxmpRequest(request, decoded), answer, delayMs, faulted);
}

json_object* DescribeCommand(const cmdframe::Request& request, const cmdframe::Reply* reply, int delayMs,
                             bool faulted) {
    json_object* body = Body(request.cmd, request.op, false, request.payload);
    json_object_object_add(body, "msgType", json_object_new_int(request.msgType));
    json_object* answer = nullptr;
    if (reply != nullptr) {
        answer = Body(request.cmd, reply->op, true, reply->payload);
        json_object_object_add(answer, "result", json_object_new_int(reply->result));
    }
    return Fields3(CommandOp(request.op), body, answer, delayMs, faulted);
}

}  // namespace control
