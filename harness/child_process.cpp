#include "child_process.h"

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "child_launcher.h"

namespace vks_test {
namespace {

// Only async-signal-safe calls between fork and exec: the test process has threads.
[[noreturn]] void ExecChild(const std::vector<char*>& args, int outFd) {
    dup2(outFd, STDOUT_FILENO);
    dup2(outFd, STDERR_FILENO);
    setpgid(0, 0);
    execv(args[0], args.data());
    _exit(127);
}

int StatusOf(int status) {
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
}

// Looks without reaping, so that Stop still collects the exit status.
bool HasEnded(pid_t pid) {
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid == pid;
}

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*) {
    return remove(path);
}

}  // namespace

ChildProcess::~ChildProcess() {
    if (pid_ > 0) {
        Stop(SIGKILL, 5000);
    }
}

bool ChildProcess::Start(const std::vector<std::string>& argv, const std::string& outputPath,
                         std::string* err) {
    outputPath_ = outputPath;
    if (argv.empty() || access(argv[0].c_str(), X_OK) != 0) {
        *err = "cannot run " + (argv.empty() ? std::string("nothing") : argv[0]) + ": " + strerror(errno);
        return false;
    }
    int outFd = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (outFd < 0) {
        *err = "cannot create " + outputPath + ": " + strerror(errno);
        return false;
    }
    const std::vector<std::string> command = WithLauncher(argv);
    std::vector<char*> args;
    for (const std::string& a : command) {
        args.push_back(const_cast<char*>(a.c_str()));
    }
    args.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        ExecChild(args, outFd);
    }
    close(outFd);
    if (pid < 0) {
        *err = std::string("fork: ") + strerror(errno);
        return false;
    }
    pid_ = pid;
    return true;
}

std::string ChildProcess::Output() const {
    std::ifstream in(outputPath_);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool ChildProcess::WaitForLine(const std::string& needle, int timeoutMs, std::string* line) const {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    do {
        std::istringstream lines(Output());
        for (std::string l; std::getline(lines, l);) {
            if (l.find(needle) != std::string::npos) {
                if (line != nullptr) {
                    *line = l;
                }
                return true;
            }
        }
        if (pid_ <= 0 || HasEnded(pid_)) {
            return false;  // the line will not come
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (std::chrono::steady_clock::now() < deadline);
    return false;
}

int ChildProcess::Stop(int sig, int timeoutMs) {
    if (pid_ <= 0) {
        return -1;
    }
    kill(pid_, sig);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    pid_t done = 0;
    while ((done = waitpid(pid_, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (done == 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return -1;
    }
    pid_ = -1;
    return done == -1 ? -1 : StatusOf(status);
}

int ChildProcess::OpenDescriptors() const {
    std::string path = "/proc/" + std::to_string(pid_) + "/fd";
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) {
        return -1;
    }
    int count = 0;
    while (struct dirent* e = readdir(dir)) {
        count += e->d_name[0] != '.' ? 1 : 0;
    }
    closedir(dir);
    return count;
}

ScratchDir::ScratchDir() {
    char pattern[] = "/tmp/vks-it-XXXXXX";
    const char* made = mkdtemp(pattern);
    path_ = made != nullptr ? made : "";
}

ScratchDir::~ScratchDir() {
    if (!path_.empty()) {
        nftw(path_.c_str(), &RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
    }
}

}  // namespace vks_test
