// Helpers of the module tests: decoded request frames, host records of one request, a response body
// buffer and descriptor counts.
#ifndef VKS_MODULE_TEST_UTIL_H
#define VKS_MODULE_TEST_UTIL_H

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "http_records.h"
#include "srvfs_fixture.h"

namespace vks_test {

constexpr const char* kServiceName = "itgt.paas.vks";

// A request frame as the service saw it.
struct DecodedFrame {
    bool ok = false;
    uint8_t byte2 = 0xFF;
    uint8_t flagsMethod = 0;
    uint16_t uri = 0;
    std::vector<uint16_t> itemOrder;
    std::map<uint16_t, std::vector<uint8_t>> items;
    std::vector<uint8_t> content;
};
DecodedFrame Decode(const std::vector<uint8_t>& frame);
// The one request the analysis service received (a failed expectation when it is not exactly one).
DecodedFrame OnlyRequest(const SrvfsMount& mount);

template <typename T>
std::vector<uint8_t> Bytes(const T& value) {
    std::vector<uint8_t> bytes(sizeof(T));
    memcpy(bytes.data(), &value, sizeof(T));
    return bytes;
}

// Header, client and interchange record of one request; the slots are freed as the host would.
struct RequestRecords {
    tagHTTP_HEADER_S header{};
    tagHTTP_CLIENT_S client{};
    tagHTTP_CNTENT_INTER_S ctIn{};
    explicit RequestRecords(const char* url = "/api/Resource");
    ~RequestRecords();
    RequestRecords(const RequestRecords&) = delete;
    RequestRecords& operator=(const RequestRecords&) = delete;
};

// Output buffer whose Copy2Buf appends to body and returns copyResult.
struct BodyBuffer {
    tagHTTP_BUF_S buf{};
    std::string body;
    int copyResult = 0;
    explicit BodyBuffer(const char* content = nullptr);
};

int OpenDescriptorCount();

}  // namespace vks_test

#endif
