#include "cmd_server.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <mutex>
#include <thread>

#include "cmd_handlers.h"
#include "frame_server.h"
#include "result_file.h"

namespace cmdchan {

struct Server::State {
    ServerOptions opts;
    std::unique_ptr<Store> store;
    std::mutex mutex;  // connections are served concurrently; the commands run one at a time
    CommandContext ctx{};
    std::unique_ptr<FrameServer> frames;  // last: stops serving before the state it uses goes
    ~State() {
        frames.reset();
        if (ctx.resultDirFd >= 0) {
            close(ctx.resultDirFd);
        }
    }
};

Server::Server(std::unique_ptr<State> state) : state_(std::move(state)) {}

Server::~Server() = default;

namespace {

bool ParseInt(const std::string& value, int* out) {
    if (value.empty()) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    long v = strtol(value.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < INT32_MIN || v > INT32_MAX) {
        return false;
    }
    *out = static_cast<int>(v);
    return true;
}

// A flag given without a value is on.
bool ParseBool(const std::string& value, bool* out) {
    if (value.empty() || value == "1" || value == "true" || value == "on") {
        *out = true;
    } else if (value == "0" || value == "false" || value == "off") {
        *out = false;
    } else {
        return false;
    }
    return true;
}

bool FaultApplies(const FaultOptions& faults, uint32_t cmd) {
    return faults.command == 0 || static_cast<uint32_t>(faults.command) == cmd;
}

// What the run-time fault changes in an answer that was made: length, operation, named command.
void Distort(const faults::Fault& fault, const cmdframe::Request& request, cmdframe::Reply* reply) {
    if (fault.contentLength >= 0) {
        reply->payload.resize(static_cast<size_t>(fault.contentLength), 0);
    }
    if (fault.forceStatus) {
        reply->op = fault.status;
    }
    const size_t kMsgCode = offsetof(MSG_DATA, recvMsgCode);
    if (fault.wrongUri && reply->payload.size() >= kMsgCode + sizeof(int32_t)) {
        int32_t named = static_cast<int32_t>(request.cmd) + 1;
        memcpy(reply->payload.data() + kMsgCode, &named, sizeof(named));
    }
}

// Answers one request: faults first, then the command itself. False leaves it unanswered.
bool AnswerWith(Server::State* server, const faults::Fault& fault, const cmdframe::Request& request,
                cmdframe::Reply* reply) {
    const FaultOptions& faults = server->opts.faults;
    bool applies = FaultApplies(faults, request.cmd);
    if ((applies && faults.noReply) || fault.noReply) {
        return false;
    }
    // Each connection has its own thread: a delay holds only the request it was drawn for. The
    // commands themselves still run one at a time.
    std::this_thread::sleep_for(std::chrono::milliseconds(fault.delayMs));
    std::lock_guard<std::mutex> lock(server->mutex);
    int32_t forced = fault.forceResult ? fault.result : applies ? faults.result : 0;
    if (fault.forceResult || forced != 0) {
        if (request.op == cmdframe::kOpMsg) {
            FillMsgResult(request.cmd, forced, "", reply);
        } else {
            reply->result = forced;
        }
    } else {
        server->ctx.badPath = applies && faults.badPath;
        server->ctx.shrinkResult = applies && faults.shrinkFile;
        HandleCommand(&server->ctx, request, reply);
    }
    Distort(fault, request, reply);
    return true;
}

bool Answer(Server::State* server, const cmdframe::Request& request, cmdframe::Reply* reply) {
    faults::Fault fault = server->opts.faultTable != nullptr
                              ? server->opts.faultTable->Draw(static_cast<int>(request.cmd))
                              : faults::Fault{};
    bool answered = AnswerWith(server, fault, request, reply);
    if (server->opts.observer) {
        server->opts.observer(request, answered ? reply : nullptr, fault.delayMs, fault.Changes());
    }
    return answered;
}

// Opens the result folder, made private first. The descriptor is the server's from then on.
int OpenResultDir(const std::string& dir, std::string* error) {
    // Result paths travel in a 128-byte field: leave room for the file name and its NUL.
    const size_t kRoomForName = 48;
    if (dir.empty() || dir.size() + kRoomForName > sizeof(MSG_DATA::szPath)) {
        *error = "result directory empty or longer than " +
                 std::to_string(sizeof(MSG_DATA::szPath) - kRoomForName) + " bytes: " + dir;
        return -1;
    }
    int fd = -1;
    if (kitdir::EnsurePrivateFolder(dir, error) != 0 || (fd = kitdir::OpenPrivateFolder(dir, error)) < 0) {
        *error = "result " + *error;
    }
    return fd;
}

}  // namespace

bool ParseOption(const std::string& rawName, const std::string& value, ServerOptions* opts) {
    std::string name = rawName.compare(0, 2, "--") == 0 ? rawName.substr(2) : rawName;
    if (name == "cmd-socket" || name == "db" || name == "result-dir") {
        std::string& field = name == "cmd-socket" ? opts->socketPath
                             : name == "db"       ? opts->dbPath
                                                  : opts->resultDir;
        field = value;
        return !value.empty();
    }
    FaultOptions& f = opts->faults;
    if (name == "cmd-fault-command") {
        return ParseInt(value, &f.command);
    }
    if (name == "cmd-fault-result") {
        return ParseInt(value, &f.result);
    }
    if (name == "cmd-fault-no-reply") {
        return ParseBool(value, &f.noReply);
    }
    if (name == "cmd-fault-bad-path") {
        return ParseBool(value, &f.badPath);
    }
    if (name == "cmd-fault-shrink") {
        return ParseBool(value, &f.shrinkFile);
    }
    return false;
}

std::string OptionsHelp() {
    return "Command channel:\n"
           "  --cmd-socket=PATH        unix socket to serve (default: cmd.sock " +
           kitdir::DescribeDefault(kitdir::DefaultCmdSocket()) +
           ")\n"
           "  --db=PATH                SQLite state file (tables cmd_*; seeded with demo records once)\n"
           "  --result-dir=DIR         where history-query result files are written, a folder only this "
           "user\n"
           "                           may change (default: results " +
           kitdir::DescribeDefault(kitdir::DefaultResultDir()) +
           ")\n"
           "  --cmd-fault-command=N    apply the faults below to command N only (default: every command)\n"
           "  --cmd-fault-result=N     answer with result N and change nothing\n"
           "  --cmd-fault-no-reply     read requests and never answer them\n"
           "  --cmd-fault-bad-path     history query: name a result file that does not exist\n"
           "  --cmd-fault-shrink       history query: halve the result file once its size was taken\n";
}

std::unique_ptr<Server> StartServer(const ServerOptions& opts, std::string* error) {
    std::string ignored;
    std::string* why = error != nullptr ? error : &ignored;
    std::unique_ptr<Server::State> server(new Server::State);
    server->opts = opts;
    server->ctx.resultDirFd = OpenResultDir(opts.resultDir, why);
    if (server->ctx.resultDirFd < 0) {
        return nullptr;
    }
    server->store = Store::Open(opts.dbPath, why);
    if (!server->store) {
        return nullptr;
    }
    server->store->WatchChanges(opts.stateChanges);
    server->ctx.store = server->store.get();
    server->ctx.resultDir = opts.resultDir;
    Server::State* raw = server.get();
    server->frames = FrameServer::Start(
        opts.socketPath,
        [raw](const cmdframe::Request& rq, cmdframe::Reply* rp) { return Answer(raw, rq, rp); }, why);
    if (!server->frames) {
        return nullptr;
    }
    return std::unique_ptr<Server>(new Server(std::move(server)));
}

void StopServer(std::unique_ptr<Server> server) {
    server.reset();
}

}  // namespace cmdchan
