#include "log_output.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

#include "fd_io.h"
#include "log_text.h"

namespace {

const int kErrorLevel = 3;

// The destinations, set by the host (or from the environment at first use).
struct LogOutputState {
    std::once_flag envOnce;
    std::atomic<int> minLevel{0};
    std::mutex mutex;  // guards opLogFd and serialises the writes
    int opLogFd = -1;
    bool opLogOwned = false;
};

// Never destroyed: static destructors of other libraries may still write lines at exit.
LogOutputState& State() {
    static LogOutputState* state = new LogOutputState;
    return *state;
}

int OpenOpLog(const char* path, bool* owned) {
    if (strcmp(path, "-") == 0) {
        *owned = false;
        return STDOUT_FILENO;
    }
    *owned = true;
    return open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

void ReplaceOpLog(LogOutputState& state, int fd, bool owned) {
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.opLogOwned && state.opLogFd >= 0) {
        close(state.opLogFd);
    }
    state.opLogFd = fd;
    state.opLogOwned = owned;
}

int SetOpLogPath(LogOutputState& state, const char* path) {
    if (path == nullptr) {
        ReplaceOpLog(state, -1, false);
        return 0;
    }
    bool owned = false;
    int fd = OpenOpLog(path, &owned);
    if (fd < 0) {
        return -1;
    }
    ReplaceOpLog(state, fd, owned);
    return 0;
}

// Environment settings apply once, before the first explicit setting, which then overrides them.
LogOutputState& ConfiguredState() {
    LogOutputState& state = State();
    std::call_once(state.envOnce, [&state] {
        const char* level = getenv("VW_LOG_LEVEL");
        if (level != nullptr && *level != '\0') {
            state.minLevel = atoi(level);
        }
        const char* path = getenv("VW_OPLOG_FILE");
        if (path != nullptr && *path != '\0') {
            int savedErrno = errno;
            SetOpLogPath(state, path);
            errno = savedErrno;
        }
    });
    return state;
}

// fd < 0 means the operation-log file, read under the same lock that serialises the write.
void WriteLine(LogOutputState& state, int fd, const LogText& text) {
    std::lock_guard<std::mutex> lock(state.mutex);
    int target = fd >= 0 ? fd : state.opLogFd;
    if (target < 0) {
        return;
    }
    int savedErrno = errno;  // logging must not disturb the caller's errno
    (void)FdWriteFull(target, text.text, text.length);
    errno = savedErrno;
}

}  // namespace

bool LogOutputWantsDebug(int level, int debugFlag) {
    return level >= ConfiguredState().minLevel && (level >= kErrorLevel || debugFlag != 0);
}

bool LogOutputWantsOpLog() {
    LogOutputState& state = ConfiguredState();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.opLogFd >= 0;
}

void LogOutputDebug(const VW_LOG_LINE_S* line) {
    char stamp[40];
    LogTimestamp(stamp, sizeof(stamp));
    LogText text;
    LogTextFormat(&text, "%s L%d M%d S%d %s:%d %s\n", stamp, line->level, line->module, line->debugFlag,
                  line->file != nullptr ? line->file : "?", line->line, line->text);
    WriteLine(ConfiguredState(), STDERR_FILENO, text);
    LogTextRelease(&text);
}

void LogOutputOpLog(const VW_OPLOG_LINE_S* line) {
    LogOutputState& state = ConfiguredState();
    char stamp[40];
    LogTimestamp(stamp, sizeof(stamp));
    // The file is tab-separated, one operation a line: a tab or line break inside a text (a user
    // name from the request, say) must not make a field or a line of its own.
    LogText english;
    LogText chinese;
    english.text = chinese.text = nullptr;
    LogText text;
    LogTextFormat(&text, "%s\tdest=%d\tmodule=%d\t%s\t%s\n", stamp, line->dest, line->module,
                  LogTextEscape(line->english, &english), LogTextEscape(line->chinese, &chinese));
    WriteLine(state, -1, text);
    LogTextRelease(&text);
    LogTextRelease(&english);
    LogTextRelease(&chinese);
}

void VW_SetLogLevel(int minLevel) {
    ConfiguredState().minLevel = minLevel;
}

int VW_SetOpLogFile(const char* path) {
    return SetOpLogPath(ConfiguredState(), path);
}
