#include "body_buffer.h"

#include <new>

namespace vks_host {

void BindBodyBuffer(tagHTTP_BUF_S* buf, BodyBuffer* body) {
    buf->Copy2Buf = &BodyCopy2Buf;
    buf->pPrivate = body;
}

int BodyCopy2Buf(tagHTTP_BUF_S* self, const char* text, unsigned int length) {
    if (self == nullptr || self->pPrivate == nullptr || (text == nullptr && length != 0)) {
        return -1;
    }
    auto* body = static_cast<BodyBuffer*>(self->pPrivate);
    if (length > body->limit - body->text.size()) {
        return -1;
    }
    // Called from module code that expects a result code, never an exception.
    try {
        body->text.append(text, length);
    } catch (const std::bad_alloc&) {
        return -1;
    }
    return 0;
}

}  // namespace vks_host
