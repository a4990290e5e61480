// The command channel's state in the emulator's SQLite file: per-channel settings records (the
// setting commands of control/command_table.cpp) and the stored history records that the history
// query reads and the history deletion removes. Tables are prefixed
// "cmd_" so that they live beside the analysis service's own.
#ifndef CMDCHAN_HISTORY_STORE_H
#define CMDCHAN_HISTORY_STORE_H

#include <stdint.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "state_db.h"

namespace cmdchan {

struct HistoryFilter {
    std::string startTime;  // empty: no lower bound
    std::string endTime;
    uint64_t channelId = 0;  // 0 in any of the numbers: any value
    uint32_t databaseType = 0;
    uint32_t firstAttri = 0;
    uint32_t secondAttri = 0;
    uint64_t libId = 0;
};

struct HistoryRow {
    int64_t recordId = 0;
    std::string snapTime;
    uint64_t channelId = 0;
    uint32_t databaseType = 0;
    uint32_t firstAttri = 0;
    uint32_t secondAttri = 0;
    uint64_t libId = 0;
    std::string name;
    uint32_t matchRate = 0;
};

class Store {
public:
    // Opens (creating the tables and seeding the demo records on first start) the database file.
    static std::unique_ptr<Store> Open(const std::string& path, std::string* error);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // A stored settings record of command cmd for a channel: 1 found, 0 none, -1 database error.
    // Records read or written once are answered from memory: a read of the file costs more than
    // the rest of a command-channel exchange together. Changes made through another connection
    // are seen once `changes` (see WatchChanges) moves.
    int GetSetting(int cmd, uint64_t channelId, std::vector<unsigned char>* record);
    bool PutSetting(int cmd, uint64_t channelId, const std::vector<unsigned char>& record);
    // The counter other writers of this file count up after each change (the control API).
    void WatchChanges(std::shared_ptr<const std::atomic<uint64_t>> changes) {
        changes_.Watch(std::move(changes));
        settings_.clear();
    }

    // Records matching the filter, oldest first, from startIndex on, at most count; total counts all
    // that match. False on a database error.
    bool Query(const HistoryFilter& filter, uint32_t startIndex, uint32_t count,
               std::vector<HistoryRow>* rows, long long* total);
    // Deletes the records in [startTime, endTime], or every record when all is set; -1 on error.
    long long Delete(const std::string& startTime, const std::string& endTime, bool all);

private:
    explicit Store(std::unique_ptr<vks_state::Database> db);
    bool Seed(std::string* error);
    static bool InsertDemoRecords(vks_state::Database& db, std::string* error);

    std::unique_ptr<vks_state::Database> db_;
    // Settings by (command, channel) as last read or written: found, and the record.
    std::map<std::pair<int, uint64_t>, std::pair<bool, std::vector<unsigned char>>> settings_;
    vks_state::ChangeWatch changes_;
};

}  // namespace cmdchan

#endif
