// Another user of the machine goes for the kit's folders: creates the result or socket folder first,
// plants links where result files would go, binds the command socket first. Both daemons refuse
// such folders with one line before they change anything, so no file outside the folders changes.
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>

#include <gtest/gtest.h>

#include "daemons.h"
#include "http_client.h"
#include "test_env.h"

namespace vks_test {
namespace {

const uid_t kOther = 65534;  // nobody
const long kFuseMagic = 0x65735546;

// Runs fn as the other user in a child process. With stay the child lives on once fn succeeded (a
// listening squatter), until it is killed; *pid names it.
bool AsOtherUser(const std::function<bool()>& fn, bool stay = false, pid_t* pid = nullptr) {
    int ready[2];
    if (pipe(ready) != 0) {
        return false;
    }
    pid_t child = fork();
    if (child == 0) {
        bool ok = setgroups(0, nullptr) == 0 && setresgid(kOther, kOther, kOther) == 0 &&
                  setresuid(kOther, kOther, kOther) == 0 && fn();
        if (ok && stay && write(ready[1], "1", 1) == 1) {
            pause();
        }
        _exit(ok ? 0 : 1);
    }
    close(ready[1]);
    char byte = 0;
    bool ok = child > 0 && (stay ? read(ready[0], &byte, 1) == 1 : true);
    close(ready[0]);
    int status = 1;
    if (child > 0 && !stay) {
        ok = waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    if (pid != nullptr) {
        *pid = child;
    }
    return ok;
}

bool Listen(const std::string& path) {
    struct sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    return fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 && listen(fd, 8) == 0;
}

std::string Read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class PrivateFiles : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        ASSERT_TRUE(InPrivateMountNamespace(&why)) << why;
        ASSERT_EQ(geteuid(), 0u) << "the attacks need root to act as a second user";
        // The scratch folder opens to the other user, with a world-writable sticky folder as /tmp is.
        ASSERT_EQ(chmod(dir_.Path().c_str(), 0755), 0);
        ASSERT_EQ(mkdir(pub_.c_str(), 0777), 0);
        ASSERT_EQ(chmod(pub_.c_str(), 01777), 0);
        std::ofstream(victim_) << "root's own file\n";
        files_ = EmulatorFilesIn(dir_);
    }
    void TearDown() override {
        if (squatter_ > 0) {
            kill(squatter_, SIGKILL);
            waitpid(squatter_, nullptr, 0);
        }
    }
    // Links named as result files were ever named, and a few more, all to the victim.
    bool PlantLinks(const std::string& folder) const {
        bool ok = true;
        for (int i = 0; i < 64; ++i) {
            std::string name = "history-" + std::to_string(i) + "-" + std::to_string(i % 4) + ".json";
            ok = ok && symlink(victim_.c_str(), (folder + "/" + name).c_str()) == 0;
        }
        return ok;
    }
    // Starts argv, expects exit status 1 and exactly one line of output, holding each of parts.
    void ExpectRefused(const std::vector<std::string>& argv, const std::vector<std::string>& parts) {
        ChildProcess daemon;
        std::string err;
        ASSERT_TRUE(daemon.Start(argv, dir_.File("refused.out"), &err)) << err;
        EXPECT_EQ(daemon.Stop(0, 20000), 1) << daemon.Output();
        std::string out = daemon.Output();
        for (const std::string& part : parts) {
            EXPECT_NE(out.find(part), std::string::npos) << part << " not in: " << out;
        }
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << out;
    }
    std::vector<std::string> Emulator(const std::string& socket, const std::string& results) const {
        return {BinaryPath("vks_emulator"),
                "--mount",
                "/mnt/srvfs",
                "--db",
                files_.db,
                "--cmd-socket",
                socket,
                "--result-dir",
                results};
    }

    ScratchDir dir_;
    std::string pub_ = dir_.File("pub");
    std::string victim_ = dir_.File("victim.txt");
    EmulatorFiles files_;
    pid_t squatter_ = -1;
};

TEST_F(PrivateFiles, AResultFolderAnotherUserControlsIsRefused) {
    ASSERT_EQ(mkdir(dir_.File("root-only").c_str(), 0700), 0);
    struct Case {
        const char* folder;                                    // in the open sticky folder
        std::function<bool(const std::string& folder)> other;  // what the other user does
        std::function<bool(const std::string& folder)> root;   // what root does, after the other user
        std::string reason;
        bool rootFirst;
    } cases[] = {
        {"results1",  // made first by the other user, links planted
         [&](const std::string& f) {
             return mkdir(f.c_str(), 0777) == 0 && chmod(f.c_str(), 0777) == 0 && PlantLinks(f);
         },
         nullptr, "owned by uid 65534, not by this user (uid 0)", false},
        {"results2",  // a link to a folder of root's
         [&](const std::string& f) { return symlink(dir_.File("root-only").c_str(), f.c_str()) == 0; },
         nullptr, "not a folder (a link or a file)", false},
        {"results3",  // root's, but open to all, links planted
         [&](const std::string& f) { return PlantLinks(f); },
         [](const std::string& f) { return mkdir(f.c_str(), 0777) == 0 && chmod(f.c_str(), 0777) == 0; },
         "writable by group or others (mode 0777)", true},
        {"evil/results",  // root's, inside a folder where anyone may rename it
         [](const std::string& f) {
             std::string above = f.substr(0, f.rfind('/'));
             return mkdir(above.c_str(), 0777) == 0 && chmod(above.c_str(), 0777) == 0;
         },
         [](const std::string& f) { return mkdir(f.c_str(), 0700) == 0; },
         "the folder above it, " + pub_ + "/evil, is writable by others (mode 0777)", false},
    };
    for (const Case& c : cases) {
        std::string folder = pub_ + "/" + c.folder;
        ASSERT_TRUE(!c.rootFirst || c.root(folder)) << c.folder;
        ASSERT_TRUE(AsOtherUser([&] { return c.other(folder); })) << c.folder;
        ASSERT_TRUE(c.rootFirst || c.root == nullptr || c.root(folder)) << c.folder;
        ExpectRefused(Emulator(files_.cmdSocket, folder),
                      {"vks_emulator: result folder " + folder + ": ", c.reason});
    }
    EXPECT_EQ(Read(victim_), "root's own file\n");
    struct statfs fs;
    EXPECT_TRUE(statfs("/mnt/srvfs", &fs) != 0 || fs.f_type != kFuseMagic) << "mounted before the refusal";
}

TEST_F(PrivateFiles, ASquattedSocketFolderIsRefusedByBothDaemons) {
    std::string folder = pub_ + "/sock";
    std::string socket = folder + "/cmd.sock";
    ASSERT_TRUE(AsOtherUser(
        [&] {
            return mkdir(folder.c_str(), 0777) == 0 && chmod(folder.c_str(), 0777) == 0 && Listen(socket);
        },
        true, &squatter_));
    std::string why = "socket folder " + folder + ": owned by uid 65534, not by this user (uid 0)";
    ExpectRefused(Emulator(socket, files_.resultDir), {"vks_emulator: " + why});
    ExpectRefused({BinaryPath("vks_access_server"), "--listen", "127.0.0.1:0", "--cmd-socket", socket},
                  {"vks_access_server: " + why});
    struct stat st;
    EXPECT_EQ(stat(files_.resultDir.c_str(), &st), -1)
        << "the emulator made its result folder before refusing";
}

TEST_F(PrivateFiles, TheFoldersTheEmulatorMakesAreItsOwnAlone) {
    ChildProcess emulator;
    std::string err;
    std::string socketFolder = dir_.File("run/vks");
    ASSERT_TRUE(StartEmulator(
        &emulator, {files_.db, socketFolder + "/cmd.sock", files_.resultDir, files_.output}, {}, &err))
        << err;
    for (const std::string& folder : {socketFolder, files_.resultDir}) {
        struct stat st;
        ASSERT_EQ(lstat(folder.c_str(), &st), 0) << folder;
        EXPECT_TRUE(S_ISDIR(st.st_mode)) << folder;
        EXPECT_EQ(st.st_mode & 07777, 0700u) << folder;
        EXPECT_EQ(st.st_uid, 0u) << folder;
    }
    EXPECT_FALSE(AsOtherUser([&] { return Listen(socketFolder + "/other.sock"); }));
    EXPECT_EQ(emulator.Stop(SIGTERM, 20000), 0) << emulator.Output();
}

}  // namespace
}  // namespace vks_test
