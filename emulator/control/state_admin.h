// The emulator's state as the control API shows and replaces it, kind by kind, on its own connection
// to the state file: task counts, tasks (any number, past the 32 a reply carries), pop-up switches,
// display settings, history switches and history records; and the reset to the demo scenario.
// Every row is checked against its kind's rules before anything is stored.
#ifndef VKS_CONTROL_STATE_ADMIN_H
#define VKS_CONTROL_STATE_ADMIN_H

#include <json-c/json.h>

#include <functional>
#include <memory>
#include <string>

#include "state_db.h"

namespace control {

class StateAdmin {
public:
    static std::unique_ptr<StateAdmin> Open(const std::string& dbPath, std::string* error);

    // The kinds by name, in the order the whole state lists them.
    static const char* const kKinds[];
    static bool Known(const std::string& kind);
    // The JSON Schema a row of the kind must fit (the rules the control document states).
    static json_object* RowSchema(const std::string& kind);

    // A JSON array of the kind's rows; null on a database error.
    json_object* Read(const std::string& kind);
    // {"counts": [...], "tasks": [...], ...}; null on a database error.
    json_object* ReadAll();
    // Replaces every row of the kind with the array's; false with "KIND row N: KEY: why" (a bad row
    // changes nothing).
    bool Replace(const std::string& kind, json_object* rows, std::string* error);
    // Replaces every kind with those of a whole state object (all six kinds, nothing else) in one
    // transaction; false with the first reason (then nothing changed).
    bool ReplaceAll(json_object* state, std::string* error);
    // Every kind back to the state of the built-in demo scenario.
    bool ResetToDemo(std::string* error);

private:
    explicit StateAdmin(std::unique_ptr<vks_state::Database> db) : db_(std::move(db)) {}
    bool ReplaceLocked(const std::string& kind, json_object* rows, std::string* error);
    bool InTransaction(const std::function<bool(std::string*)>& work, std::string* error);

    std::unique_ptr<vks_state::Database> db_;
};

}  // namespace control

#endif
