#include "analysis_store.h"

#include <cstring>

#include "state_rows.h"

namespace analysis {
namespace {

const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS analysis_counts ("
    "  slot INTEGER PRIMARY KEY, available INTEGER NOT NULL, capacity INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS analysis_popups ("
    "  channel_id INTEGER PRIMARY KEY, black_popup INTEGER NOT NULL, white_popup INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS analysis_tasks ("
    "  task_id INTEGER PRIMARY KEY AUTOINCREMENT, channel_id INTEGER NOT NULL, channel_group INTEGER NOT "
    "NULL,"
    "  face_detection INTEGER, face_attribute INTEGER, human_attribute INTEGER, face_recognition INTEGER,"
    "  vhd_detection INTEGER, nmv_attribute INTEGER, veh_attribute INTEGER);";

}  // namespace

std::unique_ptr<AnalysisStore> AnalysisStore::Open(const std::string& dbPath, std::string* error) {
    auto db = vks_state::Database::Open(dbPath, kSchema, error);
    if (db == nullptr) {
        return nullptr;
    }
    std::unique_ptr<AnalysisStore> store(new AnalysisStore(std::move(db)));
    if (store->Seed(error) != 0) {
        return nullptr;
    }
    return store;
}

int AnalysisStore::Seed(std::string* error) {
    vks_state::Statement count(*db_, "SELECT COUNT(*) FROM analysis_counts");
    if (!count.Step()) {
        *error = "analysis_counts: " + count.Error();
        return -1;
    }
    if (count.Int64(0) != 0) {
        return 0;  // seeded by an earlier start; keep what was stored since
    }
    std::string ignored;
    if (db_->Exec("BEGIN", error) != 0 ||
        !vks_state::InsertDemoRows(*db_, {"counts", "popUps", "tasks"}, error) ||
        db_->Exec("COMMIT", error) != 0) {
        db_->Exec("ROLLBACK", &ignored);
        return -1;
    }
    return 0;
}

enum Getter { kAvailable, kCapacity, kPopUps, kTasks };

void AnalysisStore::WatchChanges(std::shared_ptr<const std::atomic<uint64_t>> changes) {
    std::lock_guard<std::mutex> lock(mutex_);
    changes_.Watch(std::move(changes));
    ForgetLocked();
}

bool AnalysisStore::RecallLocked(const AnswerKey& key, void* out, size_t size) {
    if (changes_.Moved()) {
        ForgetLocked();
    }
    auto kept = answers_.find(key);
    if (kept == answers_.end() || kept->second.size() != size) {
        return false;
    }
    memcpy(out, kept->second.data(), size);
    return true;
}

void AnalysisStore::KeepLocked(const AnswerKey& key, const void* answer, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(answer);
    answers_[key].assign(bytes, bytes + size);
}

int AnalysisStore::ReadCountsLocked(const char* column, uint64_t values[3]) {
    values[0] = values[1] = values[2] = 0;
    vks_state::Statement query(
        *db_, std::string("SELECT slot, ") + column + " FROM analysis_counts WHERE slot BETWEEN 0 AND 2");
    while (query.Step()) {
        values[query.Int64(0)] = static_cast<uint64_t>(query.Int64(1));
    }
    return query.Ok() ? 0 : -1;
}

int AnalysisStore::GetAvailable(_VW_AvailableList_S* out) {
    std::lock_guard<std::mutex> lock(mutex_);
    const AnswerKey key{kAvailable, 0, 0};
    if (RecallLocked(key, out, sizeof(*out))) {
        return 0;
    }
    uint64_t values[3];
    int rc = ReadCountsLocked("available", values);
    *out = _VW_AvailableList_S{values[0], values[1], values[2]};
    if (rc == 0) {
        KeepLocked(key, out, sizeof(*out));
    }
    return rc;
}

int AnalysisStore::GetCapacity(_VW_CapacityList_S* out) {
    std::lock_guard<std::mutex> lock(mutex_);
    const AnswerKey key{kCapacity, 0, 0};
    if (RecallLocked(key, out, sizeof(*out))) {
        return 0;
    }
    uint64_t values[3];
    int rc = ReadCountsLocked("capacity", values);
    *out = _VW_CapacityList_S{values[0], values[1], values[2]};
    if (rc == 0) {
        KeepLocked(key, out, sizeof(*out));
    }
    return rc;
}

int AnalysisStore::GetPopUps(uint64_t channelId, _FaceRecPopUpPara* out) {
    std::lock_guard<std::mutex> lock(mutex_);
    const AnswerKey key{kPopUps, channelId, 0};
    if (RecallLocked(key, out, sizeof(*out))) {
        return 0;
    }
    vks_state::Statement query(*db_,
                               "SELECT black_popup, white_popup FROM analysis_popups WHERE channel_id = ?");
    query.Bind(1, static_cast<int64_t>(channelId));
    *out = _FaceRecPopUpPara{channelId, 0, 0};
    if (query.Step()) {
        out->blackPopUp = static_cast<int32_t>(query.Int64(0));
        out->whitePopUp = static_cast<int32_t>(query.Int64(1));
    }
    if (!query.Ok()) {
        return -1;
    }
    KeepLocked(key, out, sizeof(*out));
    return 0;
}

int AnalysisStore::PutPopUps(const _FaceRecPopUpPara& in) {
    std::lock_guard<std::mutex> lock(mutex_);
    ForgetLocked();
    vks_state::Statement upsert(*db_, "INSERT OR REPLACE INTO analysis_popups VALUES (?, ?, ?)");
    upsert.Bind(1, static_cast<int64_t>(in.channelId)).Bind(2, in.blackPopUp).Bind(3, in.whitePopUp);
    upsert.Step();
    return upsert.Ok() ? 0 : -1;
}

int AnalysisStore::GetTasks(uint64_t channelId, int32_t channelGroup, _VW_TasksEnableList_S* out) {
    std::lock_guard<std::mutex> lock(mutex_);
    const AnswerKey key{kTasks, channelId, channelGroup};
    if (RecallLocked(key, out, sizeof(*out))) {
        return 0;
    }
    memset(out, 0, sizeof(*out));
    vks_state::Statement query(
        *db_,
        "SELECT channel_id, face_detection, face_attribute, human_attribute, face_recognition,"
        " vhd_detection, nmv_attribute, veh_attribute FROM analysis_tasks"
        " WHERE (?1 = 0 OR channel_id = ?1) AND (?2 = 0 OR channel_group = ?2)"
        " ORDER BY task_id LIMIT 32");
    query.Bind(1, static_cast<int64_t>(channelId)).Bind(2, channelGroup);
    while (query.Step()) {
        _VW_TaskEnable_S& task = out->taskEnable[out->taskNum++];
        task.channelId = static_cast<uint64_t>(query.Int64(0));
        int32_t* flags[] = {&task.faceDetection,   &task.faceAttribute, &task.humanAttribute,
                            &task.faceRecognition, &task.vhdDetection,  &task.nmvAttribute,
                            &task.vehAttribute};
        for (int i = 0; i < 7; ++i) {
            *flags[i] = static_cast<int32_t>(query.Int64(i + 1));
        }
    }
    if (!query.Ok()) {
        return -1;
    }
    KeepLocked(key, out, sizeof(*out));
    return 0;
}

int AnalysisStore::AddTask(int32_t channelGroup, const _VW_TaskEnable_S& task) {
    std::lock_guard<std::mutex> lock(mutex_);
    ForgetLocked();
    vks_state::Statement insert(
        *db_,
        "INSERT INTO analysis_tasks (channel_id, channel_group, face_detection, face_attribute,"
        " human_attribute, face_recognition, vhd_detection, nmv_attribute, veh_attribute)"
        " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.Bind(1, static_cast<int64_t>(task.channelId)).Bind(2, channelGroup);
    const int32_t flags[] = {task.faceDetection,   task.faceAttribute, task.humanAttribute,
                             task.faceRecognition, task.vhdDetection,  task.nmvAttribute,
                             task.vehAttribute};
    for (int i = 0; i < 7; ++i) {
        insert.Bind(i + 3, flags[i]);
    }
    insert.Step();
    return insert.Ok() ? 0 : -1;
}

}  // namespace analysis
