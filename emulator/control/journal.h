// The request journal: every request the emulator received on either road, decoded, with the answer
// it gave. Bounded: past its capacity the oldest entries go. Read filtered, cleared on demand.
#ifndef VKS_CONTROL_JOURNAL_H
#define VKS_CONTROL_JOURNAL_H

#include <json-c/json.h>

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "command_table.h"

namespace control {

#define JOURNAL_ROAD_DXMP COMMAND_ROAD_ANALYSIS
#define JOURNAL_ROAD_CMD COMMAND_ROAD_CMD

struct JournalFilter {
    std::string road;    // empty: both
    int command = 0;     // 0: every command
    uint64_t since = 0;  // only entries with a greater sequence number
    size_t limit = 0;    // 0: all; else the newest `limit` of those that pass
};

class Journal {
public:
    explicit Journal(size_t capacity) : capacity_(capacity) {}
    // Takes over `fields` (a JSON object): the entry is {"seq", "time", "road", "command", then the
    // fields in their order}.
    void Add(const char* road, int command, json_object* fields);
    // {"capacity", "dropped", "entries": [...]} with the entries that pass, oldest first.
    std::string ToJson(const JournalFilter& filter) const;
    void Clear();

private:
    struct Entry {
        uint64_t seq;
        std::string road;
        int command;
        std::string json;
    };
    mutable std::mutex mutex_;
    size_t capacity_;
    std::deque<Entry> entries_;
    uint64_t nextSeq_ = 1;
    uint64_t dropped_ = 0;
};

}  // namespace control

#endif
