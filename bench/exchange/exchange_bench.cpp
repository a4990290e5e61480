// exchange_bench: each road's exchange beside its floor, in one run.
//   service file system: the module's SyncBlockDXMPMsgInteraction for the capacity request against
//     the emulator, beside open / 3 ioctls / write / read / close of the same sizes on FuseFloor;
//   command channel: GetCommon of the history switch against the emulator (one handle, reused), beside
//     one request and reply of the same sizes over a unix socket with a peer that only answers.
// Rounds alternate the sides; each side's time per exchange is that of its fastest round (the one
// other processes on the shared machine disturbed least). Everything runs on one CPU, the emulator
// included: on two virtual CPUs each exchange's cost was decided by whether the peer's wake-up
// crossed to the other CPU (an inter-processor interrupt, tens of microseconds in this VM), and a
// ratio swung between 0.5 and 7 from run to run. On one CPU both sides pay the same context
// switches and the ratio is the work each does. Beside each ratio: the system calls and context
// switches per exchange of the emulator and of the floor server, and of the client (task_counts.h).
// Prints "metric <name> <value>" lines for bench/run.sh, the absolute times as context. Needs root.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "bench_kit.h"
#include "dxmp_message.h"
#include "fuse_floor.h"
#include "srvfs_ioctl.h"
#include "task_counts.h"
#include "unix_cmd_channel.h"
#include "vksapi_dxmp_comm.h"
#include "vks_multi_task_records.h"

using namespace vks_bench;

namespace {

const int kRounds = 15;
const int kPerRound = 200;
const size_t kCmdHeaderLen = 16;  // command-channel frame header

using ExchangeFn = int (*)(dxmp_message*, DXMPMsgData*);
using Step = std::function<bool()>;

// One side of a pair: an exchange, and who serves it (the client is this thread).
struct Side {
    Step step;
    Task server;
};

// A side's time per exchange in its fastest round, and what an exchange costs its server and its
// client in system calls and context switches.
struct Measured {
    double ns = 0;
    Costs server;
    Costs client;
};

bool Run(const Step& step, int n) {
    for (int i = 0; i < n; ++i) {
        if (!step()) {
            return false;
        }
    }
    return true;
}

// Time per call of each side in its fastest round, rounds interleaved; the context switches of
// every round, read between rounds; then the system calls, in a pass of their own under strace.
bool Compare(const Side& floor, const Side& exchange, Measured out[2]) {
    const Side* sides[2] = {&floor, &exchange};
    const Task client = ThisThread();
    std::vector<double> ns[2];
    uint64_t switches[2][2] = {{0, 0}, {0, 0}};  // [side][server, client]
    for (int round = 0; round < kRounds; ++round) {
        for (int side = 0; side < 2; ++side) {
            uint64_t server0 = ContextSwitches(sides[side]->server);
            uint64_t client0 = ContextSwitches(client);
            int64_t start = NowNs();
            if (!Run(sides[side]->step, kPerRound)) {
                fprintf(stderr, "exchange_bench: the %s failed\n", side == 0 ? "floor" : "exchange");
                return false;
            }
            ns[side].push_back(static_cast<double>(NowNs() - start) / kPerRound);
            switches[side][0] += ContextSwitches(sides[side]->server) - server0;
            switches[side][1] += ContextSwitches(client) - client0;
        }
    }
    const double exchanges = kRounds * kPerRound;
    for (int side = 0; side < 2; ++side) {
        Measured& m = out[side];
        m.ns = *std::min_element(ns[side].begin(), ns[side].end());
        m.server.switches = static_cast<double>(switches[side][0]) / exchanges;
        m.client.switches = static_cast<double>(switches[side][1]) / exchanges;
        std::vector<double> calls;
        if (!CallsPerUnit(
                {sides[side]->server, client}, [&](int n) { return Run(sides[side]->step, n); }, kPerRound,
                &calls)) {
            return false;
        }
        m.server.calls = calls[0];
        m.client.calls = calls[1];
    }
    return true;
}

// The ratio of the times, the floor's time, and per exchange the server's and the client's system
// calls and context switches, each as ours:floor's.
void Report(const char* name, const Measured m[2]) {
    const Measured& f = m[0];
    const Measured& e = m[1];
    printf(
        "metric %s %.3f floor=%.1fus calls=%.2f:%.2f switches=%.2f:%.2f client_calls=%.2f:%.2f "
        "client_switches=%.2f:%.2f  (exchange %.1f us)\n",
        name, e.ns / f.ns, f.ns / 1000.0, e.server.calls, f.server.calls, e.server.switches,
        f.server.switches, e.client.calls, f.client.calls, e.client.switches, f.client.switches,
        e.ns / 1000.0);
}

// What the goals hold the server to: no more calls and no more context switches per exchange than
// the floor server's, each count taken to a tenth (a preemption by another process every twenty
// exchanges is not the server's doing).
void ReportCountGoals(const char* road, const Measured m[2]) {
    auto tenths = [](double count) { return std::round(count * 10.0) / 10.0; };
    printf("metric %s_calls_over_floor %.1f\nmetric %s_switches_over_floor %.1f\n", road,
           tenths(m[1].server.calls) - tenths(m[0].server.calls), road,
           tenths(m[1].server.switches) - tenths(m[0].server.switches));
}

// Moves all len bytes with io (read or write), false on end of file or error.
template <typename Byte, typename Io>
bool Full(Io io, int fd, Byte* p, size_t len) {
    while (len > 0) {
        ssize_t n = io(fd, p, len);
        if (n <= 0) {
            return false;
        }
        p += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

bool ReadFull(int fd, uint8_t* p, size_t len) {
    return Full(read, fd, p, len);
}

bool WriteFull(int fd, const uint8_t* p, size_t len) {
    return Full(write, fd, p, len);
}

std::vector<uint8_t> Encoded(dxmp_message* msg) {
    uint32_t len = 0;
    uint8_t* frame = dxmp_message_encode(msg, &len);
    std::vector<uint8_t> bytes(frame, frame + (frame != nullptr ? len : 0));
    free(frame);
    return bytes;
}

// The capacity request as the module sends it: one channel-ID item, no content.
DXMPMsgData CapacityRequest(const uint64_t* channel) {
    return {{DXMP_ITEM_CHANNEL_ID, channel, sizeof(*channel)},
            nullptr,
            0,
            VKS_URI_CAPACITY_LIST,
            DXMP_METHOD_GET};
}

bool ServiceFsRoad(ExchangeFn exchange, const std::string& floorDir, Task emulator) {
    const uint64_t channel = 101;
    DXMPMsgData data = CapacityRequest(&channel);
    dxmp_message* msg = dxmp_message_new(0);
    dxmp_header_set(msg, DXMP_ITEM_CHANNEL_ID, &channel, sizeof(channel));
    std::vector<uint8_t> request = Encoded(msg);
    dxmp_header_clear(msg);
    bool ok = exchange(msg, &data) == 0;
    void* content = nullptr;
    uint32_t contentLen = 0;
    ok = ok && dxmp_content(msg, &content, &contentLen) == 0 && contentLen == sizeof(_VW_CapacityList_S);
    std::vector<uint8_t> reply = Encoded(msg);
    dxmp_message_put(msg);
    FuseFloor floor;
    if (!ok || request.empty() || mkdir(floorDir.c_str(), 0755) != 0 || !floor.Mount(floorDir, reply)) {
        fprintf(stderr, "exchange_bench: no capacity reply from the emulator, or the floor did not mount\n");
        return false;
    }
    const std::string file = floorDir + "/f";
    std::vector<uint8_t> in(reply.size());
    Step floorStep = [&] {
        int fd = open(file.c_str(), O_RDWR);
        bool done = fd >= 0 && ioctl(fd, SRVFS_CONN_SETTIMEOUT, 30000UL) == 0 &&
                    ioctl(fd, SRVFS_BUFF_SETRDSIZE, 65536UL) == 0 &&
                    ioctl(fd, SRVFS_BUFF_SETWRSIZE, 65536UL) == 0 &&
                    write(fd, request.data(), request.size()) == static_cast<ssize_t>(request.size()) &&
                    read(fd, in.data(), in.size()) == static_cast<ssize_t>(in.size());
        return close(fd) == 0 && done && in == reply;
    };
    Step moduleStep = [&] {
        dxmp_message* m = dxmp_message_new(0);
        void* c = nullptr;
        uint32_t len = 0;
        bool done =
            exchange(m, &data) == 0 && dxmp_content(m, &c, &len) == 0 && len == sizeof(_VW_CapacityList_S);
        dxmp_message_put(m);
        return done;
    };
    Measured sides[2];
    if (!Compare({floorStep, floor.Server()}, {moduleStep, emulator}, sides)) {
        return false;
    }
    printf("service file system: request %zu bytes, reply %zu bytes\n", request.size(), reply.size());
    Report("srvfs_exchange/fuse_floor", sides);
    ReportCountGoals("srvfs", sides);
    // The module's side alone: the same exchange against the floor mounted over /mnt/srvfs, which
    // answers with the emulator's reply, so what is left above 1 is the client's own work.
    FuseFloor over;
    if (!over.Mount("/mnt/srvfs", reply) ||
        !Compare({floorStep, floor.Server()}, {moduleStep, over.Server()}, sides)) {
        fprintf(stderr, "exchange_bench: the floor did not mount over /mnt/srvfs\n");
        return false;
    }
    Report("srvfs_client_only/fuse_floor", sides);
    return true;
}

// Peer of the socket floor: reads each whole request frame and answers replyLen bytes at once. A
// frame that is there whole is read with one call, as the least a server can do: the buffer holds
// the longest frame, and a read that ends short of the frame is followed by another.
void FloorPeer(int listener, size_t replyLen, std::atomic<pid_t>* tid) {
    *tid = ThisThread().tid;
    int fd = accept(listener, nullptr, nullptr);
    std::vector<uint8_t> buf(kCmdHeaderLen + VW_CMD_BODY_LEN);
    std::vector<uint8_t> reply(replyLen, 0x5a);
    size_t have = 0;
    for (bool open = fd >= 0; open;) {
        ssize_t n = read(fd, buf.data() + have, buf.size() - have);
        open = n > 0;
        have += open ? static_cast<size_t>(n) : 0;
        uint32_t len = 0;
        if (open && have >= kCmdHeaderLen) {
            memcpy(&len, buf.data() + 12, sizeof(len));
            open = len <= VW_CMD_BODY_LEN && have <= kCmdHeaderLen + len;
        }
        if (open && have == kCmdHeaderLen + len) {
            have = 0;
            open = WriteFull(fd, reply.data(), reply.size());
        }
    }
    if (fd >= 0) {
        close(fd);
    }
}

int ConnectUnix(const std::string& path, bool listen) {
    sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    auto* sa = reinterpret_cast<sockaddr*>(&addr);
    bool ok =
        listen ? bind(fd, sa, sizeof(addr)) == 0 && ::listen(fd, 1) == 0 : connect(fd, sa, sizeof(addr)) == 0;
    if (!ok && fd >= 0) {
        close(fd);
        fd = -1;
    }
    return fd;
}

bool CommandRoad(const std::string& cmdSocket, const std::string& floorSocket, Task emulator) {
    tagUNIX_SOCKET_S* sock = UnixSocketOpen(cmdSocket.c_str(), 5000);
    tagHTTP_HEADER_S header;
    memset(&header, 0, sizeof(header));
    vwCmdBody body;
    memset(&body, 0, sizeof(body));
    const uint64_t channel = 101;
    memcpy(body.data, &channel, sizeof(channel));
    Step moduleStep = [&] {
        void* record = nullptr;
        bool done = GetCommon(&header, sock, VW_CMD_HISTORY_SWITCH, &body, &record, 0, "/tmp/A") == 0 &&
                    record != nullptr && memcmp(record, &channel, sizeof(channel)) == 0;
        free(record);
        return done;
    };
    const size_t replyLen = kCmdHeaderLen + VW_CMD_HISTORY_SWITCH_RECORD_LEN;
    int listener = ConnectUnix(floorSocket, true);
    std::atomic<pid_t> peerTid{0};
    std::thread peer(FloorPeer, listener, replyLen, &peerTid);
    int fd = ConnectUnix(floorSocket, false);
    std::vector<uint8_t> request(kCmdHeaderLen + VW_CMD_BODY_LEN, 0);
    uint32_t len = VW_CMD_BODY_LEN;
    memcpy(request.data() + 12, &len, sizeof(len));
    std::vector<uint8_t> reply(replyLen);
    Step floorStep = [&] {
        return WriteFull(fd, request.data(), request.size()) && ReadFull(fd, reply.data(), reply.size()) &&
               reply[0] == 0x5a;
    };
    Measured sides[2];
    bool ok = fd >= 0 && moduleStep() && floorStep() &&
              Compare({floorStep, {getpid(), peerTid.load()}}, {moduleStep, emulator}, sides);
    if (fd >= 0) {
        shutdown(fd, SHUT_RDWR);
        close(fd);
    }
    shutdown(listener, SHUT_RDWR);
    peer.join();
    close(listener);
    UnixSocketClose(sock);
    if (ok) {
        printf("command channel: request %zu bytes, reply %zu bytes\n", request.size(), replyLen);
        Report("cmd_exchange/socket_floor", sides);
        ReportCountGoals("cmd", sides);
    }
    return ok;
}

}  // namespace

// --no-io-uring: the emulator serves through the FUSE device even where the kernel offers the ring.
int main(int argc, char** argv) {
    std::vector<std::string> emulatorArgs(argv + 1, argv + argc);
    if (emulatorArgs.size() > 1 || (argc == 2 && emulatorArgs[0] != "--no-io-uring")) {
        fprintf(stderr, "usage: %s [--no-io-uring]\n", argv[0]);
        return 2;
    }
    if (!EnterPrivateMountNamespace("exchange_bench") || !StayOnOneCpu("exchange_bench")) {
        return 1;
    }
    vks_test::ScratchDir dir;
    vks_test::ChildProcess emulator;
    if (!StartKit("exchange_bench", dir, emulatorArgs, &emulator, {}, nullptr, nullptr)) {
        return 1;
    }
    void* module = dlopen(vks_test::LibraryPath("libvksapiMultiTaskApp.so").c_str(), RTLD_NOW);
    auto exchange = module != nullptr
                        ? reinterpret_cast<ExchangeFn>(dlsym(module, "SyncBlockDXMPMsgInteraction"))
                        : nullptr;
    const Task served = {emulator.Pid(), 0};
    bool ok = exchange != nullptr && ServiceFsRoad(exchange, dir.File("floor"), served) &&
              CommandRoad(vks_test::EmulatorFilesIn(dir).cmdSocket, dir.File("floor.sock"), served);
    if (exchange == nullptr) {
        fprintf(stderr, "exchange_bench: cannot load the module: %s\n", dlerror());
    }
    emulator.Stop(SIGTERM, 20000);
    return ok ? 0 : 1;
}
