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
// switches and the ratio is the work each does. Prints "metric <name> <value>" lines for
// bench/run.sh, the absolute times as context. Needs root.
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
#include <cstdio>
#include <cstring>
#include <functional>
#include <thread>

#include "bench_kit.h"
#include "dxmp_message.h"
#include "fuse_floor.h"
#include "srvfs_ioctl.h"
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

struct Sides {
    double floorNs;
    double exchangeNs;
};

// Time per call of each side in its fastest round, rounds interleaved.
bool Compare(const Step& floor, const Step& exchange, Sides* out) {
    std::vector<double> f;
    std::vector<double> e;
    for (int round = 0; round < kRounds; ++round) {
        for (int side = 0; side < 2; ++side) {
            const Step& step = side == 0 ? floor : exchange;
            int64_t start = NowNs();
            for (int i = 0; i < kPerRound; ++i) {
                if (!step()) {
                    fprintf(stderr, "exchange_bench: the %s failed\n", side == 0 ? "floor" : "exchange");
                    return false;
                }
            }
            (side == 0 ? f : e).push_back(static_cast<double>(NowNs() - start) / kPerRound);
        }
    }
    *out = {*std::min_element(f.begin(), f.end()), *std::min_element(e.begin(), e.end())};
    return true;
}

void Report(const char* name, const Sides& s) {
    printf("metric %s %.3f floor=%.1fus  (exchange %.1f us)\n", name, s.exchangeNs / s.floorNs,
           s.floorNs / 1000.0, s.exchangeNs / 1000.0);
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

bool ServiceFsRoad(ExchangeFn exchange, const std::string& floorDir) {
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
    Sides sides;
    if (!Compare(floorStep, moduleStep, &sides)) {
        return false;
    }
    printf("service file system: request %zu bytes, reply %zu bytes\n", request.size(), reply.size());
    Report("srvfs_exchange/fuse_floor", sides);
    // The module's side alone: the same exchange against the floor mounted over /mnt/srvfs, which
    // answers with the emulator's reply, so what is left above 1 is the client's own work.
    FuseFloor over;
    if (!over.Mount("/mnt/srvfs", reply) || !Compare(floorStep, moduleStep, &sides)) {
        fprintf(stderr, "exchange_bench: the floor did not mount over /mnt/srvfs\n");
        return false;
    }
    Report("srvfs_client_only/fuse_floor", sides);
    return true;
}

// Peer of the socket floor: reads each whole request frame and answers replyLen bytes at once.
void FloorPeer(int listener, size_t replyLen) {
    int fd = accept(listener, nullptr, nullptr);
    std::vector<uint8_t> buf(kCmdHeaderLen + VW_CMD_BODY_LEN);
    std::vector<uint8_t> reply(replyLen, 0x5a);
    while (fd >= 0 && ReadFull(fd, buf.data(), kCmdHeaderLen)) {
        uint32_t len = 0;
        memcpy(&len, buf.data() + 12, sizeof(len));
        if (len > VW_CMD_BODY_LEN || !ReadFull(fd, buf.data(), len) ||
            !WriteFull(fd, reply.data(), reply.size())) {
            break;
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

bool CommandRoad(const std::string& cmdSocket, const std::string& floorSocket) {
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
    std::thread peer(FloorPeer, listener, replyLen);
    int fd = ConnectUnix(floorSocket, false);
    std::vector<uint8_t> request(kCmdHeaderLen + VW_CMD_BODY_LEN, 0);
    uint32_t len = VW_CMD_BODY_LEN;
    memcpy(request.data() + 12, &len, sizeof(len));
    std::vector<uint8_t> reply(replyLen);
    Step floorStep = [&] {
        return WriteFull(fd, request.data(), request.size()) && ReadFull(fd, reply.data(), reply.size()) &&
               reply[0] == 0x5a;
    };
    Sides sides;
    bool ok = fd >= 0 && moduleStep() && Compare(floorStep, moduleStep, &sides);
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
    }
    return ok;
}

}  // namespace

int main() {
    if (!EnterPrivateMountNamespace("exchange_bench") || !StayOnOneCpu("exchange_bench")) {
        return 1;
    }
    vks_test::ScratchDir dir;
    vks_test::ChildProcess emulator;
    if (!StartKit("exchange_bench", dir, {}, &emulator, {}, nullptr, nullptr)) {
        return 1;
    }
    void* module = dlopen(vks_test::LibraryPath("libvksapiMultiTaskApp.so").c_str(), RTLD_NOW);
    auto exchange = module != nullptr
                        ? reinterpret_cast<ExchangeFn>(dlsym(module, "SyncBlockDXMPMsgInteraction"))
                        : nullptr;
    bool ok = exchange != nullptr && ServiceFsRoad(exchange, dir.File("floor")) &&
              CommandRoad(vks_test::EmulatorFilesIn(dir).cmdSocket, dir.File("floor.sock"));
    if (exchange == nullptr) {
        fprintf(stderr, "exchange_bench: cannot load the module: %s\n", dlerror());
    }
    emulator.Stop(SIGTERM, 20000);
    return ok ? 0 : 1;
}
