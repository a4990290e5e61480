#include "history_store.h"

#include <utility>

#include "state_db.h"
#include "state_rows.h"

namespace cmdchan {
namespace {

const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS cmd_settings (cmd INTEGER NOT NULL, channel_id INTEGER NOT NULL,"
    " record BLOB NOT NULL, PRIMARY KEY (cmd, channel_id));"
    "CREATE TABLE IF NOT EXISTS cmd_history_records (id INTEGER PRIMARY KEY, snap_time TEXT NOT NULL,"
    " channel_id INTEGER NOT NULL, database_type INTEGER NOT NULL, first_attri INTEGER NOT NULL,"
    " second_attri INTEGER NOT NULL, lib_id INTEGER NOT NULL, person_name TEXT NOT NULL,"
    " match_rate INTEGER NOT NULL);"
    "CREATE INDEX IF NOT EXISTS cmd_history_records_time ON cmd_history_records (snap_time);"
    "CREATE TABLE IF NOT EXISTS cmd_meta (key TEXT PRIMARY KEY, value TEXT NOT NULL);";

// The filter of both the page and the total: parameters 1 to 7 in the order of HistoryFilter.
#define CMD_HISTORY_WHERE                                                        \
    " WHERE snap_time >= ?1 AND snap_time <= ?2 AND (?3 = 0 OR channel_id = ?3)" \
    " AND (?4 = 0 OR database_type = ?4) AND (?5 = 0 OR first_attri = ?5)"       \
    " AND (?6 = 0 OR second_attri = ?6) AND (?7 = 0 OR lib_id = ?7)"

// Ids are 64-bit unsigned on the wire; SQLite keeps them as the signed integer of the same bits.
int64_t Signed(uint64_t value) {
    return static_cast<int64_t>(value);
}

void BindFilter(vks_state::Statement& stmt, const HistoryFilter& f) {
    stmt.Bind(1, f.startTime)
        .Bind(2, f.endTime)
        .Bind(3, Signed(f.channelId))
        .Bind(4, int64_t{f.databaseType})
        .Bind(5, int64_t{f.firstAttri})
        .Bind(6, int64_t{f.secondAttri})
        .Bind(7, Signed(f.libId));
}

HistoryRow ReadRow(const vks_state::Statement& stmt) {
    HistoryRow row;
    row.recordId = stmt.Int64(0);
    row.snapTime = stmt.Text(1);
    row.channelId = static_cast<uint64_t>(stmt.Int64(2));
    row.databaseType = static_cast<uint32_t>(stmt.Int64(3));
    row.firstAttri = static_cast<uint32_t>(stmt.Int64(4));
    row.secondAttri = static_cast<uint32_t>(stmt.Int64(5));
    row.libId = static_cast<uint64_t>(stmt.Int64(6));
    row.name = stmt.Text(7);
    row.matchRate = static_cast<uint32_t>(stmt.Int64(8));
    return row;
}

// Runs a statement that returns no rows; false with its error in *error.
bool Run(vks_state::Statement& stmt, std::string* error) {
    if (stmt.Step() || !stmt.Ok()) {
        *error = stmt.Ok() ? "unexpected row" : stmt.Error();
        return false;
    }
    return true;
}

}  // namespace

Store::Store(std::unique_ptr<vks_state::Database> db) : db_(std::move(db)) {}

Store::~Store() = default;

std::unique_ptr<Store> Store::Open(const std::string& path, std::string* error) {
    std::unique_ptr<vks_state::Database> db = vks_state::Database::Open(path, kSchema, error);
    if (!db) {
        return nullptr;
    }
    std::unique_ptr<Store> store(new Store(std::move(db)));
    if (!store->Seed(error)) {
        *error = "seed " + path + ": " + *error;
        return nullptr;
    }
    return store;
}

// Demo records on first start only: once seeded, deleting them all stays deleted across restarts.
bool Store::Seed(std::string* error) {
    vks_state::Statement seeded(*db_,
                                "INSERT OR IGNORE INTO cmd_meta (key, value) VALUES ('history_seeded', '1')");
    if (!Run(seeded, error)) {
        return false;
    }
    if (db_->Changes() == 0) {
        return true;
    }
    if (db_->Exec("BEGIN", error) != 0) {
        return false;
    }
    if (!InsertDemoRecords(*db_, error)) {
        std::string ignored;
        db_->Exec("ROLLBACK", &ignored);
        return false;
    }
    return db_->Exec("COMMIT", error) == 0;
}

bool Store::InsertDemoRecords(vks_state::Database& db, std::string* error) {
    return vks_state::InsertDemoRows(db, {"historyRecords"}, error);
}

int Store::GetSetting(int cmd, uint64_t channelId, std::vector<unsigned char>* record) {
    if (changes_.Moved()) {
        settings_.clear();
    }
    auto known = settings_.find({cmd, channelId});
    if (known == settings_.end()) {
        vks_state::Statement stmt(*db_, "SELECT record FROM cmd_settings WHERE cmd = ?1 AND channel_id = ?2");
        stmt.Bind(1, int64_t{cmd}).Bind(2, Signed(channelId));
        std::pair<bool, std::vector<unsigned char>> stored{stmt.Step(), {}};
        if (!stored.first && !stmt.Ok()) {
            return -1;
        }
        if (stored.first) {
            stored.second = stmt.Blob(0);
        }
        known = settings_.emplace(std::make_pair(cmd, channelId), std::move(stored)).first;
    }
    if (!known->second.first) {
        return 0;
    }
    *record = known->second.second;
    return 1;
}

bool Store::PutSetting(int cmd, uint64_t channelId, const std::vector<unsigned char>& record) {
    vks_state::Statement stmt(
        *db_, "INSERT OR REPLACE INTO cmd_settings (cmd, channel_id, record) VALUES (?1, ?2, ?3)");
    stmt.Bind(1, int64_t{cmd}).Bind(2, Signed(channelId)).Bind(3, record.data(), record.size());
    std::string error;
    if (!Run(stmt, &error)) {
        settings_.erase({cmd, channelId});
        return false;
    }
    settings_[{cmd, channelId}] = {true, record};
    return true;
}

bool Store::Query(const HistoryFilter& filter, uint32_t startIndex, uint32_t count,
                  std::vector<HistoryRow>* rows, long long* total) {
    // The count stays stopped on its row until the page is read: both share one read transaction, so
    // the total and the page agree even while another connection deletes.
    vks_state::Statement counter(*db_, "SELECT COUNT(*) FROM cmd_history_records" CMD_HISTORY_WHERE);
    BindFilter(counter, filter);
    if (!counter.Step()) {
        return false;
    }
    *total = counter.Int64(0);
    vks_state::Statement page(
        *db_,
        "SELECT id, snap_time, channel_id, database_type, first_attri, second_attri, lib_id, person_name,"
        " match_rate FROM cmd_history_records" CMD_HISTORY_WHERE
        " ORDER BY snap_time, id LIMIT ?8 OFFSET ?9");
    BindFilter(page, filter);
    page.Bind(8, int64_t{count}).Bind(9, int64_t{startIndex});
    rows->clear();
    while (page.Step()) {
        rows->push_back(ReadRow(page));
    }
    return page.Ok();
}

long long Store::Delete(const std::string& startTime, const std::string& endTime, bool all) {
    vks_state::Statement stmt(
        *db_, all ? "DELETE FROM cmd_history_records"
                  : "DELETE FROM cmd_history_records WHERE snap_time >= ?1 AND snap_time <= ?2");
    if (!all) {
        stmt.Bind(1, startTime).Bind(2, endTime);
    }
    std::string error;
    if (!Run(stmt, &error)) {
        return -1;
    }
    return db_->Changes();
}

}  // namespace cmdchan
