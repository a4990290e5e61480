// The emulated analysis service "itgt.paas.vks": answers the multi-task commands 229 (pop-up
// switches, get and put), 1201 (task enable list), 1202 and 1203 (task counts) from its SQLite state,
// every reply with status 200, the request's uri and method and the 4-byte result item 0xB001.
#ifndef VKS_ANALYSIS_SERVICE_H
#define VKS_ANALYSIS_SERVICE_H

#include <functional>
#include <memory>

#include "fault_table.h"
#include "analysis_request.h"
#include "analysis_store.h"
#include "reply_frame.h"
#include "srvfs/service.h"

namespace analysis {

using faults::Fault;
using faults::FaultTable;

#define ANALYSIS_SERVICE_NAME "itgt.paas.vks"

// Result codes of the emulated service.
#define ANALYSIS_RESULT_OK 0
#define ANALYSIS_RESULT_STATE_ERROR 5       // the state file failed
#define ANALYSIS_RESULT_BAD_REQUEST 22      // an item, the content or the request block is malformed
#define ANALYSIS_RESULT_UNKNOWN_COMMAND 38  // no such command or method

class AnalysisService : public srvfs::Service {
public:
    AnalysisService(std::shared_ptr<AnalysisStore> store, std::shared_ptr<FaultTable> faults)
        : store_(std::move(store)), faults_(std::move(faults)) {}

    void OnRequest(const srvfs::ReplyHandle& conn, std::vector<uint8_t> frame) override;

    // Told of every request as it is answered: the request (decoded says whether its body decoded),
    // the reply as sent (null when a fault withholds it) and the delay it is sent after.
    using Observer = std::function<void(const Request& request, bool decoded, const ReplySpec* reply,
                                        int delayMs, bool faulted)>;
    // Set before the service is added to a file system; not changed while it serves.
    void SetObserver(Observer observer) { observer_ = std::move(observer); }

    struct Answer {
        int32_t result;
        std::vector<uint8_t> content;
    };
    // The answer without faults; a put changes the state only when `apply` is set.
    Answer Handle(const Request& request, bool apply);

private:
    Answer TaskCounts(uint16_t uri);
    Answer PopUps(const Request& request, bool apply);
    Answer Tasks(const Request& request);

    std::shared_ptr<AnalysisStore> store_;
    std::shared_ptr<FaultTable> faults_;
    Observer observer_;
};

}  // namespace analysis

#endif
