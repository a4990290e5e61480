// Helpers shared by the DXMP tests: owned messages, encoded bytes, socket pairs, and a way to know
// that a thread is blocked inside a given system call.
#ifndef VKS_DXMP_TEST_UTIL_H
#define VKS_DXMP_TEST_UTIL_H

#include <stdint.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "dxmp_message.h"

namespace vks_test {

struct MessagePut {
    void operator()(dxmp_message* msg) const { dxmp_message_put(msg); }
};
using MessagePtr = std::unique_ptr<dxmp_message, MessagePut>;

MessagePtr NewMessage();
// A request as the module builds it: uri and method in the fixed header, items, content.
MessagePtr BuildMessage(uint16_t uri, uint8_t method,
                        const std::vector<std::pair<uint16_t, std::string>>& items,
                        const std::string& content);
std::vector<uint8_t> Encode(dxmp_message* msg);
std::string Content(dxmp_message* msg);
std::string Item(dxmp_message* msg, uint16_t type);  // "<absent>" when the message lacks it

// A connected AF_UNIX stream pair, closed on destruction.
struct SocketPair {
    SocketPair();
    ~SocketPair();
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;
    void CloseSecond();
    int first = -1;
    int second = -1;
};

pid_t ThreadId();
// Waits (up to 10 s) until thread tid sleeps inside system call nr; false on time-out.
bool WaitBlockedIn(pid_t tid, long nr);

}  // namespace vks_test

#endif
