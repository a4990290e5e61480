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
// A request frame with this uri and method, one 8-byte channel item and the content.
std::vector<uint8_t> RequestFrame(uint16_t uri, uint8_t method, const std::vector<uint8_t>& content);
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
