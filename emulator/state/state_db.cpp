#include "state_db.h"

#include <sqlite3.h>

#include <filesystem>
#include <system_error>

namespace vks_state {

std::unique_ptr<Database> Database::Open(const std::string& path, const std::string& schemaSql,
                                         std::string* error) {
    std::filesystem::path parent = std::filesystem::path(path).parent_path();
    std::error_code ec;
    if (!parent.empty() && !std::filesystem::create_directories(parent, ec) && ec) {
        *error = "cannot create " + parent.string() + ": " + ec.message();
        return nullptr;
    }
    sqlite3* handle = nullptr;
    int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    if (sqlite3_open_v2(path.c_str(), &handle, flags, nullptr) != SQLITE_OK) {
        *error = "cannot open " + path + ": " + (handle ? sqlite3_errmsg(handle) : "out of memory");
        sqlite3_close(handle);
        return nullptr;
    }
    std::unique_ptr<Database> db(new Database(handle));
    sqlite3_busy_timeout(handle, VKS_STATE_BUSY_TIMEOUT_MS);
    if (db->Exec("PRAGMA journal_mode=WAL;", error) != 0 ||
        (!schemaSql.empty() && db->Exec(schemaSql, error) != 0)) {
        *error = path + ": " + *error;
        return nullptr;
    }
    return db;
}

Database::~Database() {
    for (auto& entry : idle_) {
        sqlite3_finalize(entry.second);
    }
    sqlite3_close(db_);
}

sqlite3_stmt* Database::TakeCached(const std::string& sql) {
    std::lock_guard<std::mutex> lock(cacheMutex_);
    auto found = idle_.find(sql);
    if (found == idle_.end()) {
        return nullptr;
    }
    sqlite3_stmt* stmt = found->second;
    idle_.erase(found);
    return stmt;
}

void Database::KeepCached(const std::string& sql, sqlite3_stmt* stmt) {
    // Texts built with values in them would fill the cache: past a bound they are finalized.
    const size_t kMostKept = 64;
    std::lock_guard<std::mutex> lock(cacheMutex_);
    if (idle_.size() >= kMostKept || !idle_.emplace(sql, stmt).second) {
        sqlite3_finalize(stmt);
    }
}

int Database::Exec(const std::string& sql, std::string* error) {
    char* message = nullptr;
    if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
        *error = message != nullptr ? message : sqlite3_errmsg(db_);
        sqlite3_free(message);
        return -1;
    }
    return 0;
}

int64_t Database::Changes() const {
    return sqlite3_changes(db_);
}

// Statements are prepared once per text and connection and reused: preparing (parsing and planning
// the SQL) costs more than running the short queries of a request.
Statement::Statement(Database& db, const std::string& sql) : owner_(db), sql_(sql), db_(db.Handle()) {
    stmt_ = db.TakeCached(sql);
    if (stmt_ == nullptr &&
        sqlite3_prepare_v3(db_, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &stmt_, nullptr) != SQLITE_OK) {
        error_ = sqlite3_errmsg(db_);
        sqlite3_finalize(stmt_);
        stmt_ = nullptr;
    }
}

// Reset ends the statement's read or write transaction before anyone else can take it.
Statement::~Statement() {
    if (stmt_ == nullptr) {
        return;
    }
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
    owner_.KeepCached(sql_, stmt_);
}

Statement& Statement::Bind(int index, int64_t value) {
    if (Ok() && sqlite3_bind_int64(stmt_, index, value) != SQLITE_OK) {
        error_ = sqlite3_errmsg(db_);
    }
    return *this;
}

Statement& Statement::Bind(int index, const std::string& value) {
    if (Ok() && sqlite3_bind_text(stmt_, index, value.c_str(), -1, SQLITE_TRANSIENT) != SQLITE_OK) {
        error_ = sqlite3_errmsg(db_);
    }
    return *this;
}

Statement& Statement::Bind(int index, const void* data, size_t size) {
    // SQLite takes a null pointer for NULL, so an empty blob needs some non-null address.
    static const unsigned char kEmpty = 0;
    const void* bytes = size == 0 ? &kEmpty : data;
    if (Ok() && sqlite3_bind_blob64(stmt_, index, bytes, size, SQLITE_TRANSIENT) != SQLITE_OK) {
        error_ = sqlite3_errmsg(db_);
    }
    return *this;
}

bool Statement::Step() {
    if (!Ok()) {
        return false;
    }
    int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW) {
        return true;
    }
    if (rc != SQLITE_DONE) {
        error_ = sqlite3_errmsg(db_);
    }
    return false;
}

int64_t Statement::Int64(int column) const {
    return sqlite3_column_int64(stmt_, column);
}

std::string Statement::Text(int column) const {
    const unsigned char* text = sqlite3_column_text(stmt_, column);
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

std::vector<unsigned char> Statement::Blob(int column) const {
    // The pointer first, then the size: fetching the blob may convert the value and change its size.
    const unsigned char* blob = static_cast<const unsigned char*>(sqlite3_column_blob(stmt_, column));
    int size = sqlite3_column_bytes(stmt_, column);
    return blob != nullptr ? std::vector<unsigned char>(blob, blob + size) : std::vector<unsigned char>();
}

void Statement::Reset() {
    if (stmt_ != nullptr) {
        sqlite3_reset(stmt_);
        sqlite3_clear_bindings(stmt_);
    }
}

}  // namespace vks_state
