// Command line for a daemon a test starts. VKS_TEST_LAUNCHER, when set, names a program (with its
// own words) that runs it: on a machine that cannot execute the target's binaries directly, the
// emulator that runs the test binary itself (the armhf test preset sets it).
#ifndef VKS_CHILD_LAUNCHER_H
#define VKS_CHILD_LAUNCHER_H

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace vks_test {

inline std::vector<std::string> WithLauncher(const std::vector<std::string>& argv) {
    std::vector<std::string> command;
    std::istringstream launcher(getenv("VKS_TEST_LAUNCHER") != nullptr ? getenv("VKS_TEST_LAUNCHER") : "");
    for (std::string word; launcher >> word;) {
        command.push_back(word);
    }
    command.insert(command.end(), argv.begin(), argv.end());
    return command;
}

}  // namespace vks_test

#endif
