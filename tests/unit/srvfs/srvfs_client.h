// The client side of the service file system as the tests drive it: plain open/write/read on
// /mnt/srvfs, with request frames built by the DXMP library.
#ifndef VKS_SRVFS_CLIENT_H
#define VKS_SRVFS_CLIENT_H

#include <cstdint>
#include <string>
#include <vector>

namespace vks_test {

#define TEST_SERVICE "test.service"

std::string ServicePath(const std::string& name);
struct Item {
    uint16_t type;
    std::vector<uint8_t> value;
};
// A request frame with this uri and method, the items in order and the content.
std::vector<uint8_t> RequestFrameWithItems(uint16_t uri, uint8_t method, const std::vector<Item>& items,
                                           const std::vector<uint8_t>& content);
// The same with one 8-byte channel item 101.
std::vector<uint8_t> RequestFrame(uint16_t uri, uint8_t method, const std::vector<uint8_t>& content);
template <typename T>
std::vector<uint8_t> BytesOf(const T& value) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    return std::vector<uint8_t>(bytes, bytes + sizeof(T));
}

// A reply frame taken apart.
struct ParsedReply {
    uint16_t status = 0;
    uint16_t uri = 0;
    uint8_t flagsMethod = 0;
    bool hasResult = false;
    int32_t result = 0;
    uint16_t resultLen = 0;
    std::vector<uint8_t> content;
};
// 0, or -1 when the frame does not decode.
int ParseReply(const std::vector<uint8_t>& frame, ParsedReply* out);
// open, write, read one frame, close: 0, or -1 with errno.
int Exchange(const std::string& service, const std::vector<uint8_t>& request, std::vector<uint8_t>* reply,
             unsigned long timeoutMs);
// 0, or -1 with errno from the failing write.
int WriteAll(int fd, const std::vector<uint8_t>& bytes);
// Reads one whole frame: 0, or -1 with errno from the failing read (EPROTO for a bad header).
int ReadFrame(int fd, std::vector<uint8_t>* frame);
int SetTimeout(int fd, unsigned long ms);
// errno of a one-byte read that fails, 0 when it succeeds.
int FailedReadErrno(int fd);
int CountOpenDescriptors();
// A reply to the request with the result item 0 and the request's content echoed back.
std::vector<uint8_t> EchoReply(const std::vector<uint8_t>& request);

}  // namespace vks_test

#endif
