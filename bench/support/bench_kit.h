// What every kit benchmark needs: a private mount namespace, the two daemons on scratch files, and
// the median of a series of timings.
#ifndef VKS_BENCH_KIT_H
#define VKS_BENCH_KIT_H

#include <cstdint>
#include <string>
#include <vector>

#include "daemons.h"

namespace vks_bench {

// Enters a private mount namespace so that /mnt/srvfs and other mounts stay invisible to a demo
// running at the same time. False (reason on stderr) when not root.
bool EnterPrivateMountNamespace(const char* program);

// Enters a network namespace of its own with loopback up and the listen backlog limits raised to
// backlog: thousands of clients connecting at once then queue instead of having their handshakes
// dropped and retried a second later, which decided a run's time more than the server did. False
// (reason on stderr) when that fails.
bool EnterPrivateNetwork(const char* program, int backlog);

// Binds this process, and the processes and threads it starts from now on, to the last CPU it may
// run on. False (reason on stderr) when that fails.
bool StayOnOneCpu(const char* program);

// The emulator (with emulatorArgs) and, when server is not null, the access server (serverArgs
// added to --cmd-socket), on files in dir. False with the reason on stderr.
bool StartKit(const char* program, const vks_test::ScratchDir& dir,
              const std::vector<std::string>& emulatorArgs, vks_test::ChildProcess* emulator,
              const std::vector<std::string>& serverArgs, vks_test::ChildProcess* server, uint16_t* port);

double Median(std::vector<double> values);

// Monotonic clock in nanoseconds.
int64_t NowNs();

}  // namespace vks_bench

#endif
