#include "scenario.h"

#include <map>

#include "command_table.h"
#include "fault_json.h"
#include "json_text.h"

namespace control {
namespace {

// One fault of the list: its road and command named in it, every other key as PUT /control/faults
// takes it.
bool ReadFault(json_object* row, std::map<int, faults::Fault> (&tables)[2], std::string* error) {
    json_object* road = nullptr;
    json_object* command = nullptr;
    if (!json_object_object_get_ex(row, "road", &road) ||
        !json_object_object_get_ex(row, "command", &command)) {
        *error = "road and command: required, missing";
        return false;
    }
    std::string roadText = json_object_get_string(road);
    bool isText =
        json_object_is_type(road, json_type_string) &&
        (json_object_is_type(command, json_type_int) || json_object_is_type(command, json_type_string));
    int code = 0;
    if (!isText || !ParseCommand(roadText, json_object_get_string(command), &code)) {
        *error = "road and command: not a command of a road (GET /control/commands lists them)";
        return false;
    }
    std::map<int, faults::Fault>& table = tables[roadText == COMMAND_ROAD_ANALYSIS ? 0 : 1];
    if (table.count(code) != 0) {
        *error = "a second fault for the same command";
        return false;
    }
    return FaultFromJson(row, &table[code], error);
}

bool ReadFaults(json_object* list, std::map<int, faults::Fault> (&tables)[2], std::string* error) {
    if (!json_object_is_type(list, json_type_array)) {
        *error = "faults: an array is expected";
        return false;
    }
    for (size_t i = 0; i < json_object_array_length(list); ++i) {
        if (!ReadFault(json_object_array_get_idx(list, i), tables, error)) {
            *error = "faults row " + std::to_string(i) + ": " + *error;
            return false;
        }
    }
    return true;
}

}  // namespace

json_object* ExportScenario(StateAdmin& state, const FaultTables& faults) {
    json_object* all = state.ReadAll();
    if (all == nullptr) {
        return nullptr;
    }
    json_object* scenario = json_object_new_object();
    json_object_object_add(scenario, "state", all);
    json_object_object_add(scenario, "faults", FaultList(*faults.analysis, *faults.cmd));
    return scenario;
}

bool ImportScenario(StateAdmin& state, const FaultTables& faults, json_object* scenario, std::string* error) {
    if (!json_object_is_type(scenario, json_type_object)) {
        *error = "a scenario is an object {\"state\", \"faults\"}";
        return false;
    }
    json_object_object_foreach(scenario, key, value) {
        (void)value;
        if (std::string(key) != "state" && std::string(key) != "faults") {
            *error = std::string(key) + ": not a key of a scenario";
            return false;
        }
    }
    json_object* stateRows = nullptr;
    json_object* faultRows = nullptr;
    if (!json_object_object_get_ex(scenario, "state", &stateRows) ||
        !json_object_object_get_ex(scenario, "faults", &faultRows)) {
        *error = "state and faults: required, missing";
        return false;
    }
    std::map<int, faults::Fault> tables[2];
    // The faults are read before the state's transaction and swapped in only once it committed.
    if (!ReadFaults(faultRows, tables, error) || !state.ReplaceAll(stateRows, error)) {
        return false;
    }
    faults.analysis->Replace(tables[0]);
    faults.cmd->Replace(tables[1]);
    return true;
}

bool LoadScenarioFile(const std::string& path, const std::string& dbPath, const FaultTables& faults,
                      std::string* error) {
    json_object* scenario = ParseStrictJsonFile(path, error);
    if (scenario == nullptr) {
        *error = "scenario " + *error;
        return false;
    }
    std::unique_ptr<StateAdmin> state = StateAdmin::Open(dbPath, error);
    bool ok = state != nullptr && ImportScenario(*state, faults, scenario, error);
    if (!ok && state != nullptr) {
        *error = "scenario " + path + ": " + *error;
    }
    json_object_put(scenario);
    return ok;
}

}  // namespace control
