// The log library: what the sinks receive, which debug lines reach stderr, and the operation-log file.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "vw_log.h"

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Points fd 2 at a temporary file for the lifetime of the object.
class StderrCapture {
public:
    StderrCapture() {
        char path[] = "/tmp/vw_log_stderr_XXXXXX";
        fd_ = mkstemp(path);
        path_ = path;
        fflush(stderr);
        saved_ = dup(STDERR_FILENO);
        dup2(fd_, STDERR_FILENO);
    }
    ~StderrCapture() {
        dup2(saved_, STDERR_FILENO);
        close(saved_);
        close(fd_);
        unlink(path_.c_str());
    }
    std::string Text() const { return ReadFile(path_); }

private:
    int fd_ = -1;
    int saved_ = -1;
    std::string path_;
};

class VwLog : public testing::Test {
protected:
    void TearDown() override {
        VW_SetLogLevel(0);
        VW_SetOpLogFile(nullptr);
    }
};

TEST_F(VwLog, LongDebugLineIsNotCut) {
    vks_test::LogCapture capture;
    StderrCapture err;
    const std::string text(10000, 'x');
    VW_WriteLog(4, 3, 0, 0, "f", 1, "[%s]:%s|", "T", text.c_str());
    ASSERT_EQ(1u, capture.Debug().size());
    EXPECT_EQ("[T]:" + text + "|", capture.Debug()[0].text);
    EXPECT_NE(std::string::npos, err.Text().find("[T]:" + text + "|\n"));
}

TEST_F(VwLog, StderrGetsErrorsAlwaysAndOtherLevelsWhenTheSwitchIsOn) {
    struct Case {
        int minLevel;
        int level;
        int debugFlag;
        bool written;
    };
    const Case cases[] = {
        {0, 3, 0, true},  {0, 1, 0, false}, {0, 0, 0, false}, {0, 1, 1, true}, {0, 0, -1, true},
        {2, 1, 1, false}, {2, 3, 0, true},  {4, 3, 1, false}, {1, 1, 1, true}, {1, 0, 1, false},
    };
    setenv("TZ", ":/nonexistent/zone", 1);  // the time stamp's look-up of the zone file then sets errno
    int n = 0;
    for (const auto& c : cases) {
        const std::string marker = "case-" + std::to_string(n++);
        SCOPED_TRACE(marker);
        VW_SetLogLevel(c.minLevel);
        StderrCapture err;
        errno = 4321;
        VW_WriteLog(4, c.level, c.debugFlag, 0, "src/some_file", 77, "[%s]:%s", "Tag", marker.c_str());
        EXPECT_EQ(4321, errno) << "logging keeps the caller's errno";
        const std::string text = err.Text();
        if (!c.written) {
            EXPECT_EQ("", text);
            continue;
        }
        const std::string expected = " L" + std::to_string(c.level) + " M4 S" + std::to_string(c.debugFlag) +
                                     " src/some_file:77 [Tag]:" + marker + "\n";
        ASSERT_GT(text.size(), expected.size());
        EXPECT_EQ(expected, text.substr(text.size() - expected.size())) << text;
        EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n'));
    }
    unsetenv("TZ");
}

TEST_F(VwLog, OperationLogFileHasDestinationAndBothTexts) {
    char path[] = "/tmp/vw_oplog_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    ASSERT_EQ(0, VW_SetOpLogFile(path));
    VW_WriteLanguageLog(2, 4, "%s ok", "%s 成功", "user");
    VW_WriteLanguageLog(1, 4, "%s ok", "%s 成功", "user");
    errno = 0;
    EXPECT_EQ(-1, VW_SetOpLogFile("/nonexistent-dir/oplog"));
    EXPECT_EQ(ENOENT, errno);
    VW_WriteLanguageLog(2, 4, "kept %d", "保留 %d", 3);  // the previous file is kept
    VW_WriteLanguageLog(2, 4, "%s ok", "%s 成功", "a\tb\nc\\d\x01");  // escaped: one line, five fields
    ASSERT_EQ(0, VW_SetOpLogFile(nullptr));
    VW_WriteLanguageLog(2, 4, "dropped", "丢弃");

    std::istringstream lines(ReadFile(path));
    unlink(path);
    std::vector<std::string> tails;
    for (std::string line; std::getline(lines, line);) {
        size_t tab = line.find('\t');
        ASSERT_NE(std::string::npos, tab) << line;
        tails.push_back(line.substr(tab + 1));  // after the time stamp
    }
    EXPECT_EQ((std::vector<std::string>{"dest=2\tmodule=4\tuser ok\tuser 成功",
                                        "dest=1\tmodule=4\tuser ok\tuser 成功",
                                        "dest=2\tmodule=4\tkept 3\t保留 3",
                                        "dest=2\tmodule=4\ta\\tb\\nc\\\\d\\x01 ok\ta\\tb\\nc\\\\d\\x01 成功"}),
              tails);
}

TEST_F(VwLog, ConcurrentWritersLoseNoLine) {
    vks_test::LogCapture capture;
    VW_SetLogLevel(9);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 2000; ++i) {
                VW_WriteLog(4, 1, 0, 0, "f", t, "%d-%d", t, i);
                VW_WriteLanguageLog(2, 4, "%d", "%d", i);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(8000u, capture.Debug().size());
    EXPECT_EQ(8000u, capture.OpLog().size());
}

}  // namespace
