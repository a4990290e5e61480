// Replays a fuzz target's corpus as an ordinary test: every file given (or every file in a folder
// given) is fed to LLVMFuzzerTestOneInput once. A broken invariant or a sanitizer report aborts.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace {

int Replay(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.eof() && in.fail()) {
        fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
    }
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        struct stat st;
        if (stat(argv[i], &st) != 0) {
            fprintf(stderr, "no such corpus: %s\n", argv[i]);
            return 1;
        }
        std::vector<std::string> paths;
        if (S_ISDIR(st.st_mode)) {
            DIR* dir = opendir(argv[i]);
            while (dirent* entry = dir != nullptr ? readdir(dir) : nullptr) {
                if (entry->d_name[0] != '.') {
                    paths.push_back(std::string(argv[i]) + "/" + entry->d_name);
                }
            }
            if (dir != nullptr) {
                closedir(dir);
            }
        } else {
            paths.push_back(argv[i]);
        }
        for (const std::string& path : paths) {
            if (Replay(path) != 0) {
                return 1;
            }
            ++files;
        }
    }
    printf("replayed %d inputs\n", files);
    return files > 0 ? 0 : 1;  // an empty corpus replays nothing: a failure, not a pass
}
