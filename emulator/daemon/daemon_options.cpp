#include "daemon_options.h"

#include <cstdlib>

#include "command_table.h"
#include "kit_dir.h"
#include "web_files.h"

namespace {

// Offers one option to whoever knows it: the daemon itself, the analysis service's fault table,
// then the command-channel server.
bool ParseOne(const std::string& name, const std::string& value, DaemonOptions* options) {
    if (name == "--help" || name == "-h") {
        options->help = true;
    } else if (name == "--mount" && !value.empty()) {
        options->mountPoint = value;
    } else if (name == "--no-io-uring" && value.empty()) {
        options->ioUring = false;
    } else if (name == "--control-port" || name == "--journal-size") {
        char* end = nullptr;
        long n = strtol(value.c_str(), &end, 10);
        bool port = name == "--control-port";
        if (value.empty() || *end != '\0' || n < (port ? 0 : 1) || n > (port ? 65535 : 100000)) {
            return false;
        }
        if (port) {
            options->control.port = static_cast<int>(n);
        } else {
            options->control.journalSize = static_cast<size_t>(n);
        }
    } else if (name == "--allow-host" && !value.empty()) {
        options->control.allowHosts.push_back(value);
    } else if (name == "--scenario" && !value.empty()) {
        options->scenarioPath = value;
    } else if (name == "--web-root" && !value.empty()) {
        options->control.webRoot = value;
    } else if (name == "--db" && !value.empty()) {
        // One state file for both services, each with its own tables.
        options->dbPath = value;
        options->cmd.dbPath = value;
    } else {
        return options->faults->ParseOption(name, value) || cmdchan::ParseOption(name, value, &options->cmd);
    }
    return true;
}

// Every start-up fault names a command of its road (from the command table) or all of them.
int KnownFaultTargets(const DaemonOptions& options, std::string* error) {
    const std::pair<const char*, const faults::FaultTable*> tables[] = {
        {COMMAND_ROAD_ANALYSIS, options.faults.get()}, {COMMAND_ROAD_CMD, options.cmdFaults.get()}};
    for (const auto& table : tables) {
        for (const auto& fault : table.second->List()) {
            if (fault.first != FAULTS_ALL_COMMANDS &&
                control::FindCommand(table.first, fault.first) == nullptr) {
                *error = "no command " + std::to_string(fault.first) + " on the " + table.first + " road";
                return -1;
            }
        }
    }
    return 0;
}

}  // namespace

int ParseDaemonOptions(int argc, char** argv, DaemonOptions* options, std::string* error) {
    options->dbPath = kitdir::DefaultStateFile("emulator.db");
    options->cmd.dbPath = options->dbPath;
    options->control.webRoot = vks_web::DefaultWebRoot();
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        size_t equals = arg.find('=');
        bool ok = false;
        if (equals != std::string::npos) {
            ok = ParseOne(arg.substr(0, equals), arg.substr(equals + 1), options);
        } else if (ParseOne(arg, "", options)) {
            ok = true;  // a bare flag
        } else if (i + 1 < argc && argv[i + 1][0] != '-') {
            ok = ParseOne(arg, argv[i + 1], options);  // "--name value"
            i += ok ? 1 : 0;
        }
        if (!ok) {
            *error = "unknown option or bad value: " + arg;
            return -1;
        }
    }
    // The command channel's result and no-reply faults go to its run-time table, where the control
    // port lists and removes them; the query's own faults (bad path, shrink) stay options.
    cmdchan::FaultOptions& f = options->cmd.faults;
    if (f.result != 0 || f.noReply) {
        faults::Fault fault;
        fault.forceResult = f.result != 0;
        fault.result = f.result;
        fault.noReply = f.noReply;
        options->cmdFaults->Set(f.command, fault);
        f.result = 0;
        f.noReply = false;
    }
    return KnownFaultTargets(*options, error);
}

std::string DaemonUsage() {
    return std::string(
               "usage: vks_emulator [options]\n"
               "Camera emulator: mounts the service file system and serves the analysis service "
               "\"itgt.paas.vks\",\nand serves the command channel, until SIGINT or SIGTERM.\n"
               "Options take their value as --name=value or --name value.\n"
               "  --mount=DIR              where to mount the service file system (default /mnt/srvfs)\n"
               "  --no-io-uring            serve the service file system through the FUSE device alone, "
               "even\n"
               "                           where the kernel offers its io_uring queues\n"
               "  --db=PATH                SQLite state file, created with demo data on first start "
               "(default:\n"
               "                           /var/lib/vks-emulator/emulator.db for root, else\n"
               "                           $XDG_STATE_HOME/vks-kit/emulator.db or ~/.local/state/vks-kit/emulator.db;\n"
               "                           here: " +
               (kitdir::DefaultStateFile("emulator.db").empty() ? std::string("none, give the option")
                                                                 : kitdir::DefaultStateFile("emulator.db")) +
               ")\n"
               "  --control-port=PORT      serve the control API and console on 127.0.0.1:PORT (0: any free "
               "port; default: none)\n"
               "  --scenario=FILE          load a scenario file (state and faults, see docs/control-api.md) "
               "at "
               "start;\n"
               "                           fault options given beside it are added over its faults\n"
               "  --journal-size=N         requests the control API's journal keeps (default 500)\n"
               "  --allow-host=NAME        a name the control port answers to in Host besides 127.0.0.1,\n"
               "                           localhost and [::1] (repeatable); any other Host gets 421\n"
               "  --web-root=DIR           where the console and its OpenAPI document are read from "
               "(default: "
               "the source tree)\n"
               "  --help                   this text\n") +
           faults::FaultTable::OptionsHelp() + cmdchan::OptionsHelp();
}
