// Starting the kit's daemons from a test: the access server and the camera emulator, each with its
// own scratch files, on loopback only.
#ifndef VKS_DAEMONS_H
#define VKS_DAEMONS_H

#include <cstdint>
#include <string>
#include <vector>

#include "child_process.h"

namespace vks_test {

// Where the build put the executables and the libraries (set by the build; $VKS_BIN_DIR and
// $VKS_LIB_DIR name a copy instead).
std::string BinaryPath(const std::string& name);
std::string LibraryPath(const std::string& name);

// Starts vks_access_server on 127.0.0.1 with a free port and waits for it to listen. The port in
// *port; false with the reason (and the server's output) in *err.
bool StartAccessServer(ChildProcess* server, const std::string& modulePath,
                       const std::vector<std::string>& extraArgs, const std::string& outputPath,
                       uint16_t* port, std::string* err);

// The files one emulator instance works on.
struct EmulatorFiles {
    std::string db;
    std::string cmdSocket;
    std::string resultDir;
    std::string output;
};

// The usual files of one emulator in dir: vks.db, cmd.sock, results/, emulator.out.
EmulatorFiles EmulatorFilesIn(const ScratchDir& dir);

// Starts vks_emulator on /mnt/srvfs with the given files and waits for "vks_emulator: ready".
bool StartEmulator(ChildProcess* emulator, const EmulatorFiles& files,
                   const std::vector<std::string>& extraArgs, std::string* err);

}  // namespace vks_test

#endif
