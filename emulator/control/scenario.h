// Scenarios: the whole state and every fault of both roads as one JSON document,
// {"state": {KIND: [rows], ...}, "faults": [fault, ...]}, kept as a file the way testers keep a mock
// server's mappings. Exported by GET /control/scenario, imported by PUT /control/scenario and by
// --scenario=FILE at start; the demo data is itself one (emulator/state/demo-scenario.json).
#ifndef VKS_CONTROL_SCENARIO_H
#define VKS_CONTROL_SCENARIO_H

#include <json-c/json.h>

#include <string>

#include "fault_table.h"
#include "state_admin.h"

namespace control {

struct FaultTables {
    faults::FaultTable* analysis;
    faults::FaultTable* cmd;
};

// The scenario as it stands; null on a database error.
json_object* ExportScenario(StateAdmin& state, const FaultTables& faults);
// Checks the whole document, then replaces the state in one transaction and the faults of both
// roads; a document with any fault in it changes nothing (false with "WHERE: why").
bool ImportScenario(StateAdmin& state, const FaultTables& faults, json_object* scenario, std::string* error);
// ImportScenario from a file, on a connection of its own to the state file.
bool LoadScenarioFile(const std::string& path, const std::string& dbPath, const FaultTables& faults,
                      std::string* error);

}  // namespace control

#endif
