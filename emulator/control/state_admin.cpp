#include "state_admin.h"

#include <cstring>
#include <set>
#include <vector>

#include "analysis_store.h"
#include "command_table.h"
#include "history_store.h"
#include "record_fields.h"
#include "state_rows.h"

namespace control {
namespace {

// A kind kept as records of a setting command, one per channel: the command table's settings.
const CommandSpec* FindRecord(const std::string& kind) {
    for (const CommandSpec& spec : Commands()) {
        if (spec.role == CommandRole::kSetting && kind == spec.stateKind) {
            return &spec;
        }
    }
    return nullptr;
}

json_object* ReadRecords(vks_state::Database& db, const CommandSpec& spec) {
    vks_state::Statement query(db, "SELECT record FROM cmd_settings WHERE cmd = ?1 ORDER BY channel_id");
    query.Bind(1, int64_t{spec.code});
    json_object* rows = json_object_new_array();
    while (query.Step()) {
        std::vector<unsigned char> record = query.Blob(0);
        json_object_array_add(rows, DecodeFields(*spec.record, record.data(), record.size()));
    }
    if (!query.Ok()) {
        json_object_put(rows);
        return nullptr;
    }
    return rows;
}

bool InsertRecord(vks_state::Database& db, const CommandSpec& spec, json_object* row, std::string* error) {
    std::vector<unsigned char> record;
    if (!EncodeFields(*spec.record, row, &record, error)) {
        return false;
    }
    uint64_t channelId = 0;
    memcpy(&channelId, record.data(), sizeof(channelId));
    vks_state::Statement insert(
        db, "INSERT OR REPLACE INTO cmd_settings (cmd, channel_id, record) VALUES (?1, ?2, ?3)");
    insert.Bind(1, int64_t{spec.code})
        .Bind(2, static_cast<int64_t>(channelId))
        .Bind(3, record.data(), record.size());
    insert.Step();
    if (!insert.Ok()) {
        *error = "the state file refused the row: " + insert.Error();
        return false;
    }
    return true;
}

// One record per channel: a second row for a channel is refused rather than silently replacing the first.
bool InsertRecords(vks_state::Database& db, const CommandSpec& spec, json_object* rows, std::string* error) {
    std::set<std::string> channels;
    for (size_t i = 0; i < json_object_array_length(rows); ++i) {
        json_object* row = json_object_array_get_idx(rows, i);
        json_object* channel = nullptr;
        bool again = json_object_object_get_ex(row, "channelId", &channel) &&
                     !channels.insert(json_object_to_json_string(channel)).second;
        if (again) {
            *error = std::string(spec.stateKind) + " row " + std::to_string(i) +
                     ": channelId: " + json_object_to_json_string(channel) + " is in an earlier row already";
            return false;
        }
        if (!InsertRecord(db, spec, row, error)) {
            *error = std::string(spec.stateKind) + " row " + std::to_string(i) + ": " + *error;
            return false;
        }
    }
    return true;
}

}  // namespace

const char* const StateAdmin::kKinds[] = {"counts",          "tasks",          "popUps", "displaySettings",
                                          "historySwitches", "historyRecords", nullptr};

bool StateAdmin::Known(const std::string& kind) {
    return vks_state::FindTableKind(kind) != nullptr || FindRecord(kind) != nullptr;
}

json_object* StateAdmin::RowSchema(const std::string& kind) {
    const vks_state::TableKind* t = vks_state::FindTableKind(kind);
    const CommandSpec* r = FindRecord(kind);
    return t != nullptr   ? vks_state::RowSchema(t->Rules())
           : r != nullptr ? vks_state::RowSchema(FieldRules(*r->record))
                          : nullptr;
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
    const vks_state::TableKind* t = vks_state::FindTableKind(kind);
    const CommandSpec* r = FindRecord(kind);
    return t != nullptr ? vks_state::ReadTable(*db_, *t) : r != nullptr ? ReadRecords(*db_, *r) : nullptr;
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
    const vks_state::TableKind* t = vks_state::FindTableKind(kind);
    const CommandSpec* r = FindRecord(kind);
    if (!json_object_is_type(rows, json_type_array)) {
        *error = kind + ": an array of rows is expected";
        return false;
    }
    std::string clear = t != nullptr ? std::string("DELETE FROM ") + t->table
                                     : "DELETE FROM cmd_settings WHERE cmd = " + std::to_string(r->code);
    if (db_->Exec(clear, error) != 0) {
        return false;
    }
    return t != nullptr ? vks_state::InsertRows(*db_, *t, rows, error) : InsertRecords(*db_, *r, rows, error);
}

bool StateAdmin::InTransaction(const std::function<bool(std::string*)>& work, std::string* error) {
    if (db_->Exec("BEGIN IMMEDIATE", error) != 0) {
        return false;
    }
    std::string ignored;
    if (!work(error) || db_->Exec("COMMIT", error) != 0) {
        db_->Exec("ROLLBACK", &ignored);
        return false;
    }
    return true;
}

bool StateAdmin::Replace(const std::string& kind, json_object* rows, std::string* error) {
    if (!Known(kind)) {
        *error = "no such kind: " + kind;
        return false;
    }
    return InTransaction([&](std::string* why) { return ReplaceLocked(kind, rows, why); }, error);
}

bool StateAdmin::ReplaceAll(json_object* state, std::string* error) {
    if (!json_object_is_type(state, json_type_object)) {
        *error = "state: an object of kinds is expected";
        return false;
    }
    json_object_object_foreach(state, key, value) {
        (void)value;
        if (!Known(key)) {
            *error = std::string("state: ") + key + " is not a kind";
            return false;
        }
    }
    return InTransaction(
        [&](std::string* why) {
            for (const char* const* kind = kKinds; *kind != nullptr; ++kind) {
                json_object* rows = nullptr;
                if (!json_object_object_get_ex(state, *kind, &rows)) {
                    *why = std::string("state: ") + *kind + ": required, missing";
                    return false;
                }
                if (!ReplaceLocked(*kind, rows, why)) {
                    return false;
                }
            }
            return true;
        },
        error);
}

bool StateAdmin::ResetToDemo(std::string* error) {
    json_object* demo = json_tokener_parse(vks_state::DemoScenarioText());
    json_object* state = nullptr;
    bool ok = json_object_object_get_ex(demo, "state", &state) && ReplaceAll(state, error);
    json_object_put(demo);
    return ok;
}

}  // namespace control
