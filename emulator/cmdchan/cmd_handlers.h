// The emulator's answers to the command-channel commands of the command table, over the store.
// Faults are applied by the caller.
#ifndef CMDCHAN_CMD_HANDLERS_H
#define CMDCHAN_CMD_HANDLERS_H

#include <memory>
#include <string>

#include "cmd_channel_frame.h"
#include "history_store.h"
#include "shrink_watcher.h"

namespace cmdchan {

// Longest page a query returns, whatever FindNum asks for.
constexpr uint32_t kMaxFindNum = 100;

struct CommandContext {
    Store* store;
    std::string resultDir;
    int resultDirFd = -1;       // the result folder, open since start-up: files are made relative to it
    bool shrinkResult = false;  // fault: cut each result file once its reader took the size
    bool badPath = false;       // fault: name a result file that was never written
    std::unique_ptr<ShrinkWatcher> watcher;
};

// Fills the reply to a request; every request gets one.
void HandleCommand(CommandContext* ctx, const cmdframe::Request& request, cmdframe::Reply* reply);

// The MSG_DATA reply image of a command answered through RestSendSynUnixMsg: the received command,
// the service's result and the result file's path (empty for none).
void FillMsgResult(uint32_t cmd, int32_t result, const std::string& path, cmdframe::Reply* reply);

}  // namespace cmdchan

#endif
