#include "srvfs_client.h"

#include <dirent.h>
#include <errno.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "dxmp_message.h"
#include "srvfs_fixture.h"
#include "srvfs_ioctl.h"

namespace vks_test {

std::string ServicePath(const std::string& name) {
    return std::string(SRVFS_ROOT) + name;
}

std::vector<uint8_t> RequestFrame(uint16_t uri, uint8_t method, const std::vector<uint8_t>& content) {
    dxmp_message* msg = dxmp_message_new(0);
    uint64_t channel = 101;
    dxmp_header_set(msg, DXMP_ITEM_CHANNEL_ID, &channel, sizeof(channel));
    if (!content.empty()) {
        dxmp_content_add(msg, content.data(), static_cast<uint32_t>(content.size()), 0);
    }
    memcpy(msg->pFixedHeader + DXMP_HDR_URI, &uri, sizeof(uri));
    msg->pFixedHeader[DXMP_HDR_FLAGS_METHOD] = method;
    uint32_t length = 0;
    uint8_t* encoded = dxmp_message_encode(msg, &length);
    dxmp_message_put(msg);
    std::vector<uint8_t> frame(encoded, encoded + length);
    free(encoded);
    return frame;
}

int WriteAll(int fd, const std::vector<uint8_t>& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0) {
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    return 0;
}

static int ReadExactly(int fd, uint8_t* out, size_t size) {
    size_t done = 0;
    while (done < size) {
        ssize_t n = read(fd, out + done, size - done);
        if (n <= 0) {
            if (n == 0) {
                errno = EPIPE;
            }
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    return 0;
}

int ReadFrame(int fd, std::vector<uint8_t>* frame) {
    frame->assign(DXMP_FIXED_HEADER_LEN, 0);
    if (ReadExactly(fd, frame->data(), DXMP_FIXED_HEADER_LEN) != 0) {
        return -1;
    }
    uint32_t length = 0;
    if (dxmp_frame_length(frame->data(), &length) != 0) {
        errno = EPROTO;
        return -1;
    }
    frame->resize(length);
    return ReadExactly(fd, frame->data() + DXMP_FIXED_HEADER_LEN, length - DXMP_FIXED_HEADER_LEN);
}

int SetTimeout(int fd, unsigned long ms) {
    return ioctl(fd, SRVFS_CONN_SETTIMEOUT, ms);
}

int FailedReadErrno(int fd) {
    uint8_t byte;
    return read(fd, &byte, 1) < 0 ? errno : 0;
}

int CountOpenDescriptors() {
    DIR* dir = opendir("/proc/self/fd");
    int count = 0;
    while (readdir(dir) != nullptr) {
        ++count;
    }
    closedir(dir);
    return count;
}

std::vector<uint8_t> EchoReply(const std::vector<uint8_t>& request) {
    dxmp_message* msg = dxmp_message_new(0);
    dxmp_message_decode(msg, request.data(), static_cast<uint32_t>(request.size()));
    void* data = nullptr;
    uint32_t length = 0;
    std::vector<uint8_t> content;
    if (dxmp_content(msg, &data, &length) == 0) {
        content.assign(static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + length);
    }
    uint16_t uri = 0;
    memcpy(&uri, msg->pFixedHeader + DXMP_HDR_URI, sizeof(uri));
    uint8_t method = msg->pFixedHeader[DXMP_HDR_FLAGS_METHOD];
    dxmp_message_put(msg);
    int32_t result = 0;
    return BuildReply(200, uri, method, &result, content);
}

}  // namespace vks_test
