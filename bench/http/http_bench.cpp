// http_bench: throughput and latency of the module's resources through the access server, each
// beside the server's cheapest answer (the 404 of an unknown resource) measured just before it, with
// keep-alive connections that each send their next request as soon as the answer is in. Every
// answer's status and body are held to the answer fetched before the load: a wrong byte fails the run.
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

using namespace vks_bench;

namespace {

const int64_t kLoadNs = 1500000000;  // each load lasts 1.5 s

struct Load {
    const char* name;
    std::string target;
    int connections;
};

struct LoadResult {
    double perSecond = 0;
    double p50Ms = 0;
    double p99Ms = 0;
    long wrong = 0;
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

// Drives every connection from this one thread: the client must cost far less than the server.
LoadResult RunLoad(uint16_t port, const Load& load, int status, const std::string& body) {
    const std::string request = "GET " + load.target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    std::vector<Conn> conns(static_cast<size_t>(load.connections));
    std::vector<pollfd> fds;
    std::vector<double> latencies;
    latencies.reserve(200000);
    LoadResult r;
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
    while (open > 0 && r.wrong == 0 && NowNs() - start < 4 * kLoadNs) {
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
            if (now - start < kLoadNs) {
                c.sentAt = now;
                send(c.fd, request.data(), request.size(), MSG_NOSIGNAL);
            } else {
                fds[i].fd = -1;
                --open;
            }
        }
    }
    const double seconds = static_cast<double>(NowNs() - start) / 1e9;
    for (Conn& c : conns) {
        if (c.fd >= 0) {
            close(c.fd);
        }
    }
    r.perSecond = static_cast<double>(latencies.size()) / seconds;
    std::sort(latencies.begin(), latencies.end());
    if (!latencies.empty()) {
        r.p50Ms = latencies[latencies.size() / 2];
        r.p99Ms = latencies[latencies.size() * 99 / 100];
    }
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

bool Measure(uint16_t port, const Load& load, int status, LoadResult* out) {
    std::string body;
    if (!Reference(port, load, status, &body)) {
        return false;
    }
    *out = RunLoad(port, load, status, body);
    if (out->wrong != 0) {
        fprintf(stderr, "http_bench: %s: %ld answers with another status or body, or lost\n", load.name,
                out->wrong);
        return false;
    }
    if (status == 200) {  // the floor's latencies are in the table once per load: context only
        printf("metric %s_p50_ms %.3f\nmetric %s_p99_ms %.3f\n", load.name, out->p50Ms, load.name,
               out->p99Ms);
    }
    return true;
}

}  // namespace

// Arguments, if any, name the loads to run (for profiling one of them); none runs them all.
int main(int argc, char** argv) {
    if (!EnterPrivateMountNamespace("http_bench")) {
        return 1;
    }
    vks_test::ScratchDir dir;
    vks_test::ChildProcess emulator;
    vks_test::ChildProcess server;
    uint16_t port = 0;
    if (!StartKit("http_bench", dir, {}, &emulator, {}, &server, &port)) {
        return 1;
    }
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
    bool ok = true;
    std::vector<double> perSecond;
    for (const Load& load : loads) {
        if (argc > 1 && std::find_if(argv + 1, argv + argc, [&](const char* a) {
                            return load.name == std::string(a);
                        }) == argv + argc) {
            continue;
        }
        Load floor = {"404", api + "NoSuchResource", load.connections};
        LoadResult f;
        LoadResult m;
        ok = ok && Measure(port, floor, 404, &f) && Measure(port, load, 200, &m);
        if (ok) {
            printf("metric %s/404 %.3f floor=%.0freq/s  (%.0f req/s, %d connections)\n", load.name,
                   m.perSecond / f.perSecond, f.perSecond, m.perSecond, load.connections);
            perSecond.push_back(m.perSecond);
        }
    }
    if (ok && perSecond.size() == loads.size()) {
        printf("metric enable_async/enable_sync %.3f floor=%.0freq/s  (%.0f req/s)\n",
               perSecond[2] / perSecond[3], perSecond[3], perSecond[2]);
    }
    ok = server.Stop(SIGTERM, 20000) == 0 && ok;
    emulator.Stop(SIGTERM, 20000);
    return ok ? 0 : 1;
}
