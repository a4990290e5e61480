#include "fault_table.h"

#include <cstdlib>

namespace faults {
namespace {

bool ParseNumber(const std::string& text, long long* value) {
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    *value = strtoll(text.c_str(), &end, 10);
    return *end == '\0';
}

// "CMD" or "CMD:VALUE"; CMD is a command number or "all".
bool ParseTarget(const std::string& text, int* command, std::string* rest) {
    size_t colon = text.find(':');
    std::string head = text.substr(0, colon);
    *rest = colon == std::string::npos ? "" : text.substr(colon + 1);
    long long number = 0;
    if (head == "all") {
        *command = FAULTS_ALL_COMMANDS;
        return true;
    }
    if (!ParseNumber(head, &number) || number < 0 || number > 0xFFFF) {
        return false;
    }
    *command = static_cast<int>(number);
    return true;
}

bool ApplyValue(const std::string& name, const std::string& rest, Fault* fault) {
    long long value = 0;
    bool needsValue = name != "fault-wrong-uri" && name != "fault-no-reply";
    if (needsValue != !rest.empty() || (needsValue && !ParseNumber(rest, &value))) {
        return false;
    }
    if (name == "fault-delay" && value >= 0 && value <= 600000) {
        fault->delayMs = static_cast<int>(value);
    } else if (name == "fault-result" && value >= INT32_MIN && value <= INT32_MAX) {
        fault->forceResult = true;
        fault->result = static_cast<int32_t>(value);
    } else if (name == "fault-status" && value >= 0 && value <= 0xFFFF) {
        fault->forceStatus = true;
        fault->status = static_cast<uint16_t>(value);
    } else if (name == "fault-content-length" && value >= 0 && value <= 65536) {
        fault->contentLength = static_cast<int>(value);
    } else if (name == "fault-wrong-uri") {
        fault->wrongUri = true;
    } else if (name == "fault-no-reply") {
        fault->noReply = true;
    } else {
        return false;
    }
    return true;
}

}  // namespace

void FaultTable::Set(int command, const Fault& fault) {
    std::lock_guard<std::mutex> lock(mutex_);
    faults_[command] = fault;
}

bool FaultTable::Remove(int command) {
    std::lock_guard<std::mutex> lock(mutex_);
    return faults_.erase(command) != 0;
}

std::map<int, Fault> FaultTable::List() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return faults_;
}

Fault FaultTable::Draw(int command) {
    Fault fault = For(command);
    std::lock_guard<std::mutex> lock(mutex_);
    if (fault.probability < 1.0 &&
        std::uniform_real_distribution<double>(0.0, 1.0)(random_) >= fault.probability) {
        return Fault{};
    }
    if (fault.jitterMs > 0) {
        fault.delayMs += std::uniform_int_distribution<int>(-fault.jitterMs, fault.jitterMs)(random_);
        fault.delayMs = fault.delayMs < 0 ? 0 : fault.delayMs;
    }
    return fault;
}

void FaultTable::Replace(const std::map<int, Fault>& faults) {
    std::lock_guard<std::mutex> lock(mutex_);
    faults_ = faults;
}

void FaultTable::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    faults_.clear();
}

Fault FaultTable::For(int command) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = faults_.find(command);
    if (found == faults_.end()) {
        found = faults_.find(FAULTS_ALL_COMMANDS);
    }
    return found == faults_.end() ? Fault{} : found->second;
}

bool FaultTable::ParseOption(const std::string& rawName, const std::string& value) {
    std::string name = rawName.compare(0, 2, "--") == 0 ? rawName.substr(2) : rawName;
    int command = 0;
    std::string rest;
    if (name.compare(0, 6, "fault-") != 0 || !ParseTarget(value, &command, &rest)) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    Fault fault = faults_.count(command) != 0 ? faults_[command] : Fault{};
    if (!ApplyValue(name, rest, &fault)) {
        return false;
    }
    faults_[command] = fault;
    return true;
}

const char* FaultTable::OptionsHelp() {
    return "  Analysis-service faults; CMD is a command number (229, 1201, 1202, 1203) or \"all\":\n"
           "  --fault-delay=CMD:MS           answer MS milliseconds late\n"
           "  --fault-result=CMD:N           answer with result N and change nothing\n"
           "  --fault-status=CMD:N           answer with status N instead of 200\n"
           "  --fault-wrong-uri=CMD          answer with the request's uri + 1\n"
           "  --fault-content-length=CMD:N   cut or zero-pad the reply content to N bytes\n"
           "  --fault-no-reply=CMD           never answer\n";
}

}  // namespace faults
