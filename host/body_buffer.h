// Response body behind tagHTTP_BUF_S::Copy2Buf: grows as the module appends, up to a bound.
#ifndef VKS_HOST_BODY_BUFFER_H
#define VKS_HOST_BODY_BUFFER_H

#include <cstddef>
#include <string>

#include "http_records.h"

namespace vks_host {

struct BodyBuffer {
    std::string text;
    size_t limit;
};

// Points buf at body: Copy2Buf appends to body->text; pContent stays as the caller set it.
void BindBodyBuffer(tagHTTP_BUF_S* buf, BodyBuffer* body);

// Appends length bytes. 0, or -1 (nothing appended) when the body would pass its bound, memory runs
// out, or the arguments are unusable.
int BodyCopy2Buf(tagHTTP_BUF_S* self, const char* text, unsigned int length);

}  // namespace vks_host

#endif
