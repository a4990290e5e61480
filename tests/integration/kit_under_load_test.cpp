// The kit under concurrency and abuse: parallel writes lose nothing, a silent command channel holds
// up nothing else, a stop answers every request in flight and ends even with the module held, a second
// emulator leaves the first alone, and the HTTP front stays bounded (header size, idle connections,
// descriptors running out).
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "daemons.h"
#include "http_client.h"
#include "json_view.h"
#include "test_env.h"

namespace vks_test {
namespace {

using Clock = std::chrono::steady_clock;

long long MsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

const char* const kFlags[] = {"matchRate", "snapTime",      "deviceName",   "faceLibName", "name",
                              "cardId",    "gender",        "province",     "city",        "cardType",
                              "birthday",  "blackMatchPic", "whiteMatchPic"};
const std::string kInfos = "/api/MultiTaskAppDisplayRecogInfos";
const std::string kHistory = "/api/MultiTaskAppHistory?ChannelId=101";

class KitUnderLoad : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        ASSERT_TRUE(InPrivateMountNamespace(&why)) << why;
        files_ = EmulatorFilesIn(dir_);
    }
    void Start(const std::vector<std::string>& emulatorArgs, std::vector<std::string> serverArgs = {}) {
        std::string err;
        ASSERT_TRUE(StartEmulator(&emulator_, files_, emulatorArgs, &err)) << err;
        StartServer(serverArgs);
    }
    void StartServer(std::vector<std::string> args, const std::string& output = "server.out") {
        std::string err;
        args.insert(args.end(), {"--cmd-socket", files_.cmdSocket});
        ASSERT_TRUE(StartAccessServer(&server_, LibraryPath("libvksapiMultiTaskApp.so"), args,
                                      dir_.File(output), &port_, &err))
            << err;
    }
    void TearDown() override {
        for (ChildProcess* child : {&server_, &emulator_}) {
            if (child->Running()) {
                EXPECT_EQ(child->Stop(SIGTERM, 20000), 0) << child->Output();
            }
        }
    }
    std::future<HttpResponse> Async(const std::string& method, const std::string& target,
                                    const std::string& body = "") {
        uint16_t port = port_;
        return std::async(std::launch::async,
                          [=] { return HttpRequest(port, method, target, body, "", 30000); });
    }
    static std::string Put(const std::string& key, bool value) {
        return "{\"" + key + "\": " + (value ? "true" : "false") + "}";
    }

    ScratchDir dir_;
    EmulatorFiles files_;
    ChildProcess emulator_;
    ChildProcess server_;
    uint16_t port_ = 0;
};

TEST_F(KitUnderLoad, ParallelSingleKeyPutsLoseNoAcknowledgedChange) {
    Start({});
    auto start = Clock::now();
    for (int trial = 0; trial < 50; ++trial) {
        const bool value = trial % 2 != 0;  // every trial flips every flag and switch
        std::vector<std::future<HttpResponse>> puts;
        for (int i = 0; i < 13; ++i) {
            puts.push_back(Async("PUT", kInfos, Put(kFlags[i], value)));
            puts.push_back(Async("PUT", kHistory, Put("enableRecord", value)));
        }
        for (auto& p : puts) {
            ASSERT_EQ(p.get().status, 200) << "trial " << trial;
        }
        JsonView infos(HttpRequest(port_, "GET", kInfos).body);
        for (const char* flag : kFlags) {
            ASSERT_EQ(infos.Int({flag}), value ? 1 : 0) << flag << " lost in trial " << trial;
        }
        ASSERT_EQ(JsonView(HttpRequest(port_, "GET", kHistory).body).Int({"enableRecord"}), value ? 1 : 0)
            << "switch lost in trial " << trial;
    }
    printf("50 trials of 26 parallel PUTs: %lld ms\n", MsSince(start));
}

TEST_F(KitUnderLoad, ASilentCommandChannelHoldsUpNothingElse) {
    Start({"--cmd-fault-no-reply"}, {"--cmd-timeout", "1500"});
    auto start = Clock::now();
    std::vector<std::future<HttpResponse>> hung;
    for (int i = 0; i < 8; ++i) {
        hung.push_back(Async("GET", kHistory));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // all eight are on the channel
    for (const char* target : {"/api/MultiTaskAppTaskModesCapacity", "/api/NoSuchResource"}) {
        auto t = Clock::now();
        EXPECT_EQ(HttpRequest(port_, "GET", target).status, target[5] == 'M' ? 200 : 404) << target;
        printf("%s next to 8 hung requests: %lld ms\n", target, MsSince(t));
        EXPECT_LT(MsSince(t), 500) << target << " waited behind the silent channel";
    }
    for (auto& h : hung) {
        EXPECT_EQ(h.get().status, 500);
    }
    long long all = MsSince(start);
    EXPECT_GE(all, 1500);
    EXPECT_LT(all, 4000) << "the hung requests waited for each other";
    printf("8 hung requests answered after %lld ms\n", all);
}

TEST_F(KitUnderLoad, StoppingAnswersEveryRequestInFlightAndKeepsEveryAcknowledgedPut) {
    Start({"--cmd-fault-command=7032", "--cmd-fault-no-reply"}, {"--cmd-timeout", "1000"});
    std::vector<std::future<HttpResponse>> gets;
    std::vector<std::future<HttpResponse>> puts;
    for (int i = 0; i < 12; ++i) {
        gets.push_back(Async(
            "GET",
            "/api/"
            "MultiTaskAppHistoryRecords?DatabaseType=0&EndTime=2024-05-01T23:59:59&StartIndex=0&FindNum=5"));
        puts.push_back(Async("PUT", kInfos, Put(kFlags[i], false)));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    auto start = Clock::now();
    EXPECT_EQ(server_.Stop(SIGTERM, 20000), 0) << server_.Output();
    printf("drain of 24 requests took %lld ms\n", MsSince(start));
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(gets[i].get().status, 500);
        EXPECT_EQ(puts[i].get().status, 200) << kFlags[i];
    }
    StartServer({}, "server2.out");
    JsonView infos(HttpRequest(port_, "GET", kInfos).body);
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(infos.Int({kFlags[i]}), 0) << kFlags[i] << ": acknowledged, not stored";
    }
}

TEST_F(KitUnderLoad, ASecondEmulatorRefusesToStartAndTheFirstKeepsServing) {
    Start({});
    const std::pair<std::string, std::string> cases[] = {
        // mount point, the line it exits with
        {"/mnt/srvfs", "another service file system is mounted on /mnt/srvfs"},
        {dir_.File("mnt2"), "another server answers on " + files_.cmdSocket}};
    for (const auto& c : cases) {
        ChildProcess second;
        std::string err;
        ASSERT_TRUE(second.Start({BinaryPath("vks_emulator"), "--mount", c.first, "--db", dir_.File("2.db"),
                                  "--cmd-socket", files_.cmdSocket, "--result-dir", files_.resultDir},
                                 dir_.File("second.out"), &err))
            << err;
        EXPECT_EQ(second.Stop(0, 20000), 1) << second.Output();
        EXPECT_NE(second.Output().find(c.second), std::string::npos) << second.Output();
    }
    EXPECT_EQ(HttpRequest(port_, "GET", "/api/MultiTaskAppHistory?ChannelId=101").status, 200);
    EXPECT_EQ(HttpRequest(port_, "GET", "/api/MultiTaskAppTaskModesCapacity").status, 200);
}

// A stop must not wait for the module. The one worker is held 30 s inside a service-file read; once
// the drain time is over, or at a second signal, the requests queued behind it get 503, the held one
// is given up unanswered (so never acknowledged), and the server exits long before the module would
// return.
TEST_F(KitUnderLoad, AStopEndsWhileAWorkerIsHeldInTheModule) {
    std::string err;
    ASSERT_TRUE(StartEmulator(&emulator_, files_, {"--fault-delay=all:30000"}, &err)) << err;
    const struct {
        const char* name;
        const char* drainMs;
        bool secondSignal;
    } cases[] = {{"drain time-out", "300", false}, {"second signal", "60000", true}};
    for (const auto& c : cases) {
        StartServer({"--workers", "1", "--max-workers", "1", "--drain-timeout", c.drainMs},
                    std::string(c.name) + ".out");
        std::vector<std::future<HttpResponse>> held;
        for (int i = 0; i < 3; ++i) {
            held.push_back(Async("GET", "/api/MultiTaskAppTaskModesCapacity"));
            std::this_thread::sleep_for(std::chrono::milliseconds(150));  // the first takes the worker
        }
        if (c.secondSignal) {
            kill(server_.Pid(), SIGTERM);
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
        }
        auto start = Clock::now();
        EXPECT_EQ(server_.Stop(SIGTERM, 20000), 0) << c.name << ": " << server_.Output();
        printf("%s: exited %lld ms after the last signal (drain %s ms), a worker held in the module\n",
               c.name, MsSince(start), c.drainMs);
        EXPECT_EQ(held[0].get().status, -1) << c.name << ": the held request cannot have been answered";
        for (int i = 1; i < 3; ++i) {
            EXPECT_EQ(held[i].get().status, 503) << c.name << ": request " << i << " never started";
        }
    }
}

// The emulator's first stop waits for a command it holds (30 s here); a second signal ends it at
// once, leaves no mount behind, and the held write was never acknowledged.
TEST_F(KitUnderLoad, ASecondSignalStopsTheEmulatorHoldingACommand) {
    std::string err;
    std::string line;
    ASSERT_TRUE(StartEmulator(&emulator_, files_, {"--control-port=0"}, &err)) << err;
    ASSERT_TRUE(emulator_.WaitForLine("vks_emulator: control on http://127.0.0.1:", 5000, &line));
    auto control = static_cast<uint16_t>(atoi(line.c_str() + line.rfind(':') + 1));
    ASSERT_EQ(HttpRequest(control, "PUT", "/control/faults/command-channel/all", "{\"delayMs\": 30000}",
                          "Content-Type: application/json\r\n")
                  .status,
              200);
    StartServer({"--cmd-timeout", "60000"});
    auto held = Async("PUT", kHistory, Put("enableRecord", true));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(emulator_.Pid(), SIGTERM);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    auto start = Clock::now();
    EXPECT_EQ(emulator_.Stop(SIGTERM, 20000), 0) << emulator_.Output();
    printf("emulator exited %lld ms after the second signal\n", MsSince(start));
    EXPECT_NE(held.get().status, 200);
    struct statfs fs;
    EXPECT_TRUE(statfs("/mnt/srvfs", &fs) != 0 || fs.f_type != 0x65735546)
        << "the mount outlived the emulator";
}

// CPU time of a process in clock ticks.
long long CpuTicks(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string field;
    long long ticks = 0;
    for (int i = 1; i <= 15 && stat >> field; ++i) {
        ticks += i >= 14 ? std::stoll(field) : 0;  // utime and stime
    }
    return ticks;
}

TEST_F(KitUnderLoad, HttpLimitsHoldWithoutAnEmulator) {
    StartServer({"--idle-timeout", "1000", "--header-timeout", "500", "--max-connections", "8"});
    // Requests refused before routing still get the status envelope.
    const std::pair<std::string, int> refused[] = {
        {"GET /api/x?" + std::string(1 << 16, 'a') + " HTTP/1.1\r\n\r\n", 414},  // beyond the header bound
        {"PUT /api/MultiTaskAppHistory HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 2000000\r\n\r\n", 413},
        {"FOO /api/x HTTP/1.1\r\n\r\n", 501},
    };
    auto t = Clock::now();
    for (const auto& c : refused) {
        int fd = HttpConnect(port_, 5000);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(send(fd, c.first.data(), c.first.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(c.first.size()));
        HttpResponse r;
        EXPECT_TRUE(HttpReadResponse(fd, &r)) << c.second;
        close(fd);
        EXPECT_EQ(r.status, c.second);
        EXPECT_EQ(HeaderValue(r, "Content-Type"), "application/json; charset=utf-8") << c.second;
        EXPECT_EQ(JsonView(r.body).Int({"ResponseStatus", "StatusCode"}), c.second) << r.body;
    }
    EXPECT_LT(MsSince(t), 2000);
    // Eight idle connections fill the limit: a ninth client waits until they are closed as idle.
    std::vector<int> idle;
    for (int i = 0; i < 8; ++i) {
        idle.push_back(HttpConnect(port_, 5000));
        ASSERT_GE(idle.back(), 0);
    }
    t = Clock::now();
    std::future<HttpResponse> ninth = Async("GET", "/api/NoSuchResource");
    EXPECT_EQ(ninth.wait_for(std::chrono::milliseconds(500)), std::future_status::timeout);
    EXPECT_EQ(ninth.get().status, 404);
    long long waited = MsSince(t);
    char byte;
    for (int fd : idle) {
        EXPECT_EQ(recv(fd, &byte, 1, 0), 0) << "an idle connection stayed open";
        close(fd);
    }
    EXPECT_GE(waited, 800);
    EXPECT_LT(waited, 5000);
    printf("ninth client answered after the idle ones closed: %lld ms\n", waited);
    // A request trickling in a byte every 100 ms is cut at the header time-out, not served forever.
    int slow = HttpConnect(port_, 5000);
    ASSERT_GE(slow, 0);
    t = Clock::now();
    long long cut = -1;
    for (int i = 0; i < 40 && cut < 0; ++i) {
        if (send(slow, "G", 1, MSG_NOSIGNAL) != 1 || recv(slow, &byte, 1, MSG_DONTWAIT) == 0) {
            cut = MsSince(t);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    close(slow);
    EXPECT_GE(cut, 400);
    EXPECT_LT(cut, 2500);
    printf("trickling request cut after %lld ms\n", cut);
}

TEST_F(KitUnderLoad, DescriptorsRunningOutPauseAcceptingWithOneWarning) {
    StartServer({});
    struct rlimit limit = {64, 64};
    ASSERT_EQ(prlimit(server_.Pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
    std::vector<int> clients;
    for (int i = 0; i < 80; ++i) {
        int fd = HttpConnect(port_, 5000);
        ASSERT_GE(fd, 0);
        clients.push_back(fd);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    long long before = CpuTicks(server_.Pid());
    std::this_thread::sleep_for(std::chrono::seconds(2));
    long long ticks = CpuTicks(server_.Pid()) - before;
    double cpu = 100.0 * ticks / sysconf(_SC_CLK_TCK) / 2.0;
    EXPECT_LT(cpu, 5.0);
    printf("server CPU with descriptors exhausted: %.1f %%\n", cpu);
    // One warning for the whole time descriptors stay exhausted. Once the clients close, the backlog
    // of dead connections may exhaust them again for a moment: that is a new episode.
    std::string out = server_.Output();
    size_t first = out.find("accept failed");
    EXPECT_NE(first, std::string::npos) << out;
    EXPECT_EQ(out.find("accept failed", first + 1), std::string::npos) << "more than one warning:\n" << out;
    for (int fd : clients) {
        close(fd);
    }
    auto t = Clock::now();
    HttpResponse r;
    while (r.status != 404 && MsSince(t) < 10000) {
        r = HttpRequest(port_, "GET", "/api/NoSuchResource");
    }
    EXPECT_EQ(r.status, 404);
}

}  // namespace
}  // namespace vks_test
