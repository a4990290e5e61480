// The emulator daemon as a child process: ready line, an answer over its mount, a clean stop on
// SIGTERM, and a restart over the dead mount a killed run leaves behind.
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include "analysis_service.h"
#include "child_launcher.h"
#include "srvfs_client.h"
#include "test_env.h"

namespace vks_test {
namespace {

class EmulatorDaemonTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        ASSERT_TRUE(InPrivateMountNamespace(&why)) << why;
        char dir[] = "/tmp/vks-daemon-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(dir));
        dir_ = dir;
    }
    void TearDown() override {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        std::filesystem::remove_all(dir_);
    }
    // Starts the daemon on the shared test mount point and waits for its ready line.
    bool Start(std::string* output) {
        int out[2];
        if (pipe(out) != 0) {
            return false;
        }
        const std::vector<std::string> command =
            WithLauncher({VKS_EMULATOR_PATH, "--db=" + dir_ + "/db/emulator.db",
                          "--cmd-socket=" + dir_ + "/cmd.sock", "--result-dir=" + dir_ + "/results"});
        std::vector<char*> args;
        for (const std::string& word : command) {
            args.push_back(const_cast<char*>(word.c_str()));
        }
        args.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            dup2(out[1], STDERR_FILENO);
            execv(args[0], args.data());
            _exit(127);
        }
        close(out[1]);
        char buffer[512];
        ssize_t n;
        struct pollfd readable = {out[0], POLLIN, 0};  // a daemon silent for 20 s fails the start
        while (output->find("vks_emulator: ready\n") == std::string::npos && poll(&readable, 1, 20000) == 1 &&
               (n = read(out[0], buffer, sizeof(buffer))) > 0) {
            output->append(buffer, static_cast<size_t>(n));
        }
        close(out[0]);
        return output->find("vks_emulator: ready\n") != std::string::npos;
    }
    int Stop(int signal) {
        int status = 0;
        kill(pid_, signal);
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

    std::string dir_;
    pid_t pid_ = -1;
};

TEST_F(EmulatorDaemonTest, ServesUntilSigtermThenUnmounts) {
    std::string output;
    ASSERT_TRUE(Start(&output)) << output;
    std::vector<uint8_t> frame;
    ParsedReply reply;
    ASSERT_EQ(0, Exchange(ANALYSIS_SERVICE_NAME, RequestFrame(VKS_URI_AVAILABLE_LIST, 2, {}), &frame, 3000))
        << strerror(errno);
    ASSERT_EQ(0, ParseReply(frame, &reply));
    EXPECT_EQ(24u, reply.content.size());
    EXPECT_EQ(0, reply.result);

    int status = Stop(SIGTERM);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(-1, access(ServicePath(ANALYSIS_SERVICE_NAME).c_str(), F_OK)) << "still mounted";
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(EmulatorDaemonTest, RestartClearsTheDeadMountOfAKilledRun) {
    std::string output;
    ASSERT_TRUE(Start(&output)) << output;
    Stop(SIGKILL);
    struct stat st;
    EXPECT_EQ(-1, stat("/mnt/srvfs", &st));
    // ECANCELED, ECONNABORTED: the request came while the kernel was still tearing down the dead
    // server's io_uring queues, before it ended the connection.
    EXPECT_TRUE(errno == ENOTCONN || errno == ECANCELED || errno == ECONNABORTED) << strerror(errno);

    output.clear();
    ASSERT_TRUE(Start(&output)) << output;
    EXPECT_NE(std::string::npos, output.find("cleared a stale mount at /mnt/srvfs")) << output;
    EXPECT_EQ(0, access(ServicePath(ANALYSIS_SERVICE_NAME).c_str(), F_OK));
    int status = Stop(SIGINT);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
}  // namespace vks_test
