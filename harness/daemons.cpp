#include "daemons.h"

#include <signal.h>

#include <cstdlib>
#include <sstream>

namespace vks_test {
namespace {

constexpr int kStartTimeoutMs = 20000;  // generous: the sanitizer build starts slowly

bool WaitReady(ChildProcess* child, const std::string& needle, std::string* line, std::string* err) {
    if (child->WaitForLine(needle, kStartTimeoutMs, line)) {
        return true;
    }
    *err = "no \"" + needle + "\" line; output:\n" + child->Output();
    child->Stop(SIGKILL, 5000);
    return false;
}

}  // namespace

// A copy of the build's binaries may stand in for the build (a user who cannot reach the build
// tree runs the tests from a private copy): VKS_BIN_DIR and VKS_LIB_DIR name it.
std::string BuildDir(const char* variable, const char* built) {
    const char* copy = getenv(variable);
    return copy != nullptr && copy[0] != '\0' ? copy : built;
}

std::string BinaryPath(const std::string& name) {
    return BuildDir("VKS_BIN_DIR", VKS_BIN_DIR) + "/" + name;
}

std::string LibraryPath(const std::string& name) {
    return BuildDir("VKS_LIB_DIR", VKS_LIB_DIR) + "/" + name;
}

bool StartAccessServer(ChildProcess* server, const std::string& modulePath,
                       const std::vector<std::string>& extraArgs, const std::string& outputPath,
                       uint16_t* port, std::string* err) {
    // VKS_SERVER_WRAPPER (words separated by blanks) runs the server under a tool, e.g. valgrind.
    std::vector<std::string> argv;
    std::istringstream wrapper(getenv("VKS_SERVER_WRAPPER") != nullptr ? getenv("VKS_SERVER_WRAPPER") : "");
    for (std::string word; wrapper >> word;) {
        argv.push_back(word);
    }
    argv.insert(argv.end(),
                {BinaryPath("vks_access_server"), "--module", modulePath, "--listen", "127.0.0.1:0"});
    argv.insert(argv.end(), extraArgs.begin(), extraArgs.end());
    std::string line;
    if (!server->Start(argv, outputPath, err) ||
        !WaitReady(server, "vks_access_server: listening on http://127.0.0.1:", &line, err)) {
        return false;
    }
    *port = static_cast<uint16_t>(atoi(line.c_str() + line.rfind(':') + 1));
    return true;
}

EmulatorFiles EmulatorFilesIn(const ScratchDir& dir) {
    return {dir.File("vks.db"), dir.File("cmd.sock"), dir.File("results"), dir.File("emulator.out")};
}

bool StartEmulator(ChildProcess* emulator, const EmulatorFiles& files,
                   const std::vector<std::string>& extraArgs, std::string* err) {
    std::vector<std::string> argv = {BinaryPath("vks_emulator"),
                                     "--mount",
                                     "/mnt/srvfs",
                                     "--db",
                                     files.db,
                                     "--cmd-socket",
                                     files.cmdSocket,
                                     "--result-dir",
                                     files.resultDir};
    argv.insert(argv.end(), extraArgs.begin(), extraArgs.end());
    return emulator->Start(argv, files.output, err) &&
           WaitReady(emulator, "vks_emulator: ready", nullptr, err);
}

}  // namespace vks_test
