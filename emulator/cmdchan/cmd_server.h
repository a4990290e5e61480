// The emulator's command-channel server: the commands of control/command_table.cpp's command-channel
// road (history switch, display flags, history query and deletion), over SQLite state, with
// configurable faults.
#ifndef CMDCHAN_CMD_SERVER_H
#define CMDCHAN_CMD_SERVER_H

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "cmd_channel_frame.h"
#include "fault_table.h"
#include "kit_dir.h"
#include "unix_cmd_channel.h"

namespace cmdchan {

// Faults make the server misbehave on purpose so that clients can be tried against them.
struct FaultOptions {
    int command = 0;          // the command the faults apply to; 0 = every command
    int result = 0;           // non-zero: answer with this result and change nothing
    bool noReply = false;     // read the request and never answer (the connection stays open)
    bool badPath = false;     // history query: name a result file that does not exist
    bool shrinkFile = false;  // history query: cut the result file in half when it is opened the second time
};

struct ServerOptions {
    std::string socketPath = kitdir::DefaultCmdSocket();
    std::string dbPath;  // SQLite file shared with the analysis service (own tables)
    std::string resultDir = kitdir::DefaultResultDir();  // where history-query result files are written
    FaultOptions faults;
    // Faults switched at run time (the control API; start-up --cmd-fault-* options stay in faults).
    std::shared_ptr<faults::FaultTable> faultTable = std::make_shared<faults::FaultTable>();
    // Told of every request: the reply as sent (null when none is sent), the delay it was held for.
    std::function<void(const cmdframe::Request& request, const cmdframe::Reply* reply, int delayMs,
                       bool faulted)>
        observer;
    // Counted up by the other writers of the state file (the control API); null: there are none.
    std::shared_ptr<const std::atomic<uint64_t>> stateChanges;
};

// Takes one option (name with or without leading "--"); false when the option is not ours or its
// value is not valid for it.
bool ParseOption(const std::string& name, const std::string& value, ServerOptions* opts);
std::string OptionsHelp();

// A running server. Its state is private to the server's own file; destroying it (or StopServer)
// stops serving and closes the database.
class Server {
public:
    struct State;
    explicit Server(std::unique_ptr<State> state);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

private:
    std::unique_ptr<State> state_;
};
// Opens the database (creating and seeding it on first start), binds the socket and serves on its
// own thread. Null with *error set when any of that fails.
std::unique_ptr<Server> StartServer(const ServerOptions& opts, std::string* error);
void StopServer(std::unique_ptr<Server> server);

}  // namespace cmdchan

#endif
