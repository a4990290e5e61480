#include "srvfs_client.h"

#include <dirent.h>
#include <fcntl.h>
#include <errno.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "dxmp_message.h"
#include "srvfs_fixture.h"
#include "srvfs_ioctl.h"

namespace vks_test {

std::string ServicePath(const std::string& name) {
    return std::string(SRVFS_ROOT) + name;
}

std::vector<uint8_t> RequestFrameWithItems(uint16_t uri, uint8_t method, const std::vector<Item>& items,
                                           const std::vector<uint8_t>& content) {
    dxmp_message* msg = dxmp_message_new(0);
    for (const Item& item : items) {
        dxmp_header_set(msg, item.type, item.value.data(), static_cast<uint16_t>(item.value.size()));
    }
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

std::vector<uint8_t> RequestFrame(uint16_t uri, uint8_t method, const std::vector<uint8_t>& content) {
    return RequestFrameWithItems(uri, method, {{DXMP_ITEM_CHANNEL_ID, BytesOf<uint64_t>(101)}}, content);
}

int ParseReply(const std::vector<uint8_t>& frame, ParsedReply* out) {
    dxmp_message* msg = dxmp_message_new(0);
    if (dxmp_message_decode(msg, frame.data(), static_cast<uint32_t>(frame.size())) != 0) {
        dxmp_message_put(msg);
        return -1;
    }
    memcpy(&out->status, msg->pFixedHeader + DXMP_HDR_STATUS, sizeof(out->status));
    memcpy(&out->uri, msg->pFixedHeader + DXMP_HDR_URI, sizeof(out->uri));
    out->flagsMethod = msg->pFixedHeader[DXMP_HDR_FLAGS_METHOD];
    void* value = nullptr;
    uint16_t length = 0;
    out->hasResult = dxmp_header_get(msg, DXMP_ITEM_RESULT, &value, &length) == 0;
    if (out->hasResult) {
        out->resultLen = length;
        memcpy(&out->result, value, std::min<size_t>(length, sizeof(out->result)));
    }
    uint32_t contentLength = 0;
    if (dxmp_content(msg, &value, &contentLength) == 0) {
        out->content.assign(static_cast<uint8_t*>(value), static_cast<uint8_t*>(value) + contentLength);
    }
    dxmp_message_put(msg);
    return 0;
}

int Exchange(const std::string& service, const std::vector<uint8_t>& request, std::vector<uint8_t>* reply,
             unsigned long timeoutMs) {
    int fd = open(ServicePath(service).c_str(), O_RDWR);
    if (fd < 0) {
        return -1;
    }
    int rc =
        SetTimeout(fd, timeoutMs) == 0 && WriteAll(fd, request) == 0 && ReadFrame(fd, reply) == 0 ? 0 : -1;
    int saved = errno;
    close(fd);
    errno = saved;
    return rc;
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
    ParsedReply parsed;
    ParseReply(request, &parsed);
    int32_t result = 0;
    return BuildReply(200, parsed.uri, parsed.flagsMethod, &result, parsed.content);
}

}  // namespace vks_test
