// The access server against a scripted module (fake_module.cpp): routing, phase order, the header it
// fills, the result handed to Format, HTTP status, Copy2Buf's bound and the asynchronous hand-over
// with a scripted service on a real unix socket. Every test ends by stopping the server with SIGTERM
// and expecting exit status 0: in the sanitizer build a leaked slot, message or buffer fails it.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "daemons.h"
#include "dxmp_peer.h"
#include "http_client.h"
#include "json_view.h"

namespace vks_test {
namespace {

const char kResource[] = "/api/MultiTaskAppHistory";

// The server closes the socket of an answered connection a moment after the client does: the count
// is taken once it has held still for 200 ms (bounded by 5 s).
int SettledDescriptors(const ChildProcess& server) {
    int last = server.OpenDescriptors();
    int still = 0;
    for (int i = 0; i < 250 && still < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        int now = server.OpenDescriptors();
        still = now == last ? still + 1 : 0;
        last = now;
    }
    return last;
}

class ServerCore : public ::testing::Test {
protected:
    void Start(std::vector<std::string> extra = {}) {
        extra.insert(extra.end(), {"--cmd-socket", dir_.File("cmd.sock")});
        std::string err;
        ASSERT_TRUE(StartAccessServer(&server_, LibraryPath("libvks_fake_module.so"), extra,
                                      dir_.File("server.out"), &port_, &err))
            << err;
    }
    void TearDown() override {
        if (server_.Running()) {
            EXPECT_EQ(server_.Stop(SIGTERM, 20000), 0) << server_.Output();
        }
    }
    HttpResponse Get(const std::string& query) { return HttpRequest(port_, "GET", kResource + query); }
    // A GET whose Run hands its descriptor to the server; answered once the peer has replied.
    std::future<HttpResponse> GetAsync(const std::string& extraQuery = "") {
        std::string target = std::string(kResource) + "?peer=" + dir_.File("peer.sock") + extraQuery;
        uint16_t port = port_;
        return std::async(std::launch::async, [port, target] { return HttpRequest(port, "GET", target); });
    }

    ScratchDir dir_;
    ChildProcess server_;
    uint16_t port_ = 0;
};

TEST_F(ServerCore, RoutesByResourceAndMethodWithJsonErrors) {
    Start();
    struct Case {
        const char* method;
        std::string target;
        int status;
    };
    const Case cases[] = {
        {"GET", kResource, 200},
        {"PUT", kResource, 200},
        {"DELETE", kResource, 405},
        {"POST", kResource, 405},
        {"PATCH", kResource, 405},
        {"GET", "/api/MultiTaskAppHistoryRecords", 404},  // a known name the module does not export
        {"GET", "/api/NoSuchResource", 404},
        {"GET", std::string(kResource) + "/1", 404},
        {"GET", "/MultiTaskAppHistory", 404},
        {"GET", "/", 404},
        {"GET", std::string(kResource) + "?pad=" + std::string(1100, 'a'), 414},
        {"HEAD", "/api/NoSuchResource", 404},  // as GET, with the length of GET's body and no body
        {"HEAD", kResource, 200},
        {"GET", "/docs/no-such-file.js", 404},  // the docs routes refuse like every other route
        {"PUT", "/api/openapi.json", 405},
    };
    for (const Case& c : cases) {
        HttpResponse r = HttpRequest(port_, c.method, c.target);
        EXPECT_EQ(r.status, c.status) << c.method << " " << c.target;
        if (std::string(c.method) == "HEAD") {
            EXPECT_EQ(r.body, "");
            size_t getLength = HttpRequest(port_, "GET", c.target).body.size();
            EXPECT_EQ(HeaderValue(r, "Content-Length"), std::to_string(getLength + (c.status == 200 ? 1 : 0)))
                << "GET's length, with the method's name one letter longer";
            continue;
        }
        EXPECT_EQ(HeaderValue(r, "Content-Type"), "application/json; charset=utf-8") << c.target;
        if (c.status != 200) {
            JsonView body(r.body);
            EXPECT_EQ(body.Int({"ResponseStatus", "StatusCode"}), c.status) << r.body;
            EXPECT_EQ(body.Str({"ResponseStatus", "RequestURL"}), c.target.substr(0, 255)) << r.body;
        }
        if (c.status == 405) {
            EXPECT_EQ(HeaderValue(r, "Allow"), c.target == "/api/openapi.json" ? "GET, HEAD" : "GET, PUT");
        }
    }
}

TEST_F(ServerCore, PutRunsEveryPhaseInOrderWithTheRequestHeader) {
    Start();
    int fd = HttpConnect(port_, 10000);
    ASSERT_GE(fd, 0);
    struct sockaddr_in local = {};
    socklen_t len = sizeof(local);
    ASSERT_EQ(getsockname(fd, reinterpret_cast<struct sockaddr*>(&local), &len), 0);
    const std::string target = std::string(kResource) + "?ChannelId=101";
    ASSERT_TRUE(HttpSendRequest(fd, "PUT", target, "{\"enableRecord\": true}", ""));
    HttpResponse r;
    ASSERT_TRUE(HttpReadResponse(fd, &r));
    close(fd);
    EXPECT_EQ(r.status, 200);
    JsonView body(r.body);
    ASSERT_TRUE(body.Valid()) << r.body;
    EXPECT_EQ(body.Str({"trace"}), "PreProc,Parse,Run,Format");
    EXPECT_EQ(body.Int({"result"}), 0);
    EXPECT_EQ(body.Str({"method"}), "PUT");
    EXPECT_EQ(body.Str({"url"}), target);
    EXPECT_EQ(body.Str({"user"}), "anonymous");
    EXPECT_EQ(body.Str({"ip"}), "127.0.0.1");
    EXPECT_EQ(body.Int({"port"}), ntohs(local.sin_port));
    EXPECT_EQ(body.Str({"body"}), "{\"enableRecord\": true}");
    EXPECT_FALSE(body.Bool({"preProcOut"}));
}

// Without a login nothing checks credentials, so a name the client merely claims never names the user.
TEST_F(ServerCore, AClaimedNameNeverNamesTheUser) {
    Start();
    for (const char* claim : {"Basic b3BlcmF0b3IxOnNlY3JldA==",  // "operator1:secret"
                              "Digest username=\"operator1\", realm=\"vks\", response=\"00\""}) {
        HttpResponse r =
            HttpRequest(port_, "GET", kResource, "", std::string("Authorization: ") + claim + "\r\n");
        EXPECT_EQ(r.status, 200) << claim;
        EXPECT_EQ(JsonView(r.body).Str({"user"}), "anonymous") << claim << r.body;
    }
}

TEST_F(ServerCore, AFailingPhaseStopsTheChainAndFormatGetsItsResult) {
    Start();
    struct Case {
        const char* query;
        const char* trace;
        int result;
        int status;
    };
    const Case cases[] = {
        {"?fail=PreProc", "PreProc,Format", 7, 502},         {"?parse=4", "PreProc,Parse,Format", 4, 400},
        {"?parse=-1", "PreProc,Parse,Format", -1, 400},  // any failure to decode is the client's
        {"?parse=18", "PreProc,Parse,Format", 18, 500},  // except running out of memory
        {"?result=12", "PreProc,Parse,Run,Format", 12, 502},
    };
    for (const Case& c : cases) {
        HttpResponse r = HttpRequest(port_, "PUT", kResource + std::string(c.query), "{}");
        EXPECT_EQ(r.status, c.status) << c.query;
        JsonView body(r.body);
        EXPECT_EQ(body.Str({"trace"}), c.trace) << c.query;
        EXPECT_EQ(body.Int({"result"}), c.result) << c.query;
    }
}

TEST_F(ServerCore, HttpStatusFollowsTheResultAndSynchronousRunSkipsRecv) {
    Start();
    const std::pair<int, int> cases[] = {{0, 200},  {1, 500},  {4, 400}, {18, 500},
                                         {31, 503}, {-1, 500}, {12, 502}};
    for (const auto& c : cases) {
        HttpResponse r = Get("?result=" + std::to_string(c.first));
        EXPECT_EQ(r.status, c.second) << "result " << c.first;
        JsonView body(r.body);
        EXPECT_EQ(body.Int({"result"}), c.first);
        EXPECT_EQ(body.Str({"trace"}), "Run,Format");  // Recv is exported, but Run registered nothing
    }
}

TEST_F(ServerCore, StatusEnvelopeWhenFormatWritesNothing) {
    Start();
    struct Case {
        const char* query;
        int status;
        int statusCode;
    };
    const Case cases[] = {{"?format=none&result=4", 400, 4}, {"?format=none", 500, -1}};
    for (const Case& c : cases) {
        HttpResponse r = Get(c.query);
        EXPECT_EQ(r.status, c.status) << c.query;
        JsonView body(r.body);
        EXPECT_EQ(body.Int({"ResponseStatus", "StatusCode"}), c.statusCode) << r.body;
        EXPECT_EQ(body.Str({"ResponseStatus", "RequestURL"}), kResource + std::string(c.query)) << r.body;
    }
}

TEST_F(ServerCore, Copy2BufAppendsUpToTheBound) {
    Start({"--max-body", "4096"});
    HttpResponse within = Get("?big=100");
    ASSERT_EQ(within.status, 200);
    EXPECT_EQ(within.body.substr(0, 100), std::string(100, 'x'));
    EXPECT_EQ(JsonView(within.body.substr(100)).Int({"copy"}), 0) << within.body;

    HttpResponse beyond = Get("?big=5000");
    ASSERT_EQ(beyond.status, 200);
    EXPECT_EQ(beyond.body.find('x'), std::string::npos);
    EXPECT_EQ(JsonView(beyond.body).Int({"copy"}), -1) << beyond.body;
}

TEST_F(ServerCore, AsynchronousReplyRunsRecvThenFormat) {
    Start();
    DxmpPeer peer;
    ASSERT_TRUE(peer.Listen(dir_.File("peer.sock")));
    const std::pair<int, int> cases[] = {{0, 200}, {9, 502}};  // the reply's result item, HTTP status
    for (const auto& c : cases) {
        std::future<HttpResponse> pending = GetAsync();
        int fd = peer.AcceptRequest(10000);
        ASSERT_GE(fd, 0);
        ASSERT_TRUE(DxmpPeer::Reply(fd, "hello", c.first));
        HttpResponse r = pending.get();
        EXPECT_EQ(r.status, c.second);
        JsonView body(r.body);
        EXPECT_EQ(body.Str({"trace"}), "Run,Recv:hello,Format") << r.body;
        EXPECT_EQ(body.Int({"result"}), c.first);
        EXPECT_TRUE(DxmpPeer::WaitForClose(fd, 5000)) << "the server keeps the descriptor after the reply";
        close(fd);
    }
}

TEST_F(ServerCore, WaitingForRepliesHoldsNoWorker) {
    Start({"--workers", "1"});
    DxmpPeer peer;
    ASSERT_TRUE(peer.Listen(dir_.File("peer.sock")));
    std::vector<std::future<HttpResponse>> pending;
    std::vector<int> fds;
    for (int i = 0; i < 3; ++i) {
        pending.push_back(GetAsync());
        int fd = peer.AcceptRequest(10000);
        ASSERT_GE(fd, 0);
        fds.push_back(fd);
    }
    // Three replies are outstanding and the only worker is free for this one.
    EXPECT_EQ(Get("?result=0").status, 200);
    for (size_t i = 0; i < fds.size(); ++i) {
        ASSERT_TRUE(DxmpPeer::Reply(fds[i], "r" + std::to_string(i), 0));
    }
    for (size_t i = 0; i < pending.size(); ++i) {
        HttpResponse r = pending[i].get();
        EXPECT_EQ(r.status, 200);
        EXPECT_EQ(JsonView(r.body).Str({"trace"}), "Run,Recv:r" + std::to_string(i) + ",Format");
        close(fds[i]);
    }
}

TEST_F(ServerCore, AReplyThatNeverComesOrBreaksOffAnswersWithoutRecv) {
    Start({"--reply-timeout", "300"});
    DxmpPeer peer;
    ASSERT_TRUE(peer.Listen(dir_.File("peer.sock")));
    for (bool peerCloses : {false, true}) {
        std::future<HttpResponse> pending = GetAsync();
        int fd = peer.AcceptRequest(10000);
        ASSERT_GE(fd, 0);
        if (peerCloses) {
            close(fd);
        }
        HttpResponse r = pending.get();
        EXPECT_EQ(r.status, peerCloses ? 500 : 504);
        JsonView body(r.body);
        EXPECT_EQ(body.Str({"trace"}), "Run,Format") << r.body;
        EXPECT_EQ(body.Int({"result"}), -1);
        if (!peerCloses) {
            EXPECT_TRUE(DxmpPeer::WaitForClose(fd, 5000)) << "descriptor kept after the time-out";
            close(fd);
        }
    }
}

TEST_F(ServerCore, RunFailingAfterRegisteringReleasesTheDescriptor) {
    Start();
    DxmpPeer peer;
    ASSERT_TRUE(peer.Listen(dir_.File("peer.sock")));
    for (const char* after : {"&after=cancel", "&after=keep"}) {
        std::future<HttpResponse> pending = GetAsync(after);
        int fd = peer.AcceptRequest(10000);  // the request went out before Run failed
        ASSERT_GE(fd, 0);
        HttpResponse r = pending.get();
        EXPECT_EQ(r.status, 500) << after;
        EXPECT_EQ(JsonView(r.body).Str({"trace"}), "Run,Format") << after;
        EXPECT_TRUE(DxmpPeer::WaitForClose(fd, 5000)) << after;
        close(fd);
    }
}

// A client that closes its socket while its reply is awaited is cleaned up at once; one that only
// half-closes it (shuts down its sending side) still gets its answer.
TEST_F(ServerCore, AClientLeavingWhileItsReplyIsOutstandingIsCleanedUp) {
    Start({"--reply-timeout", "60000"});
    ASSERT_EQ(Get("?result=0").status, 200);  // the server's descriptors are all open by now
    const int baseline = SettledDescriptors(server_);
    DxmpPeer peer;
    ASSERT_TRUE(peer.Listen(dir_.File("peer.sock")));
    for (bool halfClose : {false, true}) {
        int client = HttpConnect(port_, 10000);
        ASSERT_GE(client, 0);
        ASSERT_TRUE(HttpSendRequest(client, "GET", std::string(kResource) + "?peer=" + dir_.File("peer.sock"),
                                    "", ""));
        int fd = peer.AcceptRequest(10000);
        ASSERT_GE(fd, 0);
        if (!halfClose) {
            close(client);
            EXPECT_TRUE(DxmpPeer::WaitForClose(fd, 5000)) << "descriptor kept after the client left";
            close(fd);
            EXPECT_EQ(SettledDescriptors(server_), baseline);
            continue;
        }
        ASSERT_EQ(shutdown(client, SHUT_WR), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the server has seen the end of file
        ASSERT_TRUE(DxmpPeer::Reply(fd, "late", 0));
        HttpResponse r;
        ASSERT_TRUE(HttpReadResponse(client, &r));
        EXPECT_EQ(JsonView(r.body).Str({"trace"}), "Run,Recv:late,Format") << r.body;
        close(client);
        close(fd);
    }
}

TEST_F(ServerCore, StoppingWithAReplyOutstandingExitsCleanly) {
    Start({"--drain-timeout", "300"});  // the reply never comes: the drain ends at its time-out
    DxmpPeer peer;
    ASSERT_TRUE(peer.Listen(dir_.File("peer.sock")));
    std::future<HttpResponse> pending = GetAsync();
    int fd = peer.AcceptRequest(10000);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(server_.Stop(SIGTERM, 20000), 0) << server_.Output();
    EXPECT_EQ(pending.get().status, -1);  // connection closed without an answer
    EXPECT_TRUE(DxmpPeer::WaitForClose(fd, 5000));
    close(fd);
}

TEST(AccessServerCommandLine, RefusesWhatItCannotServe) {
    ScratchDir dir;
    const std::string notHex = dir.File("not-hex"), twoRealms = dir.File("two-realms");
    std::ofstream(notHex) << "alice:vks:0123456789abcdef0123456789abcdeg\n";
    std::ofstream(twoRealms) << "alice:vks:0123456789abcdef0123456789abcdef\n\n"
                                "bob:other:0123456789abcdef0123456789abcdef\n";
    struct Case {
        std::vector<std::string> args;
        int status;
        const char* says;
    };
    const Case cases[] = {
        {{"--help"}, 0, "usage:"},
        {{"--workers", "0"}, 2, "bad value for --workers"},
        {{"--listen", "127.0.0.1"}, 2, "bad value for --listen"},
        {{"--bogus", "1"}, 2, "unknown option --bogus"},
        {{"--bogus"}, 2, "unknown option --bogus"},
        {{"--workers=0"}, 2, "bad value for --workers"},
        {{"--allow-host="}, 2, "bad value for --allow-host"},
        {{"--cmd-timeout"}, 2, "missing value for --cmd-timeout"},
        {{"--workers", "8", "--max-workers", "4"}, 2, "--max-workers is below --workers"},
        {{"--module", "/nonexistent/lib.so"}, 1, "cannot load /nonexistent/lib.so"},
        {{"--auth-file", notHex, "--auth-basic"},
         2,
         "--auth-basic needs --tls-cert and --tls-key: Basic would send the password in clear text"},
        {{"--auth-basic"}, 2, "--auth-basic needs --auth-file"},
        {{"--tls-key=k.pem"}, 2, "--tls-cert and --tls-key go together"},
        {{"--auth-nonce-lifetime", "0"}, 2, "bad value for --auth-nonce-lifetime"},
        {{"--auth-file", "/nonexistent/users"}, 1, "cannot read --auth-file /nonexistent/users"},
        {{"--auth-file", notHex}, 1, "not-hex:1: not user:realm:<32 hex digits>"},
        {{"--auth-file", twoRealms}, 1, "two-realms:3: realm \"other\" differs from \"vks\""},
        {{"--tls-cert", "/nonexistent/c.pem", "--tls-key", "/nonexistent/k.pem"},
         1,
         "cannot use --tls-cert /nonexistent/c.pem"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> argv = {BinaryPath("vks_access_server")};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        ChildProcess child;
        std::string err;
        ASSERT_TRUE(child.Start(argv, dir.File("out"), &err)) << err;
        EXPECT_EQ(child.Stop(0, 20000), c.status) << c.args[0];
        EXPECT_NE(child.Output().find(c.says), std::string::npos) << child.Output();
    }
}

}  // namespace
}  // namespace vks_test
