#include "fault_json.h"

#include <cstdlib>
#include <cstring>

#include "command_table.h"
#include "journal.h"

namespace control {
namespace {

json_object* OrNull(bool on, json_object* value) {
    if (!on) {
        json_object_put(value);
        return nullptr;
    }
    return value;
}

bool Integer(json_object* value, long long low, long long high, long long* out) {
    if (!json_object_is_type(value, json_type_int)) {
        return false;
    }
    *out = json_object_get_int64(value);
    return *out >= low && *out <= high;
}

}  // namespace

json_object* FaultToJson(const char* road, int command, const faults::Fault& f) {
    json_object* out = json_object_new_object();
    json_object_object_add(out, "road", json_object_new_string(road));
    json_object_object_add(
        out, "command",
        command == FAULTS_ALL_COMMANDS ? json_object_new_string("all") : json_object_new_int(command));
    json_object_object_add(out, "delayMs", json_object_new_int(f.delayMs));
    json_object_object_add(out, "jitterMs", json_object_new_int(f.jitterMs));
    json_object_object_add(out, "result", OrNull(f.forceResult, json_object_new_int(f.result)));
    json_object_object_add(out, "status", OrNull(f.forceStatus, json_object_new_int(f.status)));
    json_object_object_add(out, "wrongUri", json_object_new_boolean(f.wrongUri));
    json_object_object_add(out, "contentLength",
                           OrNull(f.contentLength >= 0, json_object_new_int(f.contentLength)));
    json_object_object_add(out, "noReply", json_object_new_boolean(f.noReply));
    json_object_object_add(out, "probability", json_object_new_double(f.probability));
    return out;
}

bool FaultFromJson(json_object* object, faults::Fault* f, std::string* error) {
    if (!json_object_is_type(object, json_type_object)) {
        *error = "a JSON object is expected";
        return false;
    }
    json_object_object_foreach(object, key, value) {
        std::string k = key;
        bool null = value == nullptr;
        long long n = 0;
        bool ok = true;
        if (k == "road" || k == "command") {
            continue;  // named by the path
        } else if (k == "delayMs" || k == "jitterMs") {
            ok = Integer(value, 0, 600000, &n);
            (k == "delayMs" ? f->delayMs : f->jitterMs) = static_cast<int>(n);
        } else if (k == "result") {
            ok = null || Integer(value, INT32_MIN, INT32_MAX, &n);
            f->forceResult = !null;
            f->result = static_cast<int32_t>(n);
        } else if (k == "status") {
            ok = null || Integer(value, 0, 0xFFFF, &n);
            f->forceStatus = !null;
            f->status = static_cast<uint16_t>(null ? 200 : n);
        } else if (k == "contentLength") {
            ok = null || Integer(value, 0, 65536, &n);
            f->contentLength = null ? -1 : static_cast<int>(n);
        } else if (k == "wrongUri" || k == "noReply") {
            ok = json_object_is_type(value, json_type_boolean);
            (k == "wrongUri" ? f->wrongUri : f->noReply) = json_object_get_boolean(value) != 0;
        } else if (k == "probability") {
            double p = json_object_get_double(value);
            ok =
                (json_object_is_type(value, json_type_double) || json_object_is_type(value, json_type_int)) &&
                p >= 0.0 && p <= 1.0;
            f->probability = p;
        } else {
            *error = "unknown key " + k;
            return false;
        }
        if (!ok) {
            *error = "bad value for " + k;
            return false;
        }
    }
    return true;
}

bool ParseCommand(const std::string& road, const std::string& text, int* command) {
    if (!KnownRoad(road.c_str())) {
        return false;
    }
    if (text == "all") {
        *command = FAULTS_ALL_COMMANDS;
        return true;
    }
    char* end = nullptr;
    long value = strtol(text.c_str(), &end, 10);
    bool number = !text.empty() && *end == '\0' && value >= INT32_MIN && value <= INT32_MAX;
    if (!number || FindCommand(road.c_str(), static_cast<int>(value)) == nullptr) {
        return false;
    }
    *command = static_cast<int>(value);
    return true;
}

json_object* FaultList(const faults::FaultTable& analysis, const faults::FaultTable& cmd) {
    json_object* list = json_object_new_array();
    for (const auto& f : analysis.List()) {
        json_object_array_add(list, FaultToJson(COMMAND_ROAD_ANALYSIS, f.first, f.second));
    }
    for (const auto& f : cmd.List()) {
        json_object_array_add(list, FaultToJson(COMMAND_ROAD_CMD, f.first, f.second));
    }
    return list;
}

json_object* CommandList() {
    json_object* list = json_object_new_array();
    for (const CommandSpec& spec : Commands()) {
        json_object* row = json_object_new_object();
        json_object_object_add(row, "road", json_object_new_string(spec.road));
        json_object_object_add(row, "command", json_object_new_int(spec.code));
        json_object_object_add(row, "name", json_object_new_string(spec.name));
        json_object_object_add(row, "stateKind", json_object_new_string(spec.stateKind));
        json_object_array_add(list, row);
    }
    return list;
}

}  // namespace control
