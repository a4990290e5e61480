// Faults the emulator can be told to commit, per command or for every command of one road (the
// analysis service, or the command channel), so that clients can be tried against a slow, failing
// or misbehaving camera. Filled by start-up options and changed at run time by the control API.
#ifndef VKS_FAULT_TABLE_H
#define VKS_FAULT_TABLE_H

#include <cstdint>
#include <map>
#include <mutex>
#include <random>
#include <string>

namespace faults {

#define FAULTS_ALL_COMMANDS 0

struct Fault {
    int delayMs = 0;           // answer this much later
    int jitterMs = 0;          // plus or minus up to this much, drawn per request
    bool forceResult = false;  // answer with result instead of the real one (state left unchanged)
    int32_t result = 0;
    bool forceStatus = false;  // answer with this status instead of 200
    uint16_t status = 200;
    bool wrongUri = false;     // answer naming the request's command + 1
    int contentLength = -1;    // >= 0: cut or zero-pad the content to this many bytes
    bool noReply = false;      // never answer
    double probability = 1.0;  // share of the command's requests the fault hits, 0 to 1

    // Whether committing it changes the answer or its time at all.
    bool Changes() const {
        return noReply || forceResult || forceStatus || wrongUri || contentLength >= 0 || delayMs > 0;
    }
};

class FaultTable {
public:
    void Set(int command, const Fault& fault);
    bool Remove(int command);
    void Clear();
    // Every fault at once: a reader sees the old table or the new one, never a mix.
    void Replace(const std::map<int, Fault>& faults);
    std::map<int, Fault> List() const;
    // The command's own fault, else the one for all commands, else none.
    Fault For(int command) const;
    // The fault to commit on this request: For(command) when the probability draw hits (else none),
    // with the delay moved by a jitter drawn in [-jitterMs, +jitterMs] and kept at 0 or more.
    Fault Draw(int command);
    // Takes one option ("fault-delay" with value "1201:200", "fault-no-reply" with "all", ...), with
    // or without leading "--". False when the option is not a fault option or its value is bad.
    bool ParseOption(const std::string& name, const std::string& value);
    static const char* OptionsHelp();

private:
    mutable std::mutex mutex_;
    std::map<int, Fault> faults_;
    std::mt19937 random_{std::random_device{}()};
};

}  // namespace faults

#endif
