// async_bench: 256 concurrent GETs of the task-mode enable list through the access server (4
// workers) against the emulator answering after 200 ms; first without "ChannelId" (the reply is
// awaited on the event loop, no worker waits), then with it (each request holds a worker for the
// whole delay). Prints both wall times and their ratio to the ideal of one delay.
//
// Runs in a private mount namespace so that its /mnt/srvfs does not disturb a running demo.
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "daemons.h"
#include "http_client.h"

using namespace vks_test;

namespace {

struct BenchConfig {
    int requests = 256;
    int delayMs = 200;
    int workers = 4;
};

struct LoadResult {
    double wallMs;
    int ok;
};

// All clients start together and the clock stops at the last answer.
LoadResult RunLoad(uint16_t port, const std::string& target, int requests) {
    std::atomic<int> ok{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> clients;
    for (int i = 0; i < requests; ++i) {
        clients.emplace_back([&] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            HttpResponse r = HttpRequest(port, "GET", target, "", "", 120000);
            if (r.status == 200) {
                ok.fetch_add(1);
            }
        });
    }
    auto start = std::chrono::steady_clock::now();
    go.store(true);
    for (std::thread& t : clients) {
        t.join();
    }
    std::chrono::duration<double, std::milli> wall = std::chrono::steady_clock::now() - start;
    return {wall.count(), ok.load()};
}

bool EnterPrivateMountNamespace() {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        fprintf(stderr, "async_bench: cannot enter a private mount namespace: %s (needs root)\n",
                strerror(errno));
        return false;
    }
    return true;
}

bool ParseArgs(int argc, char** argv, BenchConfig* config) {
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string name = argv[i];
        if (name == "--requests") {
            config->requests = atoi(argv[i + 1]);
        } else if (name == "--delay-ms") {
            config->delayMs = atoi(argv[i + 1]);
        } else if (name == "--workers") {
            config->workers = atoi(argv[i + 1]);
        } else {
            return false;
        }
    }
    return argc % 2 == 1 && config->requests > 0 && config->requests <= 1024 && config->delayMs > 0 &&
           config->workers > 0;
}

void PrintRow(const char* way, const LoadResult& r, const BenchConfig& c) {
    printf("%-32s %8d %6d %10.1f %10.2f\n", way, c.requests, r.ok, r.wallMs, r.wallMs / c.delayMs);
}

int Measure(const BenchConfig& config, uint16_t port) {
    const std::string resource = "/api/MultiTaskAppTaskModesEnableList";
    const std::string sync = resource + "?ChannelId=101";
    if (HttpRequest(port, "GET", resource).status != 200 || HttpRequest(port, "GET", sync).status != 200) {
        fprintf(stderr, "async_bench: warm-up requests failed\n");
        return 1;
    }
    LoadResult async = RunLoad(port, resource, config.requests);
    LoadResult blocking = RunLoad(port, sync, config.requests);
    printf("%d concurrent GETs, service delay %d ms, %d workers\n", config.requests, config.delayMs,
           config.workers);
    printf("%-32s %8s %6s %10s %10s\n", "way", "requests", "200s", "wall ms", "x delay");
    PrintRow("asynchronous (no ChannelId)", async, config);
    PrintRow("synchronous (ChannelId=101)", blocking, config);
    printf("ideal: asynchronous 1.00 x delay; synchronous %.2f x delay (requests / workers)\n",
           static_cast<double>(config.requests) / config.workers);
    printf("synchronous / asynchronous: %.1f\n", blocking.wallMs / async.wallMs);
    return async.ok == config.requests && blocking.ok == config.requests ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    BenchConfig config;
    if (!ParseArgs(argc, argv, &config)) {
        fprintf(stderr, "usage: %s [--requests N] [--delay-ms MS] [--workers N]\n",
                argv[0]);
        return 2;
    }
    if (!EnterPrivateMountNamespace()) {
        return 1;
    }
    signal(SIGPIPE, SIG_IGN);
    ScratchDir dir;
    EmulatorFiles files = {dir.File("vks.db"), dir.File("cmd.sock"), dir.File("results"),
                           dir.File("emulator.out")};
    ChildProcess emulator;
    ChildProcess server;
    uint16_t port = 0;
    std::string err;
    if (!StartEmulator(&emulator, files, {"--fault-delay=1201:" + std::to_string(config.delayMs)}, &err) ||
        !StartAccessServer(&server, LibraryPath("libvksapiMultiTaskApp.so"),
                           {"--workers", std::to_string(config.workers), "--cmd-socket", files.cmdSocket},
                           dir.File("server.out"), &port, &err)) {
        fprintf(stderr, "async_bench: %s\n", err.c_str());
        return 1;
    }
    int rc = Measure(config, port);
    server.Stop(SIGTERM, 20000);
    emulator.Stop(SIGTERM, 20000);
    return rc;
}
