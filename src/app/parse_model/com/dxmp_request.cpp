#include "app/parse_model/com/dxmp_request.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "service_registry/service_interface.h"
#include "srvfs_ioctl.h"

namespace {

// Values the service file system expects; it interprets their units.
const unsigned long kConnTimeout = 30000;
const unsigned long kBufferSize = 0x8000;

void WriteFixedHeader(dxmp_message* msg, uint16_t uri, uint8_t method) {
    uint8_t* fixed = msg->pFixedHeader;
    memcpy(fixed + DXMP_HDR_URI, &uri, sizeof(uri));
    fixed[DXMP_HDR_BYTE2] = 0;
    fixed[DXMP_HDR_FLAGS_METHOD] =
        static_cast<uint8_t>((fixed[DXMP_HDR_FLAGS_METHOD] & 0x80) | (method & 0x7F));
}

bool HasBytes(const void* data, uint32_t length) {
    return data != nullptr && length != 0;
}

int AddHeaderItem(dxmp_message* msg, const DXMPMsgHeaderData& item, const char* file) {
    VKS_LOG(file, VKS_LOG_TRACE, "[%s]:msgData headerLen = %u", LOG_VKS_FRAMEWORK, item.dataLen);
    // The library takes 16-bit lengths; a longer item goes out cut to its low 16 bits.
    return dxmp_header_set(msg, item.headType, item.pData, static_cast<uint16_t>(item.dataLen));
}

int AddContent(dxmp_message* msg, const void* content, uint32_t contentLen, const char* file) {
    if (!HasBytes(content, contentLen)) {
        return 0;
    }
    VKS_LOG(file, VKS_LOG_TRACE, "[%s]:msgData contentLen = %u", LOG_VKS_FRAMEWORK, contentLen);
    if (dxmp_content_add(msg, content, contentLen, 0) == -1) {
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:failed to dxmp_content_append", LOG_VKS_FRAMEWORK);
        return -1;
    }
    return 0;
}

// failFormat is the whole line of the refused request (it names the request in its text).
int SetConnOption(int fd, unsigned long request, unsigned long value, const char* failFormat,
                  const char* file) {
    if (ioctl(fd, request, value) != 0) {
        VKS_LOG(file, VKS_LOG_ERROR, failFormat, LOG_VKS_FRAMEWORK);
        return -1;
    }
    return 0;
}

}  // namespace

int DxmpCheckRequest(const void* msgData, const dxmp_message* msg, const char* file) {
    if (msgData == nullptr) {
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:msgData is null", LOG_VKS_FRAMEWORK);
        return -1;
    }
    if (msg == nullptr) {
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:msg is null", LOG_VKS_FRAMEWORK);
        return -1;
    }
    return 0;
}

int DxmpFillRequest(dxmp_message* msg, const DXMPMsgData* msgData, const char* file) {
    WriteFixedHeader(msg, msgData->uri, msgData->msgMethod);
    const DXMPMsgHeaderData& item = msgData->header;
    if (HasBytes(item.pData, item.dataLen) && AddHeaderItem(msg, item, file) == -1) {
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:failed to dxmp_header_set", LOG_VKS_FRAMEWORK);
        return -1;
    }
    return AddContent(msg, msgData->content, msgData->contentLen, file);
}

int DxmpFillMultiRequest(dxmp_message* msg, const DXMPMultiMsgData* msgData, const char* file) {
    WriteFixedHeader(msg, msgData->uri, msgData->msgMethod);
    for (const DXMPMsgHeaderData& item : msgData->headers) {
        if (HasBytes(item.pData, item.dataLen) && AddHeaderItem(msg, item, file) == -1) {
            // One refused item does not stop the request: the service may still answer the rest.
            VKS_LOG(file, VKS_LOG_ERROR, "[%s]:failed to dxmp_header_set headtype:%d", LOG_VKS_FRAMEWORK,
                    item.headType);
        }
    }
    return AddContent(msg, msgData->content, msgData->contentLen, file);
}

uint16_t DxmpFixedHeaderU16(const dxmp_message* msg, int offset) {
    uint16_t value = 0;
    memcpy(&value, msg->pFixedHeader + offset, sizeof(value));
    return value;
}

int DxmpOpenService(const char* file, bool setBuffers) {
    std::string path;
    try {
        path = ServiceInterface::GetInstance().GetServicePath();
    } catch (const std::bad_alloc&) {  // the caller holds a message: a failed exchange, not a throw
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:service path: out of memory", LOG_VKS_FRAMEWORK);
        return -1;
    }
    if (path.empty()) {
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:service name is null", LOG_VKS_FRAMEWORK);
        return -1;
    }
    int fd = open(path.c_str(), O_RDWR);
    if (fd == -1) {
        VKS_LOG(file, VKS_LOG_ERROR, "[%s]:open server errono is: %s, file %s", LOG_VKS_FRAMEWORK,
                strerror(errno), path.c_str());
        return -1;
    }
    bool configured = SetConnOption(fd, SRVFS_CONN_SETTIMEOUT, kConnTimeout,
                                    "[%s]:failed to ioctl to SRVFS_CONN_SETTIMEOUT", file) == 0;
    if (configured && setBuffers) {
        configured = SetConnOption(fd, SRVFS_BUFF_SETRDSIZE, kBufferSize,
                                   "[%s]:failed to ioctl to SRVFS_BUFF_SETRDSIZE", file) == 0 &&
                     SetConnOption(fd, SRVFS_BUFF_SETWRSIZE, kBufferSize,
                                   "[%s]:failed to ioctl to SRVFS_BUFF_SETWRSIZE", file) == 0;
    }
    if (!configured) {
        close(fd);
        return -1;
    }
    return fd;
}
