#include "module_test_util.h"

#include <dirent.h>

#include <cstdlib>

#include <gtest/gtest.h>

#include "dxmp_message.h"

namespace vks_test {

DecodedFrame Decode(const std::vector<uint8_t>& frame) {
    DecodedFrame decoded;
    dxmp_message* msg = dxmp_message_new(0);
    if (msg == nullptr || dxmp_message_decode(msg, frame.data(), static_cast<uint32_t>(frame.size())) != 0) {
        dxmp_message_put(msg);
        return decoded;
    }
    decoded.ok = true;
    decoded.byte2 = frame[DXMP_HDR_BYTE2];
    decoded.flagsMethod = frame[DXMP_HDR_FLAGS_METHOD];
    memcpy(&decoded.uri, frame.data() + DXMP_HDR_URI, sizeof(decoded.uri));
    // Items in wire order: the walk below follows the frame's own layout.
    uint16_t count = 0;
    memcpy(&count, frame.data() + DXMP_HDR_ITEM_COUNT, sizeof(count));
    size_t offset = DXMP_FIXED_HEADER_LEN;
    for (uint16_t i = 0; i < count && offset + 4 <= frame.size(); ++i) {
        uint16_t type = 0;
        uint16_t length = 0;
        memcpy(&type, frame.data() + offset, sizeof(type));
        memcpy(&length, frame.data() + offset + 2, sizeof(length));
        decoded.itemOrder.push_back(type);
        offset += 4 + length;
    }
    for (uint16_t type : decoded.itemOrder) {
        void* value = nullptr;
        uint16_t length = 0;
        if (dxmp_header_get(msg, type, &value, &length) == 0) {
            const uint8_t* bytes = static_cast<const uint8_t*>(value);
            decoded.items[type].assign(bytes, bytes + length);
        }
    }
    void* data = nullptr;
    uint32_t length = 0;
    if (dxmp_content(msg, &data, &length) == 0) {
        const uint8_t* bytes = static_cast<const uint8_t*>(data);
        decoded.content.assign(bytes, bytes + length);
    }
    dxmp_message_put(msg);
    return decoded;
}

DecodedFrame OnlyRequest(const SrvfsMount& mount) {
    std::vector<std::vector<uint8_t>> requests = mount.Requests(kServiceName);
    EXPECT_EQ(requests.size(), 1u);
    return requests.empty() ? DecodedFrame{} : Decode(requests[0]);
}

RequestRecords::RequestRecords(const char* url) {
    strncpy(header.method, "GET", sizeof(header.method) - 1);
    strncpy(header.szReqUrl, url, sizeof(header.szReqUrl) - 1);
    strncpy(header.szUserName, "admin", sizeof(header.szUserName) - 1);
    strncpy(header.szClientIp, "192.168.1.20", sizeof(header.szClientIp) - 1);
    header.clientPort = 50123;
}

RequestRecords::~RequestRecords() {
    free(ctIn.preProcOut);
    free(ctIn.parseOut);
    free(ctIn.runOut);
    if (client.pRecvMsg != nullptr) {
        dxmp_message_put(client.pRecvMsg);
    }
}

namespace {
int AppendBody(tagHTTP_BUF_S* self, const char* text, unsigned int length) {
    BodyBuffer* owner = static_cast<BodyBuffer*>(self->pPrivate);
    owner->body.append(text, length);
    return owner->copyResult;
}
}  // namespace

BodyBuffer::BodyBuffer(const char* content) {
    buf.Copy2Buf = AppendBody;
    buf.pContent = content;
    buf.pPrivate = this;
}

int OpenDescriptorCount() {
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        return -1;
    }
    int count = 0;
    while (readdir(dir) != nullptr) {
        ++count;
    }
    closedir(dir);
    return count;
}

}  // namespace vks_test
