// vks_emulator: the camera emulator daemon. Prints "vks_emulator: ready" once both services answer,
// serves until SIGINT or SIGTERM, then stops the command channel and unmounts.
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <sys/mount.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <thread>

#include "analysis_service.h"
#include "daemon_options.h"
#include "journal_decode.h"
#include "kit_dir.h"
#include "scenario.h"
#include "srvfs/file_system.h"
#include "srvfs/mount_point.h"

namespace {

int Fail(const std::string& what) {
    fprintf(stderr, "vks_emulator: %s\n", what.c_str());
    return 1;
}

// The control port, with the journal fed by both roads and the faults both consult.
// Its changes to the state count up stateChanges, which the services' in-memory copies watch.
std::unique_ptr<control::ControlServer> StartControl(const DaemonOptions& options,
                                                     analysis::AnalysisService* service,
                                                     cmdchan::ServerOptions* cmd,
                                                     std::shared_ptr<std::atomic<uint64_t>> stateChanges,
                                                     std::string* error) {
    control::ControlTargets targets{options.faults, options.cmdFaults,
                                    std::make_shared<control::Journal>(options.control.journalSize),
                                    stateChanges};
    cmd->stateChanges = stateChanges;
    std::shared_ptr<control::Journal> journal = targets.journal;
    service->SetObserver([journal](const analysis::Request& request, bool decoded,
                                   const analysis::ReplySpec* reply, int delayMs, bool faulted) {
        journal->Add(JOURNAL_ROAD_DXMP, request.uri,
                     control::DescribeDxmp(request, decoded, reply, delayMs, faulted));
    });
    cmd->observer = [journal](const cmdframe::Request& request, const cmdframe::Reply* reply, int delayMs,
                              bool faulted) {
        journal->Add(JOURNAL_ROAD_CMD, static_cast<int>(request.cmd),
                     control::DescribeCommand(request, reply, delayMs, faulted));
    };
    control::ControlOptions controlOptions = options.control;
    controlOptions.dbPath = options.dbPath;
    return control::ControlServer::Start(controlOptions, targets, error);
}

// Both folders are checked before anything is mounted, so that a refusal changes nothing.
int CheckFolders(const cmdchan::ServerOptions& cmd) {
    std::string error;
    if (kitdir::EnsurePrivateFolder(kitdir::FolderOf(cmd.socketPath), &error) != 0) {
        return Fail("socket " + error);
    }
    if (kitdir::EnsurePrivateFolder(cmd.resultDir, &error) != 0) {
        return Fail("result " + error);
    }
    return 0;
}

// A second signal while the first stop still waits (a delayed reply, a client that holds on): the
// mount is detached, so its clients see it end at once, and the process leaves without waiting.
// A command that ran but was not answered was never acknowledged, and SQLite keeps its file whole.
void StopAtOnceOnSecondSignal(const sigset_t& stopSignals, const std::string& mountPoint) {
    std::thread([stopSignals, mountPoint] {
        int signal = 0;
        sigwait(&stopSignals, &signal);
        fprintf(stderr, "vks_emulator: signal %d again, stopping at once\n", signal);
        umount2(mountPoint.c_str(), MNT_DETACH);  // where it fails, the next start clears the mount
        _exit(0);
    }).detach();
}

// The scenario file before any service reads the state; the fault options of the command line
// stay, over the scenario's faults.
bool LoadScenario(const DaemonOptions& options, std::string* error) {
    std::map<int, faults::Fault> given[] = {options.faults->List(), options.cmdFaults->List()};
    if (!control::LoadScenarioFile(options.scenarioPath, options.dbPath,
                                   {options.faults.get(), options.cmdFaults.get()}, error)) {
        return false;
    }
    for (const auto& f : given[0]) {
        options.faults->Set(f.first, f.second);
    }
    for (const auto& f : given[1]) {
        options.cmdFaults->Set(f.first, f.second);
    }
    return true;
}

int Serve(const DaemonOptions& options, const sigset_t& stopSignals) {
    std::string error;
    std::string note;
    if (options.dbPath.empty()) {
        return Fail("no state file: this user has neither $XDG_STATE_HOME nor $HOME; give --db=PATH");
    }
    if (CheckFolders(options.cmd) != 0) {
        return 1;
    }
    if (srvfs::PrepareMountPoint(options.mountPoint, &note, &error) != 0) {
        return Fail(error);
    }
    if (!note.empty()) {
        fprintf(stderr, "vks_emulator: %s\n", note.c_str());
    }
    if (!options.scenarioPath.empty() && !LoadScenario(options, &error)) {
        return Fail(error);
    }
    std::shared_ptr<analysis::AnalysisStore> store = analysis::AnalysisStore::Open(options.dbPath, &error);
    if (store == nullptr) {
        return Fail("state: " + error);
    }
    srvfs::MountOptions mount;
    mount.mountPoint = options.mountPoint;
    mount.ioUring = options.ioUring;
    std::unique_ptr<srvfs::FileSystem> fs = srvfs::FileSystem::Mount(mount, &error);
    if (fs == nullptr) {
        return Fail(error);
    }
    auto service = std::make_shared<analysis::AnalysisService>(store, options.faults);
    cmdchan::ServerOptions cmd = options.cmd;
    cmd.faultTable = options.cmdFaults;
    std::unique_ptr<control::ControlServer> controlPort;
    if (options.control.port >= 0) {
        auto stateChanges = std::make_shared<std::atomic<uint64_t>>(0);
        store->WatchChanges(stateChanges);
        controlPort = StartControl(options, service.get(), &cmd, stateChanges, &error);
        if (controlPort == nullptr) {
            return Fail(error);
        }
    }
    fs->AddService(ANALYSIS_SERVICE_NAME, service);
    std::unique_ptr<cmdchan::Server> commands = cmdchan::StartServer(cmd, &error);
    if (commands == nullptr) {
        return Fail("command channel: " + error);  // fs unmounts on the way out
    }
    if (controlPort != nullptr) {
        printf("vks_emulator: control on http://127.0.0.1:%u/\n", controlPort->Port());
    }
    printf("vks_emulator: ready\n");
    fflush(stdout);
    int signal = 0;
    sigwait(&stopSignals, &signal);
    fprintf(stderr, "vks_emulator: signal %d, stopping\n", signal);
    StopAtOnceOnSecondSignal(stopSignals, options.mountPoint);
    cmdchan::StopServer(std::move(commands));
    fs->Unmount();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    DaemonOptions options;
    std::string error;
    if (ParseDaemonOptions(argc, argv, &options, &error) != 0) {
        fprintf(stderr, "vks_emulator: %s\n%s", error.c_str(), DaemonUsage().c_str());
        return 2;
    }
    if (options.help) {
        printf("%s", DaemonUsage().c_str());
        return 0;
    }
    // Blocked before any thread starts, so every thread inherits the mask and only sigwait sees them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    // Every thread of the emulator serves clients that wait for it. As batch threads (each thread
    // inherits the policy from here) they never preempt on wake-up: a client that wakes its server
    // runs on until it waits for the answer, and the server then takes all that is queued in one
    // go (a FUSE release and the next open with one context switch, not two). A hint: everything
    // works without it.
    sched_param batch{};
    sched_setscheduler(0, SCHED_BATCH, &batch);
    return Serve(options, stopSignals);
}
