#include "state_rows.h"

#include <cstring>

namespace vks_state {
namespace {

KeyRule I32(const char* key) {
    return {key, KeyRule::kInteger, kI32Min, kI32Max, true};
}

KeyRule Id(const char* key) {
    return {key, KeyRule::kInteger, 0, kI64Max, true};
}

std::string Range(const KeyRule& rule) {
    return "an integer in " + std::to_string(rule.min) + ".." + std::to_string(rule.max);
}

json_object* NewUint(uint64_t value) {
    return value > kI64Max ? json_object_new_uint64(value)
                           : json_object_new_int64(static_cast<int64_t>(value));
}

const Column* FindColumn(const TableKind& t, const char* key) {
    for (const Column& c : t.columns) {
        if (strcmp(c.rule.key, key) == 0) {
            return &c;
        }
    }
    return nullptr;
}

bool InsertRow(Database& db, const TableKind& t, json_object* row, std::string* error) {
    std::vector<KeyRule> rules = t.Rules();
    if (!CheckRow(rules, row, error)) {
        return false;
    }
    std::string names;
    std::string marks;
    std::vector<std::pair<const Column*, json_object*>> values;
    json_object_object_foreach(row, key, value) {
        const Column* c = FindColumn(t, key);
        names += (values.empty() ? "" : ", ") + std::string(c->column);
        marks += values.empty() ? "?" : ", ?";
        values.emplace_back(c, value);
    }
    Statement insert(db, std::string("INSERT INTO ") + t.table + " (" + names + ") VALUES (" + marks + ")");
    for (size_t i = 0; i < values.size(); ++i) {
        int index = static_cast<int>(i) + 1;
        if (values[i].first->rule.type == KeyRule::kInteger) {
            insert.Bind(index, json_object_get_int64(values[i].second));
        } else {
            insert.Bind(index, std::string(json_object_get_string(values[i].second)));
        }
    }
    insert.Step();
    json_object* shared = nullptr;
    if (!insert.Ok() && t.unique != nullptr && json_object_object_get_ex(row, t.unique, &shared) &&
        insert.Error().find("UNIQUE") != std::string::npos) {
        *error = std::string(t.unique) + ": " + json_object_to_json_string(shared) +
                 " is in an earlier row already";
        return false;
    }
    if (!insert.Ok()) {
        *error = "the state file refused the row: " + insert.Error();
        return false;
    }
    return true;
}

}  // namespace

std::string CheckValue(const KeyRule& rule, json_object* value) {
    if (rule.type != KeyRule::kInteger) {
        const char* text = json_object_get_string(value);
        if (!json_object_is_type(value, json_type_string)) {
            return "a text is expected";
        }
        // A NUL would cut the text where it is stored: what is kept would not be what was sent.
        if (static_cast<size_t>(json_object_get_string_len(value)) != strlen(text)) {
            return "a text without NUL bytes is expected";
        }
        if (rule.type == KeyRule::kTime && !ValidTime(text)) {
            return "a time YYYY-MM-DDTHH:MM:SS is expected";
        }
        if (rule.max != 0 && strlen(text) > rule.max) {
            return "a text of at most " + std::to_string(rule.max) + " bytes is expected";
        }
        return "";
    }
    if (!json_object_is_type(value, json_type_int)) {
        return Range(rule) + " is expected";
    }
    int64_t signedValue = json_object_get_int64(value);
    bool fits = signedValue < 0
                    ? signedValue >= rule.min
                    : json_object_get_uint64(value) <= rule.max && (rule.min <= 0 || signedValue >= rule.min);
    return fits ? "" : std::string(json_object_to_json_string(value)) + " is not " + Range(rule);
}

bool CheckRow(const std::vector<KeyRule>& rules, json_object* row, std::string* error) {
    if (!json_object_is_type(row, json_type_object)) {
        *error = "a row is an object";
        return false;
    }
    json_object_object_foreach(row, key, value) {
        const KeyRule* rule = nullptr;
        for (const KeyRule& r : rules) {
            rule = strcmp(r.key, key) == 0 ? &r : rule;
        }
        std::string why = rule == nullptr ? "not a key of this kind" : CheckValue(*rule, value);
        if (!why.empty()) {
            *error = std::string(key) + ": " + why;
            return false;
        }
    }
    for (const KeyRule& r : rules) {
        if (r.required && !json_object_object_get_ex(row, r.key, nullptr)) {
            *error = std::string(r.key) + ": required, missing";
            return false;
        }
    }
    return true;
}

json_object* RowSchema(const std::vector<KeyRule>& rules) {
    json_object* properties = json_object_new_object();
    json_object* required = json_object_new_array();
    for (const KeyRule& r : rules) {
        json_object* p = json_object_new_object();
        bool integer = r.type == KeyRule::kInteger;
        json_object_object_add(p, "type", json_object_new_string(integer ? "integer" : "string"));
        if (integer) {
            json_object_object_add(p, "minimum", json_object_new_int64(r.min));
            json_object_object_add(p, "maximum", NewUint(r.max));
            // Beyond 2^53 a JavaScript number no longer holds every integer: web clients are told.
            const int64_t kJsExact = (int64_t{1} << 53) - 1;
            if (r.min < -kJsExact || r.max > static_cast<uint64_t>(kJsExact)) {
                json_object_object_add(p, "x-js-unsafe-integer", json_object_new_boolean(1));
            }
        } else if (r.type == KeyRule::kTime) {
            json_object_object_add(p, "pattern",
                                   json_object_new_string("^\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}$"));
        } else if (r.max != 0) {
            json_object_object_add(p, "maxLength", NewUint(r.max));
        }
        json_object_object_add(properties, r.key, p);
        if (r.required) {
            json_object_array_add(required, json_object_new_string(r.key));
        }
    }
    json_object* schema = json_object_new_object();
    json_object_object_add(schema, "type", json_object_new_string("object"));
    json_object_object_add(schema, "properties", properties);
    json_object_object_add(schema, "required", required);
    json_object_object_add(schema, "additionalProperties", json_object_new_boolean(0));
    return schema;
}

bool ValidTime(const char* text) {
    static const char kPattern[] = "dddd-dd-ddTdd:dd:dd";
    if (strlen(text) != sizeof(kPattern) - 1) {
        return false;
    }
    for (size_t i = 0; kPattern[i] != '\0'; ++i) {
        bool digit = text[i] >= '0' && text[i] <= '9';
        if (kPattern[i] == 'd' ? !digit : text[i] != kPattern[i]) {
            return false;
        }
    }
    return true;
}

std::vector<KeyRule> TableKind::Rules() const {
    std::vector<KeyRule> rules;
    for (const Column& c : columns) {
        rules.push_back(c.rule);
    }
    return rules;
}

const std::vector<TableKind>& TableKinds() {
    static const std::vector<TableKind> kKinds = {
        {"counts",
         "analysis_counts",
         "slot",
         "slot",
         {{{"slot", KeyRule::kInteger, 0, 2, true}, "slot"},
          {Id("available"), "available"},
          {Id("capacity"), "capacity"}}},
        {"tasks",
         "analysis_tasks",
         "task_id",
         nullptr,
         {{Id("channelId"), "channel_id"},
          {I32("channelGroup"), "channel_group"},
          {I32("faceDetection"), "face_detection"},
          {I32("faceAttribute"), "face_attribute"},
          {I32("humanAttribute"), "human_attribute"},
          {I32("faceRecognition"), "face_recognition"},
          {I32("vhdDetection"), "vhd_detection"},
          {I32("nmvAttribute"), "nmv_attribute"},
          {I32("vehAttribute"), "veh_attribute"}}},
        {"popUps",
         "analysis_popups",
         "channel_id",
         "channelId",
         {{Id("channelId"), "channel_id"},
          {I32("blackPopUp"), "black_popup"},
          {I32("whitePopUp"), "white_popup"}}},
        {"historyRecords",
         "cmd_history_records",
         "snap_time, id",
         "RecordId",
         {{{"RecordId", KeyRule::kInteger, 1, kI64Max, false}, "id"},  // left out: the next free one
          {{"SnapTime", KeyRule::kTime, 0, 0, true}, "snap_time"},
          {Id("ChannelId"), "channel_id"},
          {{"DatabaseType", KeyRule::kInteger, 0, kU32Max, true}, "database_type"},
          {{"FirstAttri", KeyRule::kInteger, 0, kU32Max, true}, "first_attri"},
          {{"SecondAttri", KeyRule::kInteger, 0, kU32Max, true}, "second_attri"},
          {Id("LibId"), "lib_id"},
          {{"Name", KeyRule::kText, 0, 0, true}, "person_name"},
          {{"MatchRate", KeyRule::kInteger, 0, 100, true}, "match_rate"}}},
    };
    return kKinds;
}

const TableKind* FindTableKind(const std::string& kind) {
    for (const TableKind& t : TableKinds()) {
        if (kind == t.kind) {
            return &t;
        }
    }
    return nullptr;
}

json_object* ReadTable(Database& db, const TableKind& t) {
    std::string sql = "SELECT ";
    for (size_t i = 0; i < t.columns.size(); ++i) {
        sql += (i ? ", " : "") + std::string(t.columns[i].column);
    }
    Statement query(db, sql + " FROM " + t.table + " ORDER BY " + t.order);
    json_object* rows = json_object_new_array();
    while (query.Step()) {
        json_object* row = json_object_new_object();
        for (size_t i = 0; i < t.columns.size(); ++i) {
            int col = static_cast<int>(i);
            bool integer = t.columns[i].rule.type == KeyRule::kInteger;
            json_object_object_add(row, t.columns[i].rule.key,
                                   integer ? json_object_new_int64(query.Int64(col))
                                           : json_object_new_string(query.Text(col).c_str()));
        }
        json_object_array_add(rows, row);
    }
    if (!query.Ok()) {
        json_object_put(rows);
        return nullptr;
    }
    return rows;
}

bool InsertRows(Database& db, const TableKind& t, json_object* rows, std::string* error) {
    if (!json_object_is_type(rows, json_type_array)) {
        *error = std::string(t.kind) + ": an array of rows is expected";
        return false;
    }
    for (size_t i = 0; i < json_object_array_length(rows); ++i) {
        if (!InsertRow(db, t, json_object_array_get_idx(rows, i), error)) {
            *error = std::string(t.kind) + " row " + std::to_string(i) + ": " + *error;
            return false;
        }
    }
    return true;
}

bool InsertDemoRows(Database& db, const std::vector<std::string>& kinds, std::string* error) {
    json_object* scenario = json_tokener_parse(DemoScenarioText());
    json_object* state = nullptr;
    bool ok = json_object_object_get_ex(scenario, "state", &state);
    std::string why;
    for (size_t i = 0; ok && i < kinds.size(); ++i) {
        json_object* rows = nullptr;
        const TableKind* t = FindTableKind(kinds[i]);
        ok = t != nullptr && json_object_object_get_ex(state, t->kind, &rows) &&
             InsertRows(db, *t, rows, &why);
    }
    if (!ok) {
        *error = "demo scenario: " + (why.empty() ? std::string("a kind is missing") : why);
    }
    json_object_put(scenario);
    return ok;
}

}  // namespace vks_state
