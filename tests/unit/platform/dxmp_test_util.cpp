#include "dxmp_test_util.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

namespace vks_test {

MessagePtr NewMessage() {
    return MessagePtr(dxmp_message_new(0));
}

MessagePtr BuildMessage(uint16_t uri, uint8_t method,
                        const std::vector<std::pair<uint16_t, std::string>>& items,
                        const std::string& content) {
    MessagePtr msg = NewMessage();
    memcpy(msg->pFixedHeader + DXMP_HDR_URI, &uri, sizeof(uri));
    msg->pFixedHeader[DXMP_HDR_FLAGS_METHOD] = method;
    for (const auto& item : items) {
        if (dxmp_header_set(msg.get(), item.first, item.second.data(),
                            static_cast<uint16_t>(item.second.size())) != 0) {
            return nullptr;
        }
    }
    if (dxmp_content_add(msg.get(), content.data(), static_cast<uint32_t>(content.size()), 0) != 0) {
        return nullptr;
    }
    return msg;
}

std::vector<uint8_t> Encode(dxmp_message* msg) {
    uint32_t length = 0;
    uint8_t* frame = dxmp_message_encode(msg, &length);
    if (frame == nullptr) {
        return {};
    }
    std::vector<uint8_t> bytes(frame, frame + length);
    free(frame);
    return bytes;
}

std::string Content(dxmp_message* msg) {
    void* data = nullptr;
    uint32_t length = 0;
    if (dxmp_content(msg, &data, &length) != 0) {
        return "";
    }
    return std::string(static_cast<const char*>(data), length);
}

std::string Item(dxmp_message* msg, uint16_t type) {
    void* value = nullptr;
    uint16_t length = 0;
    if (dxmp_header_get(msg, type, &value, &length) != 0) {
        return "<absent>";
    }
    return std::string(static_cast<const char*>(value), length);
}

SocketPair::SocketPair() {
    int fds[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0) {
        first = fds[0];
        second = fds[1];
    }
}

SocketPair::~SocketPair() {
    if (first >= 0) {
        close(first);
    }
    CloseSecond();
}

void SocketPair::CloseSecond() {
    if (second >= 0) {
        close(second);
        second = -1;
    }
}

pid_t ThreadId() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

namespace {

// State letter of the thread and the number of the system call it is in (-1 when running).
bool ReadThread(pid_t tid, char* state, long* nr) {
    std::string base = "/proc/self/task/" + std::to_string(tid);
    std::ifstream stat(base + "/stat");
    std::string line;
    std::getline(stat, line);
    size_t close = line.rfind(')');
    if (close == std::string::npos || close + 2 >= line.size()) {
        return false;
    }
    *state = line[close + 2];
    std::ifstream sys(base + "/syscall");
    std::string first;
    sys >> first;
    *nr = (first.empty() || first == "running") ? -1 : strtol(first.c_str(), nullptr, 10);
    return true;
}

}  // namespace

bool WaitBlockedIn(pid_t tid, long nr) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        char state = '?';
        long current = -1;
        if (ReadThread(tid, &state, &current) && state == 'S' && current == nr) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return false;
}

}  // namespace vks_test
