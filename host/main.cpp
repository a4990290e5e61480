// vks_access_server: serves the plug-in module's resources over HTTP on this machine.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "access_server.h"
#include "kit_dir.h"
#include "logging.h"
#include "module_table.h"
#include "options.h"
#include "vw_log.h"

using namespace vks_host;

namespace {

int Serve(const HostOptions& options, const ModuleTable& module) {
    AccessServer server;
    std::string err;
    int rc = StartAccessServer(&server, options, &module, &err);
    if (rc == 0) {
        printf("vks_access_server: listening on %s://%s:%u (module %s, %d workers%s)\n",
               options.tlsCert.empty() ? "http" : "https", options.listenHost.c_str(), server.boundPort,
               options.modulePath.c_str(), options.workers,
               options.authFile.empty() ? "" : ", login required");
        fflush(stdout);
        rc = RunAccessServer(&server);
    } else {
        fprintf(stderr, "vks_access_server: %s\n", err.c_str());
    }
    size_t abandoned = StopAccessServer(&server);
    if (abandoned > 0) {
        // Those requests were never answered, so never acknowledged: nothing they did is owed to
        // anyone. Waiting for the module to return would break the drain bound.
        printf("vks_access_server: stopped, %zu requests left inside the module\n", abandoned);
        fflush(nullptr);
        _exit(rc == 0 ? 0 : 1);
    }
    return rc;
}

}  // namespace

int main(int argc, char** argv) {
    HostOptions options;
    std::string err;
    ParseOutcome parsed = ParseHostOptions(argc, argv, &options, &err);
    if (parsed != kOptionsOk) {
        if (parsed == kOptionsBad) {
            fprintf(stderr, "vks_access_server: %s\n", err.c_str());
        }
        fputs(HostUsage(argv[0]).c_str(), parsed == kOptionsHelp ? stdout : stderr);
        return parsed == kOptionsHelp ? 0 : 2;
    }
    if (kitdir::EnsurePrivateFolder(kitdir::FolderOf(options.cmdSocket), &err) != 0) {
        fprintf(stderr, "vks_access_server: socket %s\n", err.c_str());
        return 1;
    }
    if (ConfigureLogging(options.debugLevel, options.oplogPath, &err) != 0) {
        fprintf(stderr, "vks_access_server: %s\n", err.c_str());
        return 1;
    }
    ModuleTable module{};
    int rc = LoadModule(options.modulePath.c_str(), &module, &err);
    if (rc != 0) {
        fprintf(stderr, "vks_access_server: cannot load %s: %s\n", options.modulePath.c_str(), err.c_str());
    } else {
        ApplyDebugSwitches(module, options.debugLevel);
        rc = Serve(options, module);
        UnloadModule(&module);
    }
    VW_SetOpLogFile(nullptr);
    if (rc == 0) {
        printf("vks_access_server: stopped\n");
    }
    return rc == 0 ? 0 : 1;
}
