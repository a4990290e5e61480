#include "daemon_options.h"

int ParseDaemonOptions(int argc, char** argv, DaemonOptions* options, std::string* error) {
    options->cmd.dbPath = options->dbPath;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        size_t equals = arg.find('=');
        std::string name = arg.substr(0, equals);
        std::string value = equals == std::string::npos ? "" : arg.substr(equals + 1);
        if (name == "--help" || name == "-h") {
            options->help = true;
        } else if (name == "--mount" && !value.empty()) {
            options->mountPoint = value;
        } else if (name == "--db" && !value.empty()) {
            // One state file for both services, each with its own tables.
            options->dbPath = value;
            options->cmd.dbPath = value;
        } else if (!options->faults->ParseOption(name, value) &&
                   !cmdchan::ParseOption(name, value, &options->cmd)) {
            *error = "unknown option or bad value: " + arg;
            return -1;
        }
    }
    return 0;
}

std::string DaemonUsage() {
    return std::string(
               "usage: vks_emulator [options]\n"
               "Camera emulator: mounts the service file system and serves the analysis service "
               "\"itgt.paas.vks\",\nand serves the command channel, until SIGINT or SIGTERM.\n"
               "  --mount=DIR              where to mount the service file system (default /mnt/srvfs)\n"
               "  --db=PATH                SQLite state file, created with demo data on first start "
               "(default " VKS_EMULATOR_DEFAULT_DB
               ")\n"
               "  --help                   this text\n") +
           analysis::FaultTable::OptionsHelp() + cmdchan::OptionsHelp();
}
