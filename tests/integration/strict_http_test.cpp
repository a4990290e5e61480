// The access server's HTTP framing on a raw TCP socket, as a careless client or a smuggler would
// send it: each case's bytes are followed by a pipelined GET that asks to close, and the answers
// must come out in order, each exactly where the one before it ends (its Content-Length; none for a
// HEAD), the last one closing the connection. A refused request is answered in its turn and nothing
// after it is read.
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "daemons.h"
#include "http_client.h"
#include "json_view.h"

namespace vks_test {
namespace {

const char kResource[] = "/api/MultiTaskAppHistory";  // the fake module's PUT echoes the body

// One answer cut from the stream: its status line, header block and body.
struct Answer {
    std::string statusLine;
    HttpResponse parsed;  // headers and body, for HeaderValue and JsonView
};

// Cuts the next answer off *stream; bodyless for the answer to a HEAD. False when it is not whole.
bool CutAnswer(std::string* stream, bool bodyless, Answer* out) {
    size_t end = stream->find("\r\n\r\n");
    if (end == std::string::npos) {
        return false;
    }
    out->statusLine = stream->substr(0, stream->find("\r\n"));
    out->parsed.status = atoi(out->statusLine.c_str() + 9);
    out->parsed.headers = stream->substr(0, end + 2);
    std::string length = HeaderValue(out->parsed, "Content-Length");
    size_t size = bodyless ? 0 : strtoul(length.c_str(), nullptr, 10);
    if (length.empty() || stream->size() < end + 4 + size) {
        return false;
    }
    out->parsed.body = stream->substr(end + 4, size);
    stream->erase(0, end + 4 + size);
    return true;
}

// Everything the server writes until it closes (bounded by the socket's receive time-out).
bool ReadToClose(int fd, std::string* out) {
    char chunk[65536];
    for (ssize_t n; (n = recv(fd, chunk, sizeof(chunk), 0)) != 0;) {
        if (n < 0) {
            return false;
        }
        out->append(chunk, static_cast<size_t>(n));
    }
    return true;
}

struct Case {
    const char* what;
    std::string request;
    std::vector<std::string> statusLines;  // of every answer, the follow-up's included
    const char* contentType;               // of the first answer
    std::string bodyHas;                   // in the first answer's body
    bool headAsGet = true;                 // a HEAD's answer is the GET's, headers and length
};

class StrictHttp : public ::testing::Test {
protected:
    void SetUp() override {
        std::string err;
        ASSERT_TRUE(StartAccessServer(&server_, LibraryPath("libvks_fake_module.so"),
                                      {"--cmd-socket", dir_.File("cmd.sock"), "--max-header-bytes", "1024"},
                                      dir_.File("server.out"), &port_, &err))
            << err;
        host_ = "Host: 127.0.0.1:" + std::to_string(port_) + "\r\n";
    }
    void TearDown() override { EXPECT_EQ(server_.Stop(SIGTERM, 20000), 0) << server_.Output(); }

    // Sends request and the follow-up on one connection: what came back until the server closed.
    bool Send(const std::string& request, std::string* stream) {
        const std::string followUp =
            "GET /api/NoSuchResource HTTP/1.1\r\n" + host_ + "Connection: close\r\n\r\n";
        std::string bytes = request + followUp;
        int fd = HttpConnect(port_, 5000);
        bool closed =
            fd >= 0 &&
            send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()) &&
            ReadToClose(fd, stream);
        if (fd >= 0) {
            close(fd);
        }
        return closed;
    }

    // Sends the case and its follow-up; checks every answer.
    void Exchange(const Case& c) {
        SCOPED_TRACE(c.what);
        std::string stream;
        ASSERT_TRUE(Send(c.request, &stream)) << "the connection stayed open:\n" << stream;
        for (size_t i = 0; i < c.statusLines.size(); ++i) {
            bool head = i == 0 && c.request.compare(0, 5, "HEAD ") == 0;
            Answer a;
            ASSERT_TRUE(CutAnswer(&stream, head, &a)) << "answer " << i << " not whole:\n" << stream;
            EXPECT_EQ(a.statusLine, c.statusLines[i]) << a.parsed.headers;
            CheckAnswer(c, i, head, a);
        }
        EXPECT_EQ(stream, "") << "bytes after the last answer";
    }

    void CheckAnswer(const Case& c, size_t i, bool head, const Answer& a) {
        std::string type = HeaderValue(a.parsed, "Content-Type");
        if (i == 0) {
            EXPECT_EQ(type, c.contentType);
            EXPECT_NE(a.parsed.body.find(c.bodyHas), std::string::npos) << a.parsed.body;
        }
        if (head && c.headAsGet) {  // the GET's status and headers, its length, no body
            std::string stream;
            Answer get;
            ASSERT_TRUE(Send("GET" + c.request.substr(4), &stream) && CutAnswer(&stream, false, &get));
            EXPECT_EQ(a.statusLine, get.statusLine);
            EXPECT_EQ(type, HeaderValue(get.parsed, "Content-Type"));
            EXPECT_EQ(HeaderValue(a.parsed, "Content-Length"), std::to_string(get.parsed.body.size()));
        } else if (!head && type == "application/json; charset=utf-8" && a.parsed.status != 200) {
            EXPECT_EQ(JsonView(a.parsed.body).Int({"ResponseStatus", "StatusCode"}), a.parsed.status)
                << a.parsed.body;
        }
        bool last = i + 1 == c.statusLines.size();
        if (last && a.statusLine.compare(0, 8, "HTTP/1.1") == 0) {
            EXPECT_EQ(HeaderValue(a.parsed, "Connection"), "close");
        }
    }

    ScratchDir dir_;
    ChildProcess server_;
    uint16_t port_ = 0;
    std::string host_;
};

TEST_F(StrictHttp, EveryRequestIsFramedOneWayAndAnsweredInJson) {
    const std::string put = std::string("PUT ") + kResource + " HTTP/1.1\r\n" + host_;
    const std::string chunked = put + "Transfer-Encoding: chunked\r\n\r\n";
    const std::string get = "GET /api/NoSuchResource HTTP/1.1\r\n";
    const char* json = "application/json; charset=utf-8";
    const std::string ok = "HTTP/1.1 200 OK", notFound = "HTTP/1.1 404 Not Found";
    const std::string bad = "HTTP/1.1 400 Bad Request";
    const std::string hidden = put + "Content-Length: 2\r\nContent-Length: 41\r\n\r\n{}";
    const std::string smuggler =
        get + host_ + "Content-Length: " + std::to_string(hidden.size()) + "\r\n\r\n" + hidden;
    char size[16];
    snprintf(size, sizeof(size), "%zx", hidden.size());
    const std::string chunk = size + ("\r\n" + hidden);
    const Case cases[] = {
        {"conflicting Content-Length",
         put + "Content-Length: 2\r\nContent-Length: 41\r\n\r\n{}",
         {bad},
         json,
         "\"RequestURL\": \"/api/MultiTaskAppHistory\""},
        {"Content-Length with a sign", put + "Content-Length: +2\r\n\r\n{}", {bad}, json, "400"},
        {"Content-Length in hex", put + "Content-Length: 0x2\r\n\r\n{}", {bad}, json, "400"},
        {"Content-Length repeated alike",
         put + "Content-Length: 2\r\ncontent-length: 2\r\n\r\n{}",
         {ok, notFound},
         json,
         "\"body\":\"{}\""},
        {"Content-Length with Transfer-Encoding",
         put + "Content-Length: 2\r\nTransfer-Encoding: chunked\r\n\r\n{}",
         {bad},
         json,
         "400"},
        {"folded header line",
         put + "Authorization: Basic\r\n dXNlcjpwdw==\r\nContent-Length: 0\r\n\r\n",
         {bad},
         json,
         "400"},
        {"NUL in a header value", get + host_ + std::string("X-Note: a\0b\r\n\r\n", 15), {bad}, json, "400"},
        {"bare CR in a header value", get + host_ + "X-Note: a\rb\r\n\r\n", {bad}, json, "400"},
        {"blank before the colon", get + host_ + "X-Note : 1\r\n\r\n", {bad}, json, "400"},
        {"HTTP/1.1 without Host", get + "\r\n", {bad}, json, "\"RequestURL\": \"/api/NoSuchResource\""},
        {"two Host lines", get + host_ + host_ + "\r\n", {bad}, json, "400"},
        {"HTTP/1.0 without Host",
         "GET /api/NoSuchResource HTTP/1.0\r\n\r\n",
         {"HTTP/1.0 404 Not Found"},
         json,
         "404"},
        {"chunk extensions and a trailer",
         chunked + "2;foo=bar\r\n{}\r\n1 ; q=\"a;b\" ;x\r\n \r\n0\r\nX-T: 1\r\n\r\n",
         {ok, notFound},
         json,
         "\"body\":\"{} \""},
        {"chunk size not hex", chunked + "zz\r\n{}\r\n0\r\n\r\n", {bad}, json, "400"},
        {"chunk size with a sign", chunked + "+2\r\n{}\r\n0\r\n\r\n", {bad}, json, "400"},
        {"chunk size with two numbers", chunked + "2 3\r\n{}\r\n0\r\n\r\n", {bad}, json, "400"},
        {"chunk extension without a name", chunked + "2;\r\n{}\r\n0\r\n\r\n", {bad}, json, "400"},
        {"chunk longer than its size", chunked + "2\r\n{}x\r\n0\r\n\r\n", {bad}, json, "400"},
        {"chunk beyond the body bound",
         chunked + "100001\r\n",
         {"HTTP/1.1 413 Payload Too Large"},
         json,
         "413"},
        {"unknown transfer coding",
         put + "Transfer-Encoding: gzip\r\n\r\n",
         {"HTTP/1.1 501 Not Implemented"},
         json,
         "501"},
        {"HEAD of the docs page",
         "HEAD /docs HTTP/1.1\r\n" + host_ + "\r\n",
         {ok, notFound},
         "text/html; charset=utf-8",
         ""},
        {"HEAD of the OpenAPI document",
         "HEAD /api/openapi.json HTTP/1.1\r\n" + host_ + "\r\n",
         {ok, notFound},
         json,
         ""},
        {"HEAD of a viewer file",
         "HEAD /docs/viewer/swagger-ui.css HTTP/1.1\r\n" + host_ + "\r\n",
         {ok, notFound},
         "text/css; charset=utf-8",
         ""},
        {"HEAD of no resource",
         "HEAD /api/NoSuchResource HTTP/1.1\r\n" + host_ + "\r\n",
         {notFound, notFound},
         json,
         ""},
        {"refused HEAD",
         "HEAD /api/NoSuchResource HTTP/1.1\r\n" + host_ + "X-Note: \x01\r\n\r\n",
         {bad},
         json,
         ""},
        // evhttp reads no body after HEAD or TRACE: one would be read as the next request, unchecked.
        {"HEAD with a body", "HEAD" + smuggler.substr(3), {bad}, json, "", false},
        {"HEAD with a chunked body",
         "HEAD /api/NoSuchResource HTTP/1.1\r\n" + host_ + "Transfer-Encoding: chunked\r\n\r\n" + chunk +
             "\r\n0\r\n\r\n",
         {bad},
         json,
         "",
         false},
        {"TRACE with a body", "TRACE" + smuggler.substr(3), {bad}, json, "400"},
        {"GET with a body", smuggler, {notFound, notFound}, json, "404"},
        {"unknown method",
         "FOO /api/x HTTP/1.1\r\n" + host_ + "\r\n",
         {"HTTP/1.1 501 Not Implemented"},
         json,
         "\"RequestURL\": \"/api/x\""},
        {"CONNECT",
         "CONNECT 127.0.0.1:80 HTTP/1.1\r\n" + host_ + "Connection: close\r\n\r\n",
         {"HTTP/1.1 501 Not Implemented"},
         json,
         "\"RequestURL\": \"127.0.0.1:80\""},
        {"unknown version",
         "GET / HTTP/2.0\r\n" + host_ + "\r\n",
         {"HTTP/1.1 505 HTTP Version Not Supported"},
         json,
         "505"},
        {"request line beyond the bound",
         "GET /" + std::string(2000, 'a') + " HTTP/1.1\r\n" + host_ + "\r\n",
         {"HTTP/1.1 414 URI Too Long"},
         json,
         "\"RequestURL\": \"/aaa"},
        {"header block beyond the bound",
         get + host_ + "X-Pad: " + std::string(1000, 'p') + "\r\n\r\n",
         {"HTTP/1.1 431 Request Header Fields Too Large"},
         json,
         "431"},
        {"a refusal waits for the answer before it",
         get + host_ + "\r\n" + get + "\r\n",
         {notFound, bad},
         json,
         "404"},
    };
    for (const Case& c : cases) {
        Exchange(c);
    }
}

}  // namespace
}  // namespace vks_test
