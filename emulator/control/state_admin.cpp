#include "state_admin.h"

#include <cstring>
#include <vector>

#include "analysis_store.h"
#include "history_store.h"
#include "record_fields.h"
#include "unix_cmd_channel.h"

namespace control {
namespace {

struct Column {
    const char* key;
    const char* column;
    bool text;
};

// A kind kept as plain rows of one table.
struct TableKind {
    const char* kind;
    const char* table;
    const char* order;
    std::vector<Column> columns;
};

const TableKind kTables[] = {
    {"counts",
     "analysis_counts",
     "slot",
     {{"slot", "slot", false}, {"available", "available", false}, {"capacity", "capacity", false}}},
    {"tasks",
     "analysis_tasks",
     "task_id",
     {{"channelId", "channel_id", false},
      {"channelGroup", "channel_group", false},
      {"faceDetection", "face_detection", false},
      {"faceAttribute", "face_attribute", false},
      {"humanAttribute", "human_attribute", false},
      {"faceRecognition", "face_recognition", false},
      {"vhdDetection", "vhd_detection", false},
      {"nmvAttribute", "nmv_attribute", false},
      {"vehAttribute", "veh_attribute", false}}},
    {"popUps",
     "analysis_popups",
     "channel_id",
     {{"channelId", "channel_id", false},
      {"blackPopUp", "black_popup", false},
      {"whitePopUp", "white_popup", false}}},
    {"historyRecords",
     "cmd_history_records",
     "snap_time, id",
     {{"RecordId", "id", false},
      {"SnapTime", "snap_time", true},
      {"ChannelId", "channel_id", false},
      {"DatabaseType", "database_type", false},
      {"FirstAttri", "first_attri", false},
      {"SecondAttri", "second_attri", false},
      {"LibId", "lib_id", false},
      {"Name", "person_name", true},
      {"MatchRate", "match_rate", false}}},
};

// A kind kept as records of a command-channel command, one per channel.
struct RecordKind {
    const char* kind;
    int cmd;
    const Fields* fields;
};

const RecordKind kRecords[] = {
    {"displaySettings", VW_CMD_DISPLAY_RECOG_INFOS, &kDisplayFields},
    {"historySwitches", VW_CMD_HISTORY_SWITCH, &kSwitchFields},
};

const TableKind* FindTable(const std::string& kind) {
    for (const TableKind& t : kTables) {
        if (kind == t.kind) {
            return &t;
        }
    }
    return nullptr;
}

const RecordKind* FindRecord(const std::string& kind) {
    for (const RecordKind& r : kRecords) {
        if (kind == r.kind) {
            return &r;
        }
    }
    return nullptr;
}

const Column* FindColumn(const TableKind& t, const char* key) {
    for (const Column& c : t.columns) {
        if (strcmp(c.key, key) == 0) {
            return &c;
        }
    }
    return nullptr;
}

json_object* ReadTable(vks_state::Database& db, const TableKind& t) {
    std::string sql = "SELECT ";
    for (size_t i = 0; i < t.columns.size(); ++i) {
        sql += (i ? ", " : "") + std::string(t.columns[i].column);
    }
    vks_state::Statement query(db, sql + " FROM " + t.table + " ORDER BY " + t.order);
    json_object* rows = json_object_new_array();
    while (query.Step()) {
        json_object* row = json_object_new_object();
        for (size_t i = 0; i < t.columns.size(); ++i) {
            int col = static_cast<int>(i);
            json_object_object_add(row, t.columns[i].key,
                                   t.columns[i].text ? json_object_new_string(query.Text(col).c_str())
                                                     : json_object_new_int64(query.Int64(col)));
        }
        json_object_array_add(rows, row);
    }
    if (!query.Ok()) {
        json_object_put(rows);
        return nullptr;
    }
    return rows;
}

json_object* ReadRecords(vks_state::Database& db, const RecordKind& r) {
    vks_state::Statement query(db, "SELECT record FROM cmd_settings WHERE cmd = ?1 ORDER BY channel_id");
    query.Bind(1, int64_t{r.cmd});
    json_object* rows = json_object_new_array();
    while (query.Step()) {
        std::vector<unsigned char> record = query.Blob(0);
        json_object_array_add(rows, DecodeFields(*r.fields, record.data(), record.size()));
    }
    if (!query.Ok()) {
        json_object_put(rows);
        return nullptr;
    }
    return rows;
}

// One row: only the keys it has are written, so a table's own key (RecordId) may be left out.
bool InsertRow(vks_state::Database& db, const TableKind& t, json_object* row, std::string* error) {
    if (!json_object_is_type(row, json_type_object)) {
        *error = std::string(t.kind) + ": every row is an object";
        return false;
    }
    std::string names;
    std::string marks;
    std::vector<std::pair<const Column*, json_object*>> values;
    json_object_object_foreach(row, key, value) {
        const Column* c = FindColumn(t, key);
        bool typed = c != nullptr && json_object_is_type(value, c->text ? json_type_string : json_type_int);
        if (!typed) {
            *error = std::string(t.kind) + ": " + key +
                     (c == nullptr ? " is not a key of this kind" : " has the wrong type");
            return false;
        }
        names += (values.empty() ? "" : ", ") + std::string(c->column);
        marks += values.empty() ? "?" : ", ?";
        values.emplace_back(c, value);
    }
    vks_state::Statement insert(
        db, std::string("INSERT INTO ") + t.table + " (" + names + ") VALUES (" + marks + ")");
    for (size_t i = 0; i < values.size(); ++i) {
        int index = static_cast<int>(i) + 1;
        if (values[i].first->text) {
            insert.Bind(index, std::string(json_object_get_string(values[i].second)));
        } else {
            insert.Bind(index, json_object_get_int64(values[i].second));
        }
    }
    insert.Step();
    if (!insert.Ok()) {
        *error = std::string(t.kind) + ": " + insert.Error();
        return false;
    }
    return true;
}

bool InsertRecord(vks_state::Database& db, const RecordKind& r, json_object* row, std::string* error) {
    std::vector<unsigned char> record;
    if (!EncodeFields(*r.fields, row, &record, error)) {
        *error = std::string(r.kind) + ": " + *error;
        return false;
    }
    uint64_t channelId = 0;
    memcpy(&channelId, record.data(), sizeof(channelId));
    vks_state::Statement insert(
        db, "INSERT OR REPLACE INTO cmd_settings (cmd, channel_id, record) VALUES (?1, ?2, ?3)");
    insert.Bind(1, int64_t{r.cmd})
        .Bind(2, static_cast<int64_t>(channelId))
        .Bind(3, record.data(), record.size());
    insert.Step();
    if (!insert.Ok()) {
        *error = std::string(r.kind) + ": " + insert.Error();
        return false;
    }
    return true;
}

}  // namespace

const char* const StateAdmin::kKinds[] = {"counts",          "tasks",          "popUps", "displaySettings",
                                          "historySwitches", "historyRecords", nullptr};

bool StateAdmin::Known(const std::string& kind) {
    return FindTable(kind) != nullptr || FindRecord(kind) != nullptr;
}

std::unique_ptr<StateAdmin> StateAdmin::Open(const std::string& dbPath, std::string* error) {
    // Both stores create their tables (and seed a new file) before this connection uses them.
    if (analysis::AnalysisStore::Open(dbPath, error) == nullptr ||
        cmdchan::Store::Open(dbPath, error) == nullptr) {
        return nullptr;
    }
    std::unique_ptr<vks_state::Database> db = vks_state::Database::Open(dbPath, "", error);
    return db == nullptr ? nullptr : std::unique_ptr<StateAdmin>(new StateAdmin(std::move(db)));
}

json_object* StateAdmin::Read(const std::string& kind) {
    const TableKind* t = FindTable(kind);
    const RecordKind* r = FindRecord(kind);
    return t != nullptr ? ReadTable(*db_, *t) : r != nullptr ? ReadRecords(*db_, *r) : nullptr;
}

json_object* StateAdmin::ReadAll() {
    json_object* all = json_object_new_object();
    for (const char* const* kind = kKinds; *kind != nullptr; ++kind) {
        json_object* rows = Read(*kind);
        if (rows == nullptr) {
            json_object_put(all);
            return nullptr;
        }
        json_object_object_add(all, *kind, rows);
    }
    return all;
}

bool StateAdmin::ReplaceLocked(const std::string& kind, json_object* rows, std::string* error) {
    const TableKind* t = FindTable(kind);
    const RecordKind* r = FindRecord(kind);
    std::string clear = t != nullptr ? std::string("DELETE FROM ") + t->table
                                     : "DELETE FROM cmd_settings WHERE cmd = " + std::to_string(r->cmd);
    if (db_->Exec(clear, error) != 0) {
        return false;
    }
    for (size_t i = 0; i < json_object_array_length(rows); ++i) {
        json_object* row = json_object_array_get_idx(rows, i);
        if (!(t != nullptr ? InsertRow(*db_, *t, row, error) : InsertRecord(*db_, *r, row, error))) {
            *error = "row " + std::to_string(i) + ": " + *error;
            return false;
        }
    }
    return true;
}

bool StateAdmin::Replace(const std::string& kind, json_object* rows, std::string* error) {
    if (!Known(kind) || !json_object_is_type(rows, json_type_array)) {
        *error = Known(kind) ? "an array of rows is expected" : "no such kind: " + kind;
        return false;
    }
    if (db_->Exec("BEGIN IMMEDIATE", error) != 0) {
        return false;
    }
    std::string ignored;
    if (!ReplaceLocked(kind, rows, error)) {
        db_->Exec("ROLLBACK", &ignored);
        return false;
    }
    return db_->Exec("COMMIT", error) == 0;
}

bool StateAdmin::ResetToDemo(std::string* error) {
    return analysis::AnalysisStore::ResetToDemo(*db_, error) == 0 && cmdchan::Store::ResetToDemo(*db_, error);
}

}  // namespace control
