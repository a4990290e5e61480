// Faults the emulated analysis service can be told to commit, per command or for every command, so
// that clients can be tried against a slow, failing or misbehaving service.
#ifndef VKS_ANALYSIS_FAULTS_H
#define VKS_ANALYSIS_FAULTS_H

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace analysis {

#define ANALYSIS_ALL_COMMANDS 0

struct Fault {
    int delayMs = 0;           // answer this much later
    bool forceResult = false;  // answer with result instead of the real one (state left unchanged)
    int32_t result = 0;
    bool forceStatus = false;  // answer with this status instead of 200
    uint16_t status = 200;
    bool wrongUri = false;   // answer with uri + 1
    int contentLength = -1;  // >= 0: cut or zero-pad the content to this many bytes
    bool noReply = false;    // never answer
};

class FaultTable {
public:
    void Set(int command, const Fault& fault);
    void Clear();
    // The command's own fault, else the one for all commands, else none.
    Fault For(int command) const;
    // Takes one option ("fault-delay" with value "1201:200", "fault-no-reply" with "all", ...), with
    // or without leading "--". False when the option is not a fault option or its value is bad.
    bool ParseOption(const std::string& name, const std::string& value);
    static const char* OptionsHelp();

private:
    mutable std::mutex mutex_;
    std::map<int, Fault> faults_;
};

}  // namespace analysis

#endif
