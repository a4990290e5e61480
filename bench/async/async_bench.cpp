// async_bench: 256 concurrent GETs of the task-mode enable list through the access server (4
// workers) against the emulator answering after 200 ms; first without "ChannelId" (the reply is
// awaited on the event loop, no worker waits), then with it (each request holds a worker for the
// whole delay). Prints both wall times and their ratio to the ideal of one delay.
//
// Runs in a private mount namespace so that its /mnt/srvfs does not disturb a running demo.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_kit.h"
#include "http_client.h"
#include "task_counts.h"

using namespace vks_test;

namespace {

struct BenchConfig {
    int requests = 256;
    int delayMs = 200;
    int workers = 4;
    bool scale = false;  // --scale: the asynchronous way only, at zero delay and then with the delay
};

struct LoadResult {
    double wallMs;
    int ok;
    uint64_t serverSwitches = 0;  // the access server's context switches during the load (when given)
    uint64_t clientSwitches = 0;  // this thread's
};

// One connection of the load: the request still to send, then the answer as it arrives.
struct ClientConn {
    int fd = -1;
    size_t sent = 0;
    std::string answer;
};

int OpenClient(uint16_t port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in addr;
    memset(&addr, 0, sizeof(addr));
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 &&
        errno != EINPROGRESS) {
        close(fd);
        fd = -1;
    }
    return fd;
}

// Sends what is left of the request, or reads what has come; false once the connection is over.
bool Advance(ClientConn* c, const std::string& request, short revents) {
    if (c->sent < request.size()) {
        ssize_t n = send(c->fd, request.data() + c->sent, request.size() - c->sent, MSG_NOSIGNAL);
        if (n > 0) {
            c->sent += static_cast<size_t>(n);
        }
        return n > 0 || (n < 0 && errno == EAGAIN);
    }
    char buf[4096];
    ssize_t n = recv(c->fd, buf, sizeof(buf), 0);
    if (n > 0) {
        c->answer.append(buf, static_cast<size_t>(n));
        return true;
    }
    return n < 0 && errno == EAGAIN && (revents & (POLLERR | POLLHUP)) == 0;
}

// All requests go out at once from one thread that drives every connection with epoll: the load
// generator must cost far less than what it measures, which 256 client threads on two cores do not,
// nor a poll() over ten thousand descriptors for every answer. The clock stops at the last answer
// (or after two minutes).
LoadResult RunLoad(uint16_t port, const std::string& target, int requests, const std::string& body,
                   pid_t server = 0) {
    const vks_bench::Task serverTask = {server, 0};
    const uint64_t server0 = server != 0 ? vks_bench::ContextSwitches(serverTask) : 0;
    const uint64_t client0 = vks_bench::ContextSwitches(vks_bench::ThisThread());
    const std::string request = "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
    auto start = std::chrono::steady_clock::now();
    std::vector<ClientConn> conns(static_cast<size_t>(requests));
    int epoll = epoll_create1(EPOLL_CLOEXEC);
    int open = 0;
    for (ClientConn& c : conns) {
        c.fd = OpenClient(port);
        epoll_event ev = {EPOLLOUT, {&c}};
        if (c.fd >= 0 && epoll_ctl(epoll, EPOLL_CTL_ADD, c.fd, &ev) == 0) {
            ++open;
        }
    }
    std::vector<epoll_event> ready(1024);
    while (open > 0 && std::chrono::steady_clock::now() - start < std::chrono::minutes(2)) {
        int n = epoll_wait(epoll, ready.data(), static_cast<int>(ready.size()), 1000);
        for (int i = 0; i < n; ++i) {
            auto* c = static_cast<ClientConn*>(ready[i].data.ptr);
            bool sending = c->sent < request.size();
            short revents = static_cast<short>(((ready[i].events & EPOLLERR) != 0 ? POLLERR : 0) |
                                               ((ready[i].events & EPOLLHUP) != 0 ? POLLHUP : 0));
            if (!Advance(c, request, revents)) {
                close(c->fd);
                c->fd = -1;
                --open;
            } else if (sending && c->sent == request.size()) {
                epoll_event ev = {EPOLLIN, {c}};
                epoll_ctl(epoll, EPOLL_CTL_MOD, c->fd, &ev);
            }
        }
    }
    close(epoll);
    std::chrono::duration<double, std::milli> wall = std::chrono::steady_clock::now() - start;
    const uint64_t serverSwitches = server != 0 ? vks_bench::ContextSwitches(serverTask) - server0 : 0;
    const uint64_t clientSwitches = vks_bench::ContextSwitches(vks_bench::ThisThread()) - client0;
    int ok = 0;
    for (ClientConn& c : conns) {
        if (c.fd >= 0) {
            close(c.fd);
        }
        bool bodyOk = c.answer.size() >= body.size() &&
                      c.answer.compare(c.answer.size() - body.size(), body.size(), body) == 0;
        ok += c.answer.compare(0, 12, "HTTP/1.1 200") == 0 && bodyOk ? 1 : 0;
    }
    return {wall.count(), ok, serverSwitches, clientSwitches};
}

bool ParseArgs(int argc, char** argv, BenchConfig* config) {
    int i = 1;
    if (argc > 1 && std::string(argv[1]) == "--scale") {
        config->scale = true;
        ++i;
    }
    for (; i + 1 < argc; i += 2) {
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
    return i == argc && config->requests > 0 && config->requests <= 16384 && config->delayMs > 0 &&
           config->workers > 0;
}

void PrintRow(const char* way, const LoadResult& r, const BenchConfig& c) {
    printf("%-32s %8d %6d %10.1f %10.2f\n", way, c.requests, r.ok, r.wallMs, r.wallMs / c.delayMs);
}

int Measure(const BenchConfig& config, uint16_t port) {
    const std::string resource = "/api/MultiTaskAppTaskModesEnableList";
    const std::string sync = resource + "?ChannelId=101";
    HttpResponse asyncRef = HttpRequest(port, "GET", resource);
    HttpResponse syncRef = HttpRequest(port, "GET", sync);
    if (asyncRef.status != 200 || syncRef.status != 200) {
        fprintf(stderr, "async_bench: warm-up requests failed\n");
        return 1;
    }
    LoadResult async = RunLoad(port, resource, config.requests, asyncRef.body);
    LoadResult blocking = RunLoad(port, sync, config.requests, syncRef.body);
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

// A number of kB from the line "<key>: N kB" of /proc/<pid>/status, or -1.
long StatusKb(pid_t pid, const char* key) {
    FILE* f = fopen(("/proc/" + std::to_string(pid) + "/status").c_str(), "r");
    char line[256];
    long kb = -1;
    while (f != nullptr && fgets(line, sizeof(line), f) != nullptr) {
        if (strncmp(line, key, strlen(key)) == 0) {
            kb = atol(line + strlen(key) + 1);
        }
    }
    if (f != nullptr) {
        fclose(f);
    }
    return kb;
}

struct Kit {
    ScratchDir dir;
    ChildProcess emulator;
    ChildProcess server;
    uint16_t port = 0;
};

bool StartScaleKit(Kit* kit, int delayMs, int requests) {
    std::vector<std::string> emulatorArgs;
    if (delayMs > 0) {
        emulatorArgs.push_back("--fault-delay=1201:" + std::to_string(delayMs));
    }
    return vks_bench::StartKit("async_bench", kit->dir, emulatorArgs, &kit->emulator,
                               {"--max-connections", std::to_string(requests + 64)}, &kit->server,
                               &kit->port);
}

// All requests at once the asynchronous way: first against a service that answers at once (the
// per-request cost), then against one that waits delayMs, with the access server's memory growth.
int MeasureScale(const BenchConfig& config) {
    const std::string resource = "/api/MultiTaskAppTaskModesEnableList";
    // Each parked request holds two descriptors in the access server (its client, its service
    // file) and one here. The soft limit goes up to the hard one, and root raises the hard one
    // where it is lower than that; the access server inherits both.
    const rlim_t need = static_cast<rlim_t>(2 * config.requests + 256);
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max != RLIM_INFINITY && limit.rlim_max < need) {
        rlimit raised = {need, need};
        if (setrlimit(RLIMIT_NOFILE, &raised) == 0) {
            limit = raised;
        }
    }
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur < need) {
        fprintf(stderr,
                "async_bench: %d requests need %d descriptors in the access server; the limit is %lu\n",
                config.requests, 2 * config.requests + 256, static_cast<unsigned long>(limit.rlim_cur));
        return 1;
    }
    double zeroMs = 0;
    LoadResult zeroSwitches = {};
    {
        Kit kit;
        if (!StartScaleKit(&kit, 0, config.requests)) {
            return 1;
        }
        HttpResponse ref = HttpRequest(kit.port, "GET", resource);
        LoadResult zero = RunLoad(kit.port, resource, config.requests, ref.body, kit.server.Pid());
        zeroMs = zero.wallMs;
        zeroSwitches = zero;
        printf("zero delay: %d of %d answered right in %.1f ms\n", zero.ok, config.requests, zero.wallMs);
        kit.server.Stop(SIGTERM, 20000);
        kit.emulator.Stop(SIGTERM, 20000);
    }
    Kit kit;
    if (!StartScaleKit(&kit, config.delayMs, config.requests)) {
        return 1;
    }
    HttpResponse ref = HttpRequest(kit.port, "GET", resource);
    long rssBefore = StatusKb(kit.server.Pid(), "VmRSS:");
    LoadResult r = RunLoad(kit.port, resource, config.requests, ref.body, kit.server.Pid());
    long peak = StatusKb(kit.server.Pid(), "VmHWM:");
    double bound = config.delayMs + zeroMs;
    printf("delay %d ms: %d of %d answered right in %.1f ms (bound: delay + zero-delay run = %.1f ms)\n",
           config.delayMs, r.ok, config.requests, r.wallMs, bound);
    printf("metric scale_answered_right %.4f\n", static_cast<double>(r.ok) / config.requests);
    printf("metric scale_kb_per_parked_request %.2f  (server RSS %ld kB before, peak %ld kB)\n",
           static_cast<double>(peak - rssBefore) / config.requests, rssBefore, peak);
    // Context switches per request beside those of the zero-delay run: the access server's, this
    // client's.
    const double n = config.requests;
    printf(
        "metric scale_wall/bound %.3f floor=%.0fms switches=%.2f:%.2f client_switches=%.2f:%.2f  (wall %.0f "
        "ms)\n",
        r.wallMs / bound, bound, r.serverSwitches / n, zeroSwitches.serverSwitches / n, r.clientSwitches / n,
        zeroSwitches.clientSwitches / n, r.wallMs);
    int stopped = kit.server.Stop(SIGTERM, 20000);
    kit.emulator.Stop(SIGTERM, 20000);
    return r.ok == config.requests && ref.status == 200 && stopped == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    BenchConfig config;
    if (!ParseArgs(argc, argv, &config)) {
        fprintf(stderr, "usage: %s [--scale] [--requests N] [--delay-ms MS] [--workers N]\n", argv[0]);
        return 2;
    }
    if (!vks_bench::EnterPrivateMountNamespace("async_bench") ||
        !vks_bench::EnterPrivateNetwork("async_bench", 2 * config.requests + 1024)) {
        return 1;
    }
    if (config.scale) {
        return MeasureScale(config);
    }
    ScratchDir dir;
    EmulatorFiles files = {dir.File("vks.db"), dir.File("cmd.sock"), dir.File("results"),
                           dir.File("emulator.out")};
    ChildProcess emulator;
    ChildProcess server;
    uint16_t port = 0;
    std::string err;
    if (!StartEmulator(&emulator, files, {"--fault-delay=1201:" + std::to_string(config.delayMs)}, &err) ||
        !StartAccessServer(&server, LibraryPath("libvksapiMultiTaskApp.so"),
                           {"--workers", std::to_string(config.workers), "--max-workers",
                            std::to_string(config.workers), "--cmd-socket", files.cmdSocket},
                           dir.File("server.out"), &port, &err)) {
        fprintf(stderr, "async_bench: %s\n", err.c_str());
        return 1;
    }
    int rc = Measure(config, port);
    server.Stop(SIGTERM, 20000);
    emulator.Stop(SIGTERM, 20000);
    return rc;
}
