#include "bench_kit.h"

#include "own_namespace.h"

#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vks_bench {

bool EnterPrivateMountNamespace(const char* program) {
    std::string why = vks_test::EnterOwnMountNamespace();
    if (!why.empty()) {
        fprintf(stderr, "%s: cannot enter a mount namespace of its own: %s\n", program, why.c_str());
        return false;
    }
    signal(SIGPIPE, SIG_IGN);
    return true;
}

namespace {

bool WriteProcFile(const char* path, int value) {
    FILE* f = fopen(path, "w");
    bool ok = f != nullptr && fprintf(f, "%d\n", value) > 0;
    return f != nullptr && fclose(f) == 0 && ok;
}

}  // namespace

bool EnterPrivateNetwork(const char* program, int backlog) {
    int fd = -1;
    struct ifreq lo;
    memset(&lo, 0, sizeof(lo));
    snprintf(lo.ifr_name, sizeof(lo.ifr_name), "lo");
    bool ok = unshare(CLONE_NEWNET) == 0 && (fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) >= 0 &&
              ioctl(fd, SIOCGIFFLAGS, &lo) == 0 &&
              ((lo.ifr_flags |= IFF_UP), ioctl(fd, SIOCSIFFLAGS, &lo) == 0) &&
              WriteProcFile("/proc/sys/net/core/somaxconn", backlog) &&
              WriteProcFile("/proc/sys/net/ipv4/tcp_max_syn_backlog", backlog);
    int saved = errno;
    if (fd >= 0) {
        close(fd);
    }
    if (!ok) {
        fprintf(stderr, "%s: cannot set up a network namespace of its own: %s\n", program, strerror(saved));
    }
    return ok;
}

bool StayOnOneCpu(const char* program) {
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof(allowed), &allowed) == 0) {
        for (int cpu = CPU_SETSIZE - 1; cpu >= 0; --cpu) {
            if (CPU_ISSET(cpu, &allowed)) {
                cpu_set_t one;
                CPU_ZERO(&one);
                CPU_SET(cpu, &one);
                if (sched_setaffinity(0, sizeof(one), &one) == 0) {
                    printf("%s: every process of this run on CPU %d\n", program, cpu);
                    return true;
                }
                break;
            }
        }
    }
    fprintf(stderr, "%s: cannot bind to one CPU: %s\n", program, strerror(errno));
    return false;
}

bool StartKit(const char* program, const vks_test::ScratchDir& dir,
              const std::vector<std::string>& emulatorArgs, vks_test::ChildProcess* emulator,
              const std::vector<std::string>& serverArgs, vks_test::ChildProcess* server, uint16_t* port) {
    vks_test::EmulatorFiles files = vks_test::EmulatorFilesIn(dir);
    std::string err;
    bool ok = vks_test::StartEmulator(emulator, files, emulatorArgs, &err);
    if (ok && server != nullptr) {
        std::vector<std::string> args = {"--cmd-socket", files.cmdSocket};
        args.insert(args.end(), serverArgs.begin(), serverArgs.end());
        ok = vks_test::StartAccessServer(server, vks_test::LibraryPath("libvksapiMultiTaskApp.so"), args,
                                         dir.File("server.out"), port, &err);
    }
    if (!ok) {
        fprintf(stderr, "%s: %s\n", program, err.c_str());
    }
    return ok;
}

double Median(std::vector<double> values) {
    if (values.empty()) {
        return 0.0;
    }
    std::sort(values.begin(), values.end());
    size_t mid = values.size() / 2;
    return values.size() % 2 == 1 ? values[mid] : (values[mid - 1] + values[mid]) / 2.0;
}

int64_t NowNs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace vks_bench
