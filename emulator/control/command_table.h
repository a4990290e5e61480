// Every command the emulator answers, one descriptor each: the road it arrives on (and whose fault
// table and journal it belongs to), its role, the records it carries and their length, the record a
// channel never written reads as, and the state kind the control port shows it under. The handlers,
// the fault API, the journal decoder and the console (through GET /control/commands) all read this
// table, so a new command is one row here plus its handler.
#ifndef VKS_CONTROL_COMMAND_TABLE_H
#define VKS_CONTROL_COMMAND_TABLE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "record_fields.h"

namespace control {

#define COMMAND_ROAD_ANALYSIS "analysis"
#define COMMAND_ROAD_CMD "command-channel"

enum class CommandRole {
    kService,  // analysis road: answered by the analysis service
    kSetting,  // command channel: a per-channel record read (get) and replaced (set)
    kQuery,    // command channel: a query answered with a MSG_DATA naming a result file
    kDelete,   // command channel: a deletion record, set only
};

struct CommandSpec {
    const char* road;
    int code;
    const char* name;  // the command's own name, shown beside its number
    CommandRole role;
    // kSetting: the record a set carries and a get answers; kQuery, kDelete: the request record;
    // kService: the put content (null when the command takes none).
    const Fields* record;
    const Fields* reply;  // kQuery: the MSG_DATA of its answer; null otherwise
    // kSetting: what every 32-bit field of a record never written reads as.
    int32_t defaultFlag;
    const char* stateKind;  // the control port's state kind the command reads or changes
};

// The rows, both roads, in the order the control port lists them.
const std::vector<CommandSpec>& Commands();
// The road's command with that code, or null.
const CommandSpec* FindCommand(const char* road, int code);
// The road names in order, and whether a text names one.
const std::vector<const char*>& Roads();
bool KnownRoad(const char* road);
// A setting's record for a channel never written: the channel, then every 32-bit field at the
// descriptor's default.
std::vector<unsigned char> DefaultRecord(const CommandSpec& spec, uint64_t channelId);

}  // namespace control

#endif
