// Fault of the history query: a result file that shrinks after its reader took its size. The file is
// watched with fanotify permission events, which hold every open until the watcher answers, so the cut
// lands exactly between the reader's first open (taking the size) and its second (reading).
#ifndef CMDCHAN_SHRINK_WATCHER_H
#define CMDCHAN_SHRINK_WATCHER_H

#include <memory>
#include <string>
#include <thread>

namespace cmdchan {

class ShrinkWatcher {
public:
    // Watches path (an existing regular file); null with *error when the kernel refuses the watch.
    static std::unique_ptr<ShrinkWatcher> Start(const std::string& path, std::string* error);
    ~ShrinkWatcher();  // stops watching; opens still held are let through
    ShrinkWatcher(const ShrinkWatcher&) = delete;
    ShrinkWatcher& operator=(const ShrinkWatcher&) = delete;

private:
    ShrinkWatcher() = default;
    void Watch();
    bool Handle();  // false when the fanotify descriptor failed

    int fanFd_ = -1;
    int fileFd_ = -1;  // opened before the watch, so that truncating it raises no event
    int wakeFd_ = -1;
    int opens_ = 0;
    std::thread thread_;
};

}  // namespace cmdchan

#endif
