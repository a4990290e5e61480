#include "task_counts.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench_kit.h"

extern char** environ;

namespace vks_bench {
namespace {

const int64_t kAttachNs = 5000000000;

std::vector<pid_t> Threads(const Task& task) {
    if (task.tid != 0) {
        return {task.tid};
    }
    std::vector<pid_t> tids;
    DIR* dir = opendir(("/proc/" + std::to_string(task.pid) + "/task").c_str());
    for (dirent* e = dir != nullptr ? readdir(dir) : nullptr; e != nullptr; e = readdir(dir)) {
        if (e->d_name[0] != '.') {
            tids.push_back(static_cast<pid_t>(atoi(e->d_name)));
        }
    }
    if (dir != nullptr) {
        closedir(dir);
    }
    return tids;
}

// The numbers after each of the given keys in one thread's status file, added up.
uint64_t StatusSum(const Task& task, pid_t tid, const std::vector<std::string>& keys) {
    std::ifstream status("/proc/" + std::to_string(task.pid) + "/task/" + std::to_string(tid) + "/status");
    uint64_t sum = 0;
    for (std::string line; std::getline(status, line);) {
        for (const std::string& key : keys) {
            if (line.compare(0, key.size(), key) == 0) {
                sum += strtoull(line.c_str() + key.size(), nullptr, 10);
            }
        }
    }
    return sum;
}

bool EveryThreadTraced(const Task& task) {
    std::vector<pid_t> tids = Threads(task);
    for (pid_t tid : tids) {
        if (StatusSum(task, tid, {"TracerPid:"}) == 0) {
            return false;
        }
    }
    return !tids.empty();
}

// The calls column of strace's summary line, -1 when there is none.
long long TotalCalls(const std::string& path) {
    std::ifstream summary(path);
    long long calls = -1;
    for (std::string line; std::getline(summary, line);) {
        std::istringstream words(line);
        std::vector<std::string> w{std::istream_iterator<std::string>(words), {}};
        if (w.size() >= 5 && w.back() == "total") {
            calls = atoll(w[3].c_str());
        }
    }
    return calls;
}

pid_t StartStrace(const Task& task, const std::string& out) {
    std::string id = std::to_string(task.tid != 0 ? task.tid : task.pid);
    std::vector<const char*> argv = {"strace", "-c", "-q", "-o", out.c_str()};
    if (task.tid == 0) {
        argv.push_back("-f");  // every thread, and those started while counting
    }
    argv.insert(argv.end(), {"-p", id.c_str(), nullptr});
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    if (posix_spawnp(&pid, "strace", &actions, nullptr, const_cast<char* const*>(argv.data()), environ) !=
        0) {
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// The calls each task makes while work runs n units (-1 where they could not be counted).
std::vector<long long> CountCalls(const std::vector<Task>& tasks, const Work& work, int n, bool* workRight) {
    std::vector<std::string> outs;
    std::vector<pid_t> tracers;
    size_t attached = 0;
    // Another thread starts the tracers and waits for them, so that a traced caller waits in one
    // call (the join) however long attaching takes: its count then holds the same few calls at
    // every attach.
    std::thread attach([&] {
        for (const Task& task : tasks) {
            char out[] = "/tmp/vks-bench-calls-XXXXXX";
            int fd = mkstemp(out);
            if (fd >= 0) {
                close(fd);
            }
            outs.push_back(fd >= 0 ? out : "");
            tracers.push_back(fd >= 0 ? StartStrace(task, out) : -1);
        }
        int64_t deadline = NowNs() + kAttachNs;
        while (attached < tasks.size() && NowNs() < deadline) {
            bool gone = tracers[attached] <= 0 || waitpid(tracers[attached], nullptr, WNOHANG) != 0;
            if (gone) {
                break;
            }
            attached += EveryThreadTraced(tasks[attached]) ? 1 : 0;
            usleep(1000);
        }
    });
    attach.join();
    *workRight = attached == tasks.size() && work(n);
    std::vector<long long> calls(tasks.size(), -1);
    for (size_t i = 0; i < tasks.size(); ++i) {
        if (tracers[i] > 0 && kill(tracers[i], SIGINT) == 0 &&
            waitpid(tracers[i], nullptr, 0) == tracers[i] && attached == tasks.size()) {
            calls[i] = TotalCalls(outs[i]);
        }
        if (!outs[i].empty()) {
            unlink(outs[i].c_str());
        }
    }
    return calls;
}

}  // namespace

Task ThisThread() {
    return {getpid(), static_cast<pid_t>(syscall(SYS_gettid))};
}

uint64_t ContextSwitches(const Task& task) {
    uint64_t sum = 0;
    for (pid_t tid : Threads(task)) {
        sum += StatusSum(task, tid, {"voluntary_ctxt_switches:", "nonvoluntary_ctxt_switches:"});
    }
    return sum;
}

bool CallsPerUnit(const std::vector<Task>& tasks, const Work& work, int n, std::vector<double>* calls) {
    bool rightOnce = false;
    bool rightTwice = false;
    std::vector<long long> once = CountCalls(tasks, work, n, &rightOnce);
    std::vector<long long> twice = CountCalls(tasks, work, 2 * n, &rightTwice);
    calls->clear();
    for (size_t i = 0; i < tasks.size(); ++i) {
        if (once[i] < 0 || twice[i] < 0) {
            fprintf(stderr, "strace could not count the system calls of %d/%d (is it installed?)\n",
                    tasks[i].pid, tasks[i].tid);
            return false;
        }
        calls->push_back(static_cast<double>(twice[i] - once[i]) / n);
    }
    if (!rightOnce || !rightTwice) {
        fprintf(stderr, "the work failed while its system calls were counted\n");
    }
    return rightOnce && rightTwice;
}

}  // namespace vks_bench
