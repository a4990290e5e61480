// The state kinds kept as plain table rows (counts, tasks, pop-ups, history records): each key's
// column, JSON type, range and whether a row must carry it. These rules are the one source of the
// ranges: the control port checks every row against them, and a test checks that the control
// document's row schemas state exactly the same (tests/unit/control).
#ifndef VKS_STATE_ROWS_H
#define VKS_STATE_ROWS_H

#include <json-c/json.h>

#include <cstdint>
#include <string>
#include <vector>

#include "state_db.h"

namespace vks_state {

constexpr int64_t kI32Min = INT32_MIN;
constexpr uint64_t kI32Max = INT32_MAX;
constexpr uint64_t kU32Max = UINT32_MAX;
// SQLite keeps integers signed: wider values would read back wrapped.
constexpr uint64_t kI64Max = INT64_MAX;
constexpr uint64_t kU64Max = UINT64_MAX;

struct KeyRule {
    enum Type { kInteger, kText, kTime };
    const char* key;
    Type type;
    int64_t min;   // integers
    uint64_t max;  // integers; texts: their longest length in bytes (0: unbounded)
    bool required;
};

// "" when the value fits the rule, else why not (the key is not named).
std::string CheckValue(const KeyRule& rule, json_object* value);
// Checks a row: an object, no key without a rule, every required key there, each value fitting.
// False with "KEY: why" in *error.
bool CheckRow(const std::vector<KeyRule>& rules, json_object* row, std::string* error);
// The rules as the JSON Schema of a row, in the form the control document states them.
json_object* RowSchema(const std::vector<KeyRule>& rules);
// "YYYY-MM-DDTHH:MM:SS", digits where digits belong: fixed width, so text order is time order.
bool ValidTime(const char* text);

struct Column {
    KeyRule rule;
    const char* column;
};

struct TableKind {
    const char* kind;
    const char* table;
    const char* order;
    const char* unique;  // the key no two rows may share; null: none
    std::vector<Column> columns;
    std::vector<KeyRule> Rules() const;
};

const std::vector<TableKind>& TableKinds();
const TableKind* FindTableKind(const std::string& kind);
// The kind's rows as a JSON array; null on a database error.
json_object* ReadTable(Database& db, const TableKind& kind);
// Checks and inserts the rows (a JSON array) on the caller's transaction; false with
// "KIND row N: KEY: why" (or the database's reason) in *error.
bool InsertRows(Database& db, const TableKind& kind, json_object* rows, std::string* error);

// The demo scenario, emulator/state/demo-scenario.json, as built in.
const char* DemoScenarioText();
// Inserts the named table kinds' rows of the demo scenario, on the caller's transaction.
bool InsertDemoRows(Database& db, const std::vector<std::string>& kinds, std::string* error);

}  // namespace vks_state

#endif
