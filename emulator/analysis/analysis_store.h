// The analysis service's state in the emulator's SQLite file (tables analysis_*): task counts,
// pop-up switches per channel and the task list, seeded with demo values on first start.
#ifndef VKS_ANALYSIS_STORE_H
#define VKS_ANALYSIS_STORE_H

#include <memory>
#include <mutex>
#include <string>

#include "intelligent/comm/vks_multi_task_records.h"
#include "state_db.h"

namespace analysis {

class AnalysisStore {
public:
    static std::unique_ptr<AnalysisStore> Open(const std::string& dbPath, std::string* error);

    int GetAvailable(_VW_AvailableList_S* out);
    int GetCapacity(_VW_CapacityList_S* out);
    int GetPopUps(uint64_t channelId, _FaceRecPopUpPara* out);
    int PutPopUps(const _FaceRecPopUpPara& in);
    // Tasks of channelId (0: every channel), of channelGroup (0: every group), at most 32.
    int GetTasks(uint64_t channelId, int32_t channelGroup, _VW_TasksEnableList_S* out);
    // Test and demo set-up: replaces the counts, or adds one task.
    int SetCounts(const _VW_AvailableList_S& available, const _VW_CapacityList_S& capacity);
    int AddTask(int32_t channelGroup, const _VW_TaskEnable_S& task);
    int ClearTasks();
    // Every analysis table back to the demo data, on any connection to the state file.
    static int ResetToDemo(vks_state::Database& db, std::string* error);

private:
    explicit AnalysisStore(std::unique_ptr<vks_state::Database> db) : db_(std::move(db)) {}
    int Seed(std::string* error);
    int ReadCountsLocked(const char* column, uint64_t values[3]);

    std::mutex mutex_;
    std::unique_ptr<vks_state::Database> db_;
};

}  // namespace analysis

#endif
