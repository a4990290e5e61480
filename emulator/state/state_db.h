// The emulator's SQLite state: one database file shared by the emulator's components, each with its
// own connection and its own tables. Plain helpers that report failure with a result and a text.
#ifndef VKS_STATE_DB_H
#define VKS_STATE_DB_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace vks_state {

// Writers of other connections are waited for this long before a statement fails as busy.
#define VKS_STATE_BUSY_TIMEOUT_MS 5000

// A counter that writers of the file on other connections (the control API) count up after each
// change. A component that keeps answers in memory asks Moved() before it uses them and drops them
// when it says yes. Unwatched (no counter), nothing ever moves.
class ChangeWatch {
public:
    void Watch(std::shared_ptr<const std::atomic<uint64_t>> changes) {
        changes_ = std::move(changes);
        seen_ = changes_ != nullptr ? changes_->load() : 0;
    }
    bool Moved() {
        uint64_t now = changes_ != nullptr ? changes_->load() : 0;
        bool moved = now != seen_;
        seen_ = now;
        return moved;
    }

private:
    std::shared_ptr<const std::atomic<uint64_t>> changes_;
    uint64_t seen_ = 0;
};

class Database {
public:
    // Opens (creating the file and its directory) in WAL mode with the busy time-out, then runs
    // schemaSql (may be empty). Null with the reason in *error.
    static std::unique_ptr<Database> Open(const std::string& path, const std::string& schemaSql,
                                          std::string* error);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Runs one or more statements without results: 0, or -1 with the reason in *error.
    int Exec(const std::string& sql, std::string* error);
    // Rows the last finished INSERT, UPDATE or DELETE of this connection changed.
    int64_t Changes() const;
    sqlite3* Handle() const { return db_; }

private:
    friend class Statement;
    explicit Database(sqlite3* db) : db_(db) {}
    // A statement of this text prepared before and idle now, taken out of the cache; or null.
    sqlite3_stmt* TakeCached(const std::string& sql);
    // Keeps a reset statement for the next user of the same text (finalized when one is kept already).
    void KeepCached(const std::string& sql, sqlite3_stmt* stmt);

    sqlite3* db_;
    std::mutex cacheMutex_;
    std::map<std::string, sqlite3_stmt*> idle_;  // at most one per text, at most 64
};

// One prepared statement; binds are 1-based like SQLite's, columns 0-based.
class Statement {
public:
    Statement(Database& db, const std::string& sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool Ok() const { return stmt_ != nullptr && error_.empty(); }
    const std::string& Error() const { return error_; }
    Statement& Bind(int index, int64_t value);
    Statement& Bind(int index, const std::string& value);
    // A blob of size bytes, copied; an empty blob is stored as a zero-length blob, not NULL.
    Statement& Bind(int index, const void* data, size_t size);
    // true while a row is there; false when done or failed (then Ok() is false).
    bool Step();
    int64_t Int64(int column) const;
    std::string Text(int column) const;
    std::vector<unsigned char> Blob(int column) const;
    void Reset();

private:
    Database& owner_;
    std::string sql_;
    sqlite3* db_;
    sqlite3_stmt* stmt_ = nullptr;
    std::string error_;
};

}  // namespace vks_state

#endif
