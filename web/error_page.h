// evhttp answers some malformed requests itself, with a short HTML page written in one go (a
// request line or header block beyond the bound: 400; a body beyond it: 413; an unknown method:
// 501), and the libevent 2.1 the kit builds against has no hook to replace it. Both servers watch
// what is added to a connection's output and replace such a page with an answer of their own, so
// that every answer is JSON.
#ifndef VKS_WEB_ERROR_PAGE_H
#define VKS_WEB_ERROR_PAGE_H

#include <event2/buffer.h>

#include <string>

namespace vks_web {

// Gives the JSON body for the status evhttp chose; may change the status (code and reason) first.
using ErrorBody = std::string (*)(void* arg, int* code, std::string* reason);

// To be called when bytes were added to a connection's output: when they end an evhttp error page,
// the page (from its status line on) is replaced by a JSON answer with Connection: close.
void ReplaceErrorPage(struct evbuffer* out, ErrorBody body, void* arg);

// The same as an output callback's body: only when bytes were added, and not again for the bytes the
// replacement adds itself (*rewriting, one flag per connection, guards that).
void ReplaceErrorPageOnAdd(struct evbuffer* out, const struct evbuffer_cb_info* info, bool* rewriting,
                           ErrorBody body, void* arg);

}  // namespace vks_web

#endif
