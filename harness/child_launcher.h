// A daemon's command line with VKS_TEST_LAUNCHER's words in front, when set: the armhf test preset
// names the emulator there, for machines that cannot execute the target's binaries directly.
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
