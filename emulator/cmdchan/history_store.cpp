#include "history_store.h"

#include <sqlite3.h>
#include <stdio.h>

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

const int kDemoRecords = 24;

struct StmtCloser {
    void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};
using Stmt = std::unique_ptr<sqlite3_stmt, StmtCloser>;

void BindFilter(sqlite3_stmt* stmt, const HistoryFilter& f) {
    sqlite3_bind_text(stmt, 1, f.startTime.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(stmt, 2, f.endTime.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int64(stmt, 3, static_cast<sqlite3_int64>(f.channelId));
    sqlite3_bind_int64(stmt, 4, f.databaseType);
    sqlite3_bind_int64(stmt, 5, f.firstAttri);
    sqlite3_bind_int64(stmt, 6, f.secondAttri);
    sqlite3_bind_int64(stmt, 7, static_cast<sqlite3_int64>(f.libId));
}

std::string Text(sqlite3_stmt* stmt, int col) {
    const unsigned char* text = sqlite3_column_text(stmt, col);
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

HistoryRow ReadRow(sqlite3_stmt* stmt) {
    HistoryRow row;
    row.recordId = sqlite3_column_int64(stmt, 0);
    row.snapTime = Text(stmt, 1);
    row.channelId = static_cast<uint64_t>(sqlite3_column_int64(stmt, 2));
    row.databaseType = static_cast<uint32_t>(sqlite3_column_int64(stmt, 3));
    row.firstAttri = static_cast<uint32_t>(sqlite3_column_int64(stmt, 4));
    row.secondAttri = static_cast<uint32_t>(sqlite3_column_int64(stmt, 5));
    row.libId = static_cast<uint64_t>(sqlite3_column_int64(stmt, 6));
    row.name = Text(stmt, 7);
    row.matchRate = static_cast<uint32_t>(sqlite3_column_int64(stmt, 8));
    return row;
}

}  // namespace

std::unique_ptr<Store> Store::Open(const std::string& path, std::string* error) {
    std::unique_ptr<Store> store(new Store);
    if (sqlite3_open(path.c_str(), &store->db_) != SQLITE_OK) {
        *error = "open " + path + ": " + sqlite3_errmsg(store->db_);
        return nullptr;
    }
    sqlite3_busy_timeout(store->db_, 5000);
    if (!store->Exec("PRAGMA journal_mode=WAL;") || !store->Exec(kSchema) || !store->Seed()) {
        *error = "prepare " + path + ": " + sqlite3_errmsg(store->db_);
        return nullptr;
    }
    return store;
}

Store::~Store() {
    sqlite3_close(db_);
}

bool Store::Exec(const char* sql) {
    return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

sqlite3_stmt* Store::Prepare(const char* sql) {
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db_, sql, -1, &stmt, nullptr);
    return stmt;
}

// Demo records on first start only: once seeded, deleting them all stays deleted across restarts.
bool Store::Seed() {
    Stmt seeded(Prepare("INSERT OR IGNORE INTO cmd_meta (key, value) VALUES ('history_seeded', '1')"));
    if (!seeded || sqlite3_step(seeded.get()) != SQLITE_DONE) {
        return false;
    }
    if (sqlite3_changes(db_) == 0) {
        return true;
    }
    Stmt insert(Prepare(
        "INSERT INTO cmd_history_records (snap_time, channel_id, database_type, first_attri, second_attri,"
        " lib_id, person_name, match_rate) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)"));
    if (!insert || !Exec("BEGIN")) {
        return false;
    }
    for (int i = 0; i < kDemoRecords; ++i) {
        char time[32];
        char name[32];
        snprintf(time, sizeof(time), "2024-05-01T%02d:%02d:00", 8 + i / 2, (i % 2) * 30);
        snprintf(name, sizeof(name), "Person %02d", i + 1);
        sqlite3_reset(insert.get());
        sqlite3_bind_text(insert.get(), 1, time, -1, SQLITE_TRANSIENT);
        sqlite3_bind_int64(insert.get(), 2, 101 + i % 2);
        sqlite3_bind_int64(insert.get(), 3, i % 3 == 2 ? 2 : 1);
        sqlite3_bind_int64(insert.get(), 4, 1 + i % 2);
        sqlite3_bind_int64(insert.get(), 5, i % 4);
        sqlite3_bind_int64(insert.get(), 6, 1 + i % 3);
        sqlite3_bind_text(insert.get(), 7, name, -1, SQLITE_TRANSIENT);
        sqlite3_bind_int64(insert.get(), 8, 80 + i % 20);
        if (sqlite3_step(insert.get()) != SQLITE_DONE) {
            Exec("ROLLBACK");
            return false;
        }
    }
    return Exec("COMMIT");
}

int Store::GetSetting(int cmd, uint64_t channelId, std::vector<unsigned char>* record) {
    Stmt stmt(Prepare("SELECT record FROM cmd_settings WHERE cmd = ?1 AND channel_id = ?2"));
    if (!stmt) {
        return -1;
    }
    sqlite3_bind_int64(stmt.get(), 1, cmd);
    sqlite3_bind_int64(stmt.get(), 2, static_cast<sqlite3_int64>(channelId));
    int rc = sqlite3_step(stmt.get());
    if (rc == SQLITE_DONE) {
        return 0;
    }
    if (rc != SQLITE_ROW) {
        return -1;
    }
    const unsigned char* blob = static_cast<const unsigned char*>(sqlite3_column_blob(stmt.get(), 0));
    record->assign(blob, blob + sqlite3_column_bytes(stmt.get(), 0));
    return 1;
}

bool Store::PutSetting(int cmd, uint64_t channelId, const std::vector<unsigned char>& record) {
    Stmt stmt(Prepare("INSERT OR REPLACE INTO cmd_settings (cmd, channel_id, record) VALUES (?1, ?2, ?3)"));
    if (!stmt) {
        return false;
    }
    sqlite3_bind_int64(stmt.get(), 1, cmd);
    sqlite3_bind_int64(stmt.get(), 2, static_cast<sqlite3_int64>(channelId));
    sqlite3_bind_blob(stmt.get(), 3, record.data(), static_cast<int>(record.size()), SQLITE_TRANSIENT);
    return sqlite3_step(stmt.get()) == SQLITE_DONE;
}

bool Store::Query(const HistoryFilter& filter, uint32_t startIndex, uint32_t count,
                  std::vector<HistoryRow>* rows, long long* total) {
    Stmt counter(Prepare("SELECT COUNT(*) FROM cmd_history_records" CMD_HISTORY_WHERE));
    Stmt page(Prepare(
        "SELECT id, snap_time, channel_id, database_type, first_attri, second_attri, lib_id, person_name,"
        " match_rate FROM cmd_history_records" CMD_HISTORY_WHERE
        " ORDER BY snap_time, id LIMIT ?8 OFFSET ?9"));
    if (!counter || !page) {
        return false;
    }
    BindFilter(counter.get(), filter);
    if (sqlite3_step(counter.get()) != SQLITE_ROW) {
        return false;
    }
    *total = sqlite3_column_int64(counter.get(), 0);
    BindFilter(page.get(), filter);
    sqlite3_bind_int64(page.get(), 8, count);
    sqlite3_bind_int64(page.get(), 9, startIndex);
    rows->clear();
    int rc;
    while ((rc = sqlite3_step(page.get())) == SQLITE_ROW) {
        rows->push_back(ReadRow(page.get()));
    }
    return rc == SQLITE_DONE;
}

long long Store::Delete(const std::string& startTime, const std::string& endTime, bool all) {
    Stmt stmt(Prepare(all ? "DELETE FROM cmd_history_records"
                          : "DELETE FROM cmd_history_records WHERE snap_time >= ?1 AND snap_time <= ?2"));
    if (!stmt) {
        return -1;
    }
    if (!all) {
        sqlite3_bind_text(stmt.get(), 1, startTime.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(stmt.get(), 2, endTime.c_str(), -1, SQLITE_TRANSIENT);
    }
    if (sqlite3_step(stmt.get()) != SQLITE_DONE) {
        return -1;
    }
    return sqlite3_changes(db_);
}

}  // namespace cmdchan
