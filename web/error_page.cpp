#include "error_page.h"

#include <cstdlib>
#include <cstring>

namespace vks_web {
namespace {

// The page is recognised by its fixed end once its last piece, the body, is added; its status line
// is the last one before its body (an earlier answer may still wait in the buffer).
const char kPageStart[] = "<HTML><HEAD>\n<TITLE>";
const char kPageEnd[] = "</BODY></HTML>\n";

// The last bytes of the output are those of an evhttp error page.
bool EndsWithErrorPage(struct evbuffer* out) {
    const size_t endLength = sizeof(kPageEnd) - 1;
    size_t length = evbuffer_get_length(out);
    struct evbuffer_ptr tail;
    char end[sizeof(kPageEnd)] = "";
    return length >= endLength && evbuffer_ptr_set(out, &tail, length - endLength, EVBUFFER_PTR_SET) == 0 &&
           evbuffer_copyout_from(out, &tail, end, endLength) == static_cast<ev_ssize_t>(endLength) &&
           memcmp(end, kPageEnd, endLength) == 0;
}

void Replace(struct evbuffer* out, ErrorBody makeBody, void* arg) {
    struct evbuffer_ptr page = evbuffer_search(out, kPageStart, sizeof(kPageStart) - 1, nullptr);
    struct evbuffer_ptr start;
    start.pos = -1;
    for (struct evbuffer_ptr line = evbuffer_search_range(out, "HTTP/1.", 7, nullptr, &page);
         page.pos >= 0 && line.pos >= 0; line = evbuffer_search_range(out, "HTTP/1.", 7, &line, &page)) {
        start = line;
        evbuffer_ptr_set(out, &line, 1, EVBUFFER_PTR_ADD);
    }
    char status[128] = "";
    if (start.pos < 0 || evbuffer_copyout_from(out, &start, status, sizeof(status) - 1) <= 0) {
        return;
    }
    char* eol = strstr(status, "\r\n");
    char* code = strchr(status, ' ');
    if (eol == nullptr || code == nullptr || code > eol) {
        return;
    }
    *eol = '\0';
    *code = '\0';
    const char* reasonText = strchr(code + 1, ' ');
    int number = atoi(code + 1);
    std::string reason = reasonText != nullptr ? reasonText + 1 : "";
    std::string body = makeBody(arg, &number, &reason);
    std::string head = std::string(status) + " " + std::to_string(number) + " " + reason +
                       "\r\nContent-Type: application/json; charset=utf-8\r\nX-Content-Type-Options: nosniff"
                       "\r\nConnection: close\r\nContent-Length: " +
                       std::to_string(body.size()) + "\r\n\r\n";
    struct evbuffer* before = evbuffer_new();
    if (before == nullptr) {
        return;
    }
    evbuffer_remove_buffer(out, before, static_cast<size_t>(start.pos));
    evbuffer_drain(out, evbuffer_get_length(out));
    evbuffer_add_buffer(out, before);
    evbuffer_add(out, head.data(), head.size());
    evbuffer_add(out, body.data(), body.size());
    evbuffer_free(before);
}

}  // namespace

void ReplaceErrorPage(struct evbuffer* out, ErrorBody body, void* arg) {
    // Once a socket bufferevent has written, it keeps the start of its output frozen between its
    // writes (only it may drain it), and a frozen start refuses even a copy: thawed for the look.
    char first = 0;
    bool frozen = evbuffer_copyout(out, &first, 1) < 0;
    if (frozen) {
        evbuffer_unfreeze(out, 1);
    }
    if (EndsWithErrorPage(out)) {
        Replace(out, body, arg);
    }
    if (frozen) {
        evbuffer_freeze(out, 1);
    }
}

void ReplaceErrorPageOnAdd(struct evbuffer* out, const struct evbuffer_cb_info* info, bool* rewriting,
                           ErrorBody body, void* arg) {
    if (*rewriting || info->n_added == 0) {
        return;
    }
    *rewriting = true;
    ReplaceErrorPage(out, body, arg);
    *rewriting = false;
}

}  // namespace vks_web
