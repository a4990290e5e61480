// A scripted output buffer: records what Copy2Buf is handed and answers with a chosen value.
#ifndef CODEC_BODY_RECORDER_H
#define CODEC_BODY_RECORDER_H

#include <string.h>

#include <string>

#include "http_records.h"

namespace codec_test {

struct BodyRecorder {
    explicit BodyRecorder(int answer) : reply(answer) {
        buf.Copy2Buf = &Take;
        buf.pContent = nullptr;
        buf.pPrivate = this;
    }

    static int Take(tagHTTP_BUF_S* self, const char* text, unsigned int length) {
        BodyRecorder* recorder = static_cast<BodyRecorder*>(self->pPrivate);
        recorder->body.append(text, length);
        recorder->lengthMatchesText = strlen(text) == length;
        ++recorder->calls;
        return recorder->reply;
    }

    tagHTTP_BUF_S buf;
    int reply;
    std::string body;
    int calls = 0;
    bool lengthMatchesText = false;
};

inline tagHTTP_HEADER_S Header(const char* url) {
    tagHTTP_HEADER_S header;
    memset(&header, 0, sizeof(header));
    strcpy(header.method, "GET");
    strncpy(header.szReqUrl, url, sizeof(header.szReqUrl) - 1);
    strcpy(header.szUserName, "admin");
    strcpy(header.szClientIp, "127.0.0.1");
    header.clientPort = 50000;
    return header;
}

inline std::string Envelope(const std::string& url, long long code, const std::string& text) {
    return "{\"ResponseStatus\": {\"RequestURL\": \"" + url + "\", \"StatusCode\": " + std::to_string(code) +
           ", \"StatusString\": \"" + text + "\"}}";
}

}  // namespace codec_test

#endif
