// http_bench: throughput and latency of the module's resources through the access server, each
// beside the server's cheapest answer (the 404 of an unknown resource) measured just before it, with
// keep-alive connections that each send their next request as soon as the answer is in. Every
// answer's status and body are held to the answer fetched before the load: a wrong byte fails the run.
// Beside each ratio: the access server's and the client's system calls per request (a counting pass
// of one request at a time) and context switches per request (during the timed rounds).
// Prints "metric <name> <value>" lines for bench/run.sh. Needs root (private mount namespace).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_kit.h"
#include "http_client.h"
#include "state_admin.h"
#include "task_counts.h"

using namespace vks_bench;

namespace {

// Rounds of the floor and of the load alternate, kPairs of each, kRoundNs each: a machine that
// slows down for a while slows both sides of a pair alike, and the ratio is the median of the
// pairs' ratios (a shared two-core machine moved a ratio of two separate 1.5 s loads by 30 %).
const int kPairs = 5;
const int64_t kRoundNs = 300000000;
// Requests of the counting pass (then twice as many): one after another on one connection.
const int kCountedRequests = 100;

struct Load {
    const char* name;
    std::string target;
    int connections;
};

struct LoadResult {
    double perSecond = 0;
    std::vector<double> latenciesMs;
    long wrong = 0;
    uint64_t serverSwitches = 0;  // the access server's context switches during the load
    uint64_t clientSwitches = 0;  // this thread's
};

struct Conn {
    int fd = -1;
    std::string in;
    int64_t sentAt = 0;
};

// Length of the first whole answer in `in` (0: not yet whole), its status and body.
size_t ParseAnswer(const std::string& in, int* status, std::string* body) {
    size_t end = in.find("\r\n\r\n");
    if (end == std::string::npos || in.size() < 12) {
        return 0;
    }
    *status = atoi(in.c_str() + 9);
    size_t length = 0;
    for (size_t line = in.find("\r\n"); line < end; line = in.find("\r\n", line + 2)) {
        if (strncasecmp(in.c_str() + line + 2, "Content-Length:", 15) == 0) {
            length = strtoul(in.c_str() + line + 17, nullptr, 10);
        }
    }
    if (in.size() < end + 4 + length) {
        return 0;
    }
    body->assign(in, end + 4, length);
    return end + 4 + length;
}

int Connect(uint16_t port) {
    int fd = vks_test::HttpConnect(port, 5000);
    int one = 1;
    if (fd >= 0) {
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
    }
    return fd;
}

// Requests one after another on one keep-alive connection, for the counting pass: at one request
// at a time the calls per request do not depend on how answers happen to bunch up.
bool Sequential(uint16_t port, const std::string& target, int status, const std::string& body, int n) {
    const std::string request = "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    int fd = Connect(port);
    std::string in;
    char buf[16384];
    bool right = fd >= 0;
    for (int i = 0; right && i < n; ++i) {
        right =
            send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size());
        int gotStatus = 0;
        std::string gotBody;
        size_t used = 0;
        while (right && (used = ParseAnswer(in, &gotStatus, &gotBody)) == 0) {
            ssize_t got = recv(fd, buf, sizeof(buf), 0);
            right = got > 0;
            in.append(buf, got > 0 ? static_cast<size_t>(got) : 0);
        }
        right = right && gotStatus == status && gotBody == body && used == in.size();
        in.clear();
    }
    if (fd >= 0) {
        close(fd);
    }
    return right;
}

// Drives every connection from this one thread: the client must cost far less than the server.
LoadResult RunLoad(uint16_t port, const Task& server, const Load& load, int status, const std::string& body,
                   int64_t lengthNs) {
    const uint64_t server0 = ContextSwitches(server);
    const uint64_t client0 = ContextSwitches(ThisThread());
    const std::string request = "GET " + load.target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    std::vector<Conn> conns(static_cast<size_t>(load.connections));
    std::vector<pollfd> fds;
    LoadResult r;
    std::vector<double>& latencies = r.latenciesMs;
    latencies.reserve(200000);
    const int64_t start = NowNs();
    for (Conn& c : conns) {
        c.fd = Connect(port);
        c.sentAt = NowNs();
        if (c.fd < 0 || send(c.fd, request.data(), request.size(), MSG_NOSIGNAL) !=
                            static_cast<ssize_t>(request.size())) {
            ++r.wrong;
        }
        fds.push_back({c.fd, POLLIN, 0});
    }
    size_t open = conns.size();
    char buf[16384];
    while (open > 0 && r.wrong == 0 && NowNs() - start < 4 * lengthNs) {
        if (poll(fds.data(), fds.size(), 1000) <= 0) {
            continue;
        }
        for (size_t i = 0; i < conns.size(); ++i) {
            Conn& c = conns[i];
            if ((fds[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0) {
                continue;
            }
            ssize_t n = recv(c.fd, buf, sizeof(buf), 0);
            if (n <= 0) {
                ++r.wrong;
                break;
            }
            c.in.append(buf, static_cast<size_t>(n));
            int gotStatus = 0;
            std::string gotBody;
            size_t used = ParseAnswer(c.in, &gotStatus, &gotBody);
            if (used == 0) {
                continue;
            }
            int64_t now = NowNs();
            latencies.push_back(static_cast<double>(now - c.sentAt) / 1e6);
            r.wrong += gotStatus != status || gotBody != body || used != c.in.size() ? 1 : 0;
            c.in.clear();
            if (now - start < lengthNs) {
                c.sentAt = now;
                send(c.fd, request.data(), request.size(), MSG_NOSIGNAL);
            } else {
                fds[i].fd = -1;
                --open;
            }
        }
    }
    const double seconds = static_cast<double>(NowNs() - start) / 1e9;
    r.serverSwitches = ContextSwitches(server) - server0;
    r.clientSwitches = ContextSwitches(ThisThread()) - client0;
    for (Conn& c : conns) {
        if (c.fd >= 0) {
            close(c.fd);
        }
    }
    r.perSecond = static_cast<double>(latencies.size()) / seconds;
    r.wrong += open > 0 ? 1 : 0;
    return r;
}

// The answer every request of the load must get, fetched once before it.
bool Reference(uint16_t port, const Load& load, int status, std::string* body) {
    vks_test::HttpResponse answer = vks_test::HttpRequest(port, "GET", load.target);
    *body = answer.body;
    if (answer.status != status || answer.body.empty()) {
        fprintf(stderr, "http_bench: %s answered %d, not %d\n", load.target.c_str(), answer.status, status);
        return false;
    }
    return true;
}

// The floor's and the load's rounds in turn (each answer held to its reference), then one line:
// the median ratio of the pairs, the floor's median req/s, and the load's latency percentiles over
// all its rounds.
bool Compare(uint16_t port, const Task& server, const Load& floor, int floorStatus, const Load& load,
             const char* name) {
    std::string floorBody;
    std::string body;
    if (!Reference(port, floor, floorStatus, &floorBody) || !Reference(port, load, 200, &body)) {
        return false;
    }
    std::vector<double> ratios;
    std::vector<double> floors;
    std::vector<double> loads;
    std::vector<double> latencies;
    double answers[2] = {0, 0};
    uint64_t switches[2][2] = {{0, 0}, {0, 0}};  // [floor, load][server, client]
    for (int pair = 0; pair < kPairs; ++pair) {
        LoadResult f = RunLoad(port, server, floor, floorStatus, floorBody, kRoundNs);
        LoadResult m = RunLoad(port, server, load, 200, body, kRoundNs);
        if (f.wrong != 0 || m.wrong != 0 || f.perSecond <= 0) {
            fprintf(stderr, "http_bench: %s: answers with another status or body, or lost\n",
                    (f.wrong != 0 ? floor : load).target.c_str());
            return false;
        }
        ratios.push_back(m.perSecond / f.perSecond);
        floors.push_back(f.perSecond);
        loads.push_back(m.perSecond);
        latencies.insert(latencies.end(), m.latenciesMs.begin(), m.latenciesMs.end());
        const LoadResult* sides[2] = {&f, &m};
        for (int side = 0; side < 2; ++side) {
            answers[side] += static_cast<double>(sides[side]->latenciesMs.size());
            switches[side][0] += sides[side]->serverSwitches;
            switches[side][1] += sides[side]->clientSwitches;
        }
    }
    std::vector<double> calls[2];
    const Load* shapes[2] = {&floor, &load};
    const std::string* bodies[2] = {&floorBody, &body};
    const int statuses[2] = {floorStatus, 200};
    for (int side = 0; side < 2; ++side) {
        if (!CallsPerUnit(
                {server, ThisThread()},
                [&](int n) {
                    return Sequential(port, shapes[side]->target, statuses[side], *bodies[side], n);
                },
                kCountedRequests, &calls[side])) {
            return false;
        }
    }
    std::sort(latencies.begin(), latencies.end());
    if (floorStatus != 200) {  // latencies of the module's resources; the floor's are context only
        printf("metric %s_p50_ms %.3f\nmetric %s_p99_ms %.3f\n", load.name, latencies[latencies.size() / 2],
               load.name, latencies[latencies.size() * 99 / 100]);
    }
    // Per request, the load's beside the floor's: the access server's and this client's.
    printf(
        "metric %s %.3f floor=%.0freq/s calls=%.2f:%.2f switches=%.2f:%.2f client_calls=%.2f:%.2f "
        "client_switches=%.2f:%.2f  (%.0f req/s, %d connections, median of %d pairs of %.1f s rounds)\n",
        name, Median(ratios), Median(floors), calls[1][0], calls[0][0], switches[1][0] / answers[1],
        switches[0][0] / answers[0], calls[1][1], calls[0][1], switches[1][1] / answers[1],
        switches[0][1] / answers[0], Median(loads), load.connections, kPairs, kRoundNs / 1e9);
    return true;
}

// The demo state with every task on channel 101, written before the emulator starts: the
// synchronous way (?ChannelId=101) then answers the same four tasks as the asynchronous way, and a
// pair of the two compares the ways alone rather than one task against four.
bool SameTasksBothWays(const std::string& dbPath) {
    std::string err;
    std::unique_ptr<control::StateAdmin> state = control::StateAdmin::Open(dbPath, &err);  // the demo
    json_object* tasks = state != nullptr ? state->Read("tasks") : nullptr;
    bool ok = tasks != nullptr;
    for (size_t i = 0; ok && i < json_object_array_length(tasks); ++i) {
        json_object_object_add(json_object_array_get_idx(tasks, i), "channelId", json_object_new_int(101));
    }
    ok = ok && state->Replace("tasks", tasks, &err);
    json_object_put(tasks);
    if (!ok) {
        fprintf(stderr, "http_bench: cannot prepare the state: %s\n", err.c_str());
    }
    return ok;
}

}  // namespace

// Arguments, if any, name the loads to run (for profiling one of them); none runs them all.
// --same-tasks runs only the two ways' pair, on a state where both answer the same tasks.
int main(int argc, char** argv) {
    if (!EnterPrivateMountNamespace("http_bench")) {
        return 1;
    }
    vks_test::ScratchDir dir;
    vks_test::ChildProcess emulator;
    vks_test::ChildProcess server;
    uint16_t port = 0;
    bool sameTasks = argc == 2 && strcmp(argv[1], "--same-tasks") == 0;
    if ((sameTasks && !SameTasksBothWays(vks_test::EmulatorFilesIn(dir).db)) ||
        !StartKit("http_bench", dir, {}, &emulator, {}, &server, &port)) {
        return 1;
    }
    const Task served = {server.Pid(), 0};
    const std::string api = "/api/";
    const std::vector<Load> loads = {
        {"capacity", api + "MultiTaskAppTaskModesCapacity", 4},
        {"history", api + "MultiTaskAppHistory?ChannelId=101", 4},
        {"enable_async", api + "MultiTaskAppTaskModesEnableList", 8},
        {"enable_sync", api + "MultiTaskAppTaskModesEnableList?ChannelId=101", 8},
        {"history_records",
         api + "MultiTaskAppHistoryRecords?DatabaseType=0&EndTime=2024-05-01T23:59:59&StartIndex=0&FindNum=5",
         8},
    };
    auto wanted = [&](const char* name) {
        return argc == 1 || std::find_if(argv + 1, argv + argc, [&](const char* a) {
                                return std::string(name) == a;
                            }) != argv + argc;
    };
    bool ok = true;
    for (const Load& load : loads) {
        Load floor = {"404", api + "NoSuchResource", load.connections};
        if (ok && !sameTasks && wanted(load.name)) {
            ok = Compare(port, served, floor, 404, load, (std::string(load.name) + "/404").c_str());
        }
    }
    // The asynchronous way against the synchronous one, in rounds of their own.
    if (ok && sameTasks) {
        ok = Compare(port, served, loads[3], 200, loads[2], "enable_async/enable_sync_same_tasks");
    } else if (ok && wanted("enable_async/enable_sync")) {
        ok = Compare(port, served, loads[3], 200, loads[2], "enable_async/enable_sync");
    }
    ok = server.Stop(SIGTERM, 20000) == 0 && ok;
    emulator.Stop(SIGTERM, 20000);
    return ok ? 0 : 1;
}
