// Every resource and method, in its success case and in its failure cases, through the access
// server's phase runner against scripted peers. Each request's transcript (result, HTTP status,
// body, what the analysis service and the command channel received, every debug and
// operation-log line) must equal the golden file byte for byte: any change in a text, a wire byte
// or a result shows up as a difference. The golden file's "== " lines are the table of requests.
// VKS_UPDATE_GOLDEN=1 rewrites the files instead; review their diff before committing it.
#include <dlfcn.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "host_in_process.h"
#include "log_capture.h"
#include "module_test_util.h"
#include "status_map.h"
#include "vw_log.h"
#include "vks_multi_task_records.h"

namespace vks_test {
namespace {

// One request and the peers' behaviour, read from a "== " line of the golden file (the format
// Header writes): the golden file is the table of cases. A new case is a new "== " line; the
// update mode then fills in its transcript.
struct Case {
    std::string method, resource, query, body;
    std::string service;  // the analysis service's result item, or "absent"
    int cmdResult = 0;    // the command channel's result
    // The analysis service's reply shape (see HostInProcess).
    int replyStatus = 200, replyUri = 0, resultLen = 4, contentDelta = 0;
};

// A debug line as the transcript holds it. A text that quotes its own source line ("ParseCommon[85]")
// has the number masked, so that an edit above the line does not change the golden file; that the
// number is the line argument is checked once, beside ParseCommon's own tests.
std::string DebugText(const DebugLine& line) {
    std::string text = line.text;
    const std::string number = "[" + std::to_string(line.line) + "]";
    for (size_t at = text.find(number); at != std::string::npos; at = text.find(number, at)) {
        text.replace(at, number.size(), "[LINE]");
    }
    return "debug " + std::to_string(line.level) + " switch " + std::to_string(line.debugFlag) + " " + text + "\n";
}

std::string Header(const Case& s) {
    std::ostringstream out;
    out << "== " << s.method << " " << s.resource << s.query << " body " << s.body << " | service "
        << s.service << " | command " << s.cmdResult << " | reply " << s.replyStatus << "/" << s.replyUri
        << "/" << s.resultLen << "/" << s.contentDelta;
    return out.str();
}

bool ParseHeader(const std::string& line, Case* s) {
    static const std::regex kHeader(
        R"(== (\S+) ([^? ]+)(\?\S*)? body (.*) \| service (-?\d+|absent) \| command (-?\d+) \| reply )"
        R"((\d+)/(\d+)/(\d+)/(-?\d+))");
    std::smatch m;
    if (!std::regex_match(line, m, kHeader)) {
        return false;
    }
    *s = {m[1],
          m[2],
          m[3],
          m[4],
          m[5],
          std::stoi(m[6]),
          std::stoi(m[7]),
          std::stoi(m[8]),
          std::stoi(m[9]),
          std::stoi(m[10])};
    return true;
}

std::string Hex(const std::vector<uint8_t>& bytes) {
    // Long records end in zero fill: only up to the last non-zero byte is printed, with the length.
    size_t end = bytes.size();
    while (end > 0 && bytes[end - 1] == 0) {
        --end;
    }
    std::ostringstream out;
    out << bytes.size() << ":";
    for (size_t i = 0; i < end; ++i) {
        static const char kDigits[] = "0123456789abcdef";
        out << kDigits[bytes[i] >> 4] << kDigits[bytes[i] & 15];
    }
    return out.str();
}

class Transcript : public HostInProcess {
protected:
    // Each form's debug switch gets a value of its own, so that every line shows which one it passed.
    void SetUp() override {
        HostInProcess::SetUp();
        moduleFlag_ = static_cast<int*>(dlsym(module_.handle, "g_enITGTDebugFlag"));
        ASSERT_NE(moduleFlag_, nullptr);
        *moduleFlag_ = 5;
        g_enDebugFlag = 9;
    }
    void TearDown() override {
        if (moduleFlag_ != nullptr) {
            *moduleFlag_ = 0;
        }
        g_enDebugFlag = 0;
        HostInProcess::TearDown();
    }
    int* moduleFlag_ = nullptr;

    std::string Run(const Case& s) {
        const bool up = s.service != "absent";
        serviceResult_ = up ? std::stoi(s.service) : 0;
        cmdResult_ = s.cmdResult;
        SetServiceUp(up);
        replyStatus_ = static_cast<uint16_t>(s.replyStatus);
        replyUri_ = static_cast<uint16_t>(s.replyUri);
        resultLen_ = s.resultLen;
        contentDelta_ = s.contentDelta;
        size_t ioctlsBefore = srvfs().Ioctls(kServiceName).size();
        size_t servicedBefore = srvfs().Requests(kServiceName).size();
        size_t commandsBefore = peer_.Requests().size();
        LogCapture log;
        int result = Serve({s.resource.c_str(), s.method.c_str(), s.query.c_str(), s.body.c_str()});
        std::ostringstream out;
        vks_host::HttpStatus status = vks_host::StatusForResult(result, request_.parseFailed, false);
        out << Header(s) << "\nresult " << result << ", HTTP " << status.code << "\nbody "
            << request_.body.text << "\n";
        std::vector<std::vector<uint8_t>> frames = srvfs().Requests(kServiceName);
        for (size_t i = servicedBefore; i < frames.size(); ++i) {
            DecodedFrame f = Decode(frames[i]);
            out << "service uri " << f.uri << " method " << int(f.flagsMethod);
            for (uint16_t type : f.itemOrder) {
                if (type == DXMP_ITEM_ENABLE_LIST_REQ) {  // pBuffer: an address, different every run
                    memset(f.items[type].data() + offsetof(VW_JSON_MSG_S, pBuffer), 0, 4);
                }
                out << " item " << std::hex << type << std::dec << "=" << Hex(f.items[type]);
            }
            out << " content " << Hex(f.content) << "\n";
        }
        std::vector<IoctlCall> ioctls = srvfs().Ioctls(kServiceName);
        for (size_t i = ioctlsBefore; i < ioctls.size(); ++i) {
            out << "ioctl " << std::hex << ioctls[i].cmd << std::dec << " " << ioctls[i].arg << "\n";
        }
        std::vector<cmdframe::Request> commands = peer_.Requests();
        for (size_t i = commandsBefore; i < commands.size(); ++i) {
            out << "command op " << commands[i].op << " type " << commands[i].msgType << " cmd "
                << commands[i].cmd << " payload "
                << Hex(std::vector<uint8_t>(commands[i].payload.begin(), commands[i].payload.end())) << "\n";
        }
        for (const DebugLine& line : log.Debug()) {
            if (line.module == 4) {  // the module's own lines; the host's and libraries' vary with timing
                out << DebugText(line);
            }
        }
        for (const OpLogLine& line : log.OpLog()) {
            out << "oplog " << line.dest << " " << line.module << " " << line.english << " | " << line.chinese
                << "\n";
        }
        // Addresses and the scratch folder differ from run to run.
        std::string text = std::regex_replace(out.str(), std::regex("0x[0-9a-f]+|\\(nil\\)"), "PTR");
        return std::regex_replace(text, std::regex(dir_.Path()), "DIR");
    }
};

std::string ReadGolden(const std::string& path) {
    std::ifstream in(path);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Compared block by block ("== " lines), so that a failure names the request that changed;
// VKS_UPDATE_GOLDEN=1 writes the file instead.
void ExpectGolden(const std::string& path, const std::string& golden, const std::string& all) {
    if (getenv("VKS_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(path) << all;
        GTEST_SKIP() << "golden transcript rewritten: " << path;
    }
    ASSERT_FALSE(golden.empty()) << "no golden transcript at " << path;
    std::istringstream want(golden);
    std::istringstream got(all);
    std::string wantLine;
    std::string gotLine;
    std::string block;
    for (int n = 1; std::getline(want, wantLine); ++n) {
        block = wantLine.rfind("== ", 0) == 0 ? wantLine : block;
        ASSERT_TRUE(std::getline(got, gotLine)) << "transcript ends before line " << n << " of " << block;
        ASSERT_EQ(wantLine, gotLine) << "line " << n << " of " << block;
    }
    EXPECT_FALSE(std::getline(got, gotLine)) << "transcript goes on after the golden one: " << gotLine;
}

TEST_F(Transcript, EveryCaseMatchesTheGoldenTranscript) {
    const std::string path = std::string(VKS_GOLDEN_DIR) + "/requests.txt";
    const std::string golden = ReadGolden(path);
    std::istringstream lines(golden);
    std::string all;
    int cases = 0;
    for (std::string line; std::getline(lines, line);) {
        Case s;
        if (line.rfind("== ", 0) == 0) {
            ASSERT_TRUE(ParseHeader(line, &s)) << "not a case: " << line;
            all += Run(s);
            ++cases;
        }
    }
    EXPECT_GE(cases, 100);  // a golden file cut short must not pass
    ExpectGolden(path, golden, all);
}

// A phase handler of three pointer arguments, called with untyped ones.
template <typename B, typename C>
std::function<int(void**)> Caller(VW_RESULT_TYPE (*handler)(tagHTTP_HEADER_S*, B*, C*)) {
    return [handler](void** a) {
        return handler(static_cast<tagHTTP_HEADER_S*>(a[0]), static_cast<B*>(a[1]), static_cast<C*>(a[2]));
    };
}

// Every phase of every route with each of its pointer arguments null in turn, the others real: the
// result and the module's log lines (whose form names what was null) against golden/nulls.txt.
// Nothing may reach a peer.
TEST_F(Transcript, EveryPhaseRefusesEachNullArgument) {
    using vks_host::HandlerSet;
    std::string all;
    for (const HandlerSet& route : module_.routes) {
        vks_host::PhaseRequest& r = request_;
        vks_host::InitPhaseRequest(&r, &route, 1 << 20);
        snprintf(r.header.szReqUrl, sizeof(r.header.szReqUrl), "/api/%s", route.resource);
        r.client.synSock = sock_;
        r.requestBody = "{}";
        r.input.pContent = r.requestBody.c_str();
        const struct {
            const char* name;
            bool present;
            void* args[3];
            std::function<int(void**)> call;
        } phases[] = {
            {"PreProc", route.preProc != nullptr, {&r.header, sock_, &r.ctIn}, Caller(route.preProc)},
            {"Parse", route.parse != nullptr, {&r.header, &r.input, &r.ctIn}, Caller(route.parse)},
            {"Run", route.run != nullptr, {&r.header, &r.client, &r.ctIn}, Caller(route.run)},
            {"Recv", route.recv != nullptr, {&r.header, &r.client, &r.ctIn}, Caller(route.recv)},
            {"Format",
             route.format != nullptr,
             {&r.header, &r.ctIn, &r.output},
             [&](void** a) {
                 return route.format(static_cast<tagHTTP_HEADER_S*>(a[0]), 0,
                                     static_cast<tagHTTP_CNTENT_INTER_S*>(a[1]),
                                     static_cast<tagHTTP_BUF_S*>(a[2]));
             }},
        };
        for (const auto& phase : phases) {
            for (int nulled = 0; phase.present && nulled < 3; ++nulled) {
                void* args[3] = {phase.args[0], phase.args[1], phase.args[2]};
                args[nulled] = nullptr;
                size_t serviced = srvfs().Requests(kServiceName).size();
                size_t commands = peer_.Requests().size();
                LogCapture log;
                int result = phase.call(args);
                std::ostringstream out;
                out << "== " << route.method << " " << route.resource << " " << phase.name << " argument "
                    << nulled + 1 << " null: result " << result << "\n";
                for (const DebugLine& line : log.Debug()) {
                    out << DebugText(line);
                }
                all += std::regex_replace(out.str(), std::regex("0x[0-9a-f]+"), "PTR");
                EXPECT_EQ(srvfs().Requests(kServiceName).size(), serviced) << out.str();
                EXPECT_EQ(peer_.Requests().size(), commands) << out.str();
                EXPECT_NE(result, 0) << out.str();
            }
        }
        EXPECT_EQ(r.ctIn.parseOut, nullptr);
        EXPECT_EQ(r.ctIn.runOut, nullptr);
    }
    ExpectGolden(std::string(VKS_GOLDEN_DIR) + "/nulls.txt",
                 ReadGolden(std::string(VKS_GOLDEN_DIR) + "/nulls.txt"), all);
}

}  // namespace
}  // namespace vks_test
