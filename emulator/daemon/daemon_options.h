// Command line of the emulator daemon: its own options, the analysis service's faults and the
// command-channel server's options, each taken by whoever knows it.
#ifndef VKS_DAEMON_OPTIONS_H
#define VKS_DAEMON_OPTIONS_H

#include <memory>
#include <string>

#include "fault_table.h"
#include "cmd_server.h"
#include "control_server.h"

struct DaemonOptions {
    std::string mountPoint = "/mnt/srvfs";
    bool ioUring = true;  // see srvfs::MountOptions
    std::string dbPath;  // default: kitdir::DefaultStateFile("emulator.db")
    bool help = false;
    std::shared_ptr<faults::FaultTable> faults = std::make_shared<faults::FaultTable>();  // analysis service
    std::shared_ptr<faults::FaultTable> cmdFaults =
        std::make_shared<faults::FaultTable>();  // command channel
    cmdchan::ServerOptions cmd;
    control::ControlOptions control;  // off unless --control-port is given
    std::string scenarioPath;         // --scenario: loaded into the state and faults at start
};

// 0, or -1 with the offending argument in *error. Options are "--name=value", "--name value" or a
// bare "--flag".
int ParseDaemonOptions(int argc, char** argv, DaemonOptions* options, std::string* error);
std::string DaemonUsage();

#endif
