// Daemons started by a test: the emulator and the access server, with their output in files.
#ifndef VKS_CHILD_PROCESS_H
#define VKS_CHILD_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace vks_test {

class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess();  // a child still running is killed
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Starts argv[0] with stdout and stderr in outputPath. False with the reason in *err.
    bool Start(const std::vector<std::string>& argv, const std::string& outputPath, std::string* err);
    // Waits until the output holds a line containing needle; the line in *line. Bounded by timeoutMs.
    bool WaitForLine(const std::string& needle, int timeoutMs, std::string* line = nullptr) const;
    // Sends sig and waits up to timeoutMs. The exit status, 128 + signal when killed by one, or -1
    // when it did not end in time (it is then killed).
    int Stop(int sig, int timeoutMs);
    bool Running() const { return pid_ > 0; }
    pid_t Pid() const { return pid_; }
    std::string Output() const;
    // Number of open descriptors of the child, -1 when unknown.
    int OpenDescriptors() const;

private:
    pid_t pid_ = -1;
    std::string outputPath_;
};

// A fresh directory under /tmp, removed with everything in it when the object goes.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::string& Path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace vks_test

#endif
