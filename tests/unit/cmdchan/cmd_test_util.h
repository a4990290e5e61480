// Shared pieces of the command-channel tests: temporary directories, a scripted peer on a real unix
// socket (the framing server with a test's own handler), and the host records of one request.
#ifndef CMDCHAN_TEST_UTIL_H
#define CMDCHAN_TEST_UTIL_H

#include <stdint.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cmd_channel_frame.h"
#include "frame_server.h"
#include "http_records.h"
#include "unix_cmd_channel.h"

namespace cmdtest {

// A fresh directory under /tmp, removed with its content.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& Path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }
    std::vector<std::string> Entries() const;

private:
    std::string path_;
};

void WriteFile(const std::string& path, const std::string& text);
bool FileExists(const std::string& path);

// Answers every request with its script and records what was asked.
class ScriptedPeer {
public:
    using Script = std::function<bool(const cmdframe::Request&, cmdframe::Reply*)>;
    explicit ScriptedPeer(const std::string& socketPath);
    void SetScript(Script script);
    std::vector<cmdframe::Request> Requests() const;

private:
    mutable std::mutex mutex_;
    Script script_;
    std::vector<cmdframe::Request> requests_;
    std::unique_ptr<cmdchan::FrameServer> server_;
};

// Byte image of a record, and a record read back from bytes.
template <typename T>
std::vector<unsigned char> Bytes(const T& record) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&record);
    return std::vector<unsigned char>(p, p + sizeof(T));
}

// A MSG_DATA reply with the service's result and the result file's path (copied up to 128 bytes).
std::vector<unsigned char> MsgReply(int32_t result, const std::string& path);

// The records the host hands to the phases of one request.
class Request {
public:
    Request(const std::string& url, const std::string& socketPath, int timeoutMs = 2000);
    ~Request();
    tagHTTP_HEADER_S header{};
    tagHTTP_CLIENT_S client{};
    tagHTTP_CNTENT_INTER_S ctIn{};
    tagHTTP_BUF_S content{};
    tagHTTP_BUF_S out{};
    std::string body;  // what Copy2Buf received
};

}  // namespace cmdtest

#endif
