// The analysis service's state in the emulator's SQLite file (tables analysis_*): task counts,
// pop-up switches per channel and the task list, seeded with demo values on first start.
#ifndef VKS_ANALYSIS_STORE_H
#define VKS_ANALYSIS_STORE_H

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "intelligent/comm/vks_multi_task_records.h"
#include "state_db.h"

namespace analysis {

// Answers read from the file are kept in memory until the state changes: a write through this store,
// or a change through the control API (WatchChanges). Reading the file cost about 4 µs a request,
// as much as the service file system's own work on it.
class AnalysisStore {
public:
    static std::unique_ptr<AnalysisStore> Open(const std::string& dbPath, std::string* error);
    // The counter other writers of this file count up after each change (the control API).
    void WatchChanges(std::shared_ptr<const std::atomic<uint64_t>> changes);

    int GetAvailable(_VW_AvailableList_S* out);
    int GetCapacity(_VW_CapacityList_S* out);
    int GetPopUps(uint64_t channelId, _FaceRecPopUpPara* out);
    int PutPopUps(const _FaceRecPopUpPara& in);
    // Tasks of channelId (0: every channel), of channelGroup (0: every group), at most 32.
    int GetTasks(uint64_t channelId, int32_t channelGroup, _VW_TasksEnableList_S* out);
    // Test and demo set-up: adds one task.
    int AddTask(int32_t channelGroup, const _VW_TaskEnable_S& task);

private:
    explicit AnalysisStore(std::unique_ptr<vks_state::Database> db) : db_(std::move(db)) {}
    int Seed(std::string* error);
    int ReadCountsLocked(const char* column, uint64_t values[3]);
    // Which answer: the getter, channel, group.
    using AnswerKey = std::tuple<int, uint64_t, int32_t>;
    // Copies a kept answer to out (true), after dropping every answer when the state changed.
    bool RecallLocked(const AnswerKey& key, void* out, size_t size);
    void KeepLocked(const AnswerKey& key, const void* answer, size_t size);
    void ForgetLocked() { answers_.clear(); }

    std::mutex mutex_;
    std::unique_ptr<vks_state::Database> db_;
    std::map<AnswerKey, std::vector<unsigned char>> answers_;
    vks_state::ChangeWatch changes_;
};

}  // namespace analysis

#endif
