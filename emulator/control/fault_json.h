// Faults as the control API writes and reads them: {"road", "command", "delayMs", "jitterMs",
// "result", "status", "wrongUri", "contentLength", "noReply", "probability"}, with null for a kind
// that is off.
#ifndef VKS_CONTROL_FAULT_JSON_H
#define VKS_CONTROL_FAULT_JSON_H

#include <json-c/json.h>

#include <string>

#include "fault_table.h"

namespace control {

json_object* FaultToJson(const char* road, int command, const faults::Fault& fault);
// Reads the kinds the object names over *fault (absent keys keep their value); false with the reason
// for an unknown key or a value out of range.
bool FaultFromJson(json_object* object, faults::Fault* fault, std::string* error);
// The command of a road from its text ("all" or a number the road knows); false when it is not one.
bool ParseCommand(const std::string& road, const std::string& text, int* command);
// The faults of both roads as the control port lists them: analysis first, by command.
json_object* FaultList(const faults::FaultTable& analysis, const faults::FaultTable& cmd);
// The command table as the control port lists it: [{"road", "command", "name", "stateKind"}, ...].
json_object* CommandList();

}  // namespace control

#endif
