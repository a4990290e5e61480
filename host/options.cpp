#include "options.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "unix_cmd_channel.h"
#include "web_files.h"

namespace vks_host {
namespace {

// Strict decimal in [lo, hi]; nothing else is accepted so that a typo never becomes a default.
bool ParseNumber(const char* text, long long lo, long long hi, long long* out) {
    if (text == nullptr || *text == '\0') {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    long long v = strtoll(text, &end, 10);
    if (errno != 0 || *end != '\0' || v < lo || v > hi) {
        return false;
    }
    *out = v;
    return true;
}

bool ParseListen(const std::string& text, HostOptions* out) {
    size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return false;
    }
    long long port = 0;
    if (!ParseNumber(text.c_str() + colon + 1, 0, 65535, &port)) {
        return false;
    }
    out->listenHost = text.substr(0, colon);
    out->listenPort = static_cast<uint16_t>(port);
    return true;
}

// Applies one "--name value" pair; false with *err set when the value is not acceptable.
bool ApplyOption(const std::string& name, const char* value, HostOptions* out, std::string* err) {
    long long n = 0;
    bool ok = true;
    if (name == "--module") {
        out->modulePath = value;
    } else if (name == "--listen") {
        ok = ParseListen(value, out);
    } else if (name == "--workers") {
        ok = ParseNumber(value, 1, 256, &n);
        out->workers = static_cast<int>(n);
    } else if (name == "--cmd-socket") {
        out->cmdSocket = value;
    } else if (name == "--oplog") {
        out->oplogPath = value;
    } else if (name == "--debug-level") {
        ok = ParseNumber(value, 0, 9, &n);
        out->debugLevel = static_cast<int>(n);
    } else if (name == "--reply-timeout") {
        ok = ParseNumber(value, 1, INT_MAX, &n);
        out->replyTimeoutMs = static_cast<int>(n);
    } else if (name == "--web-root") {
        out->webRoot = value;
    } else if (name == "--max-body") {
        ok = ParseNumber(value, 1, UINT_MAX, &n);
        out->maxBody = static_cast<size_t>(n);
    } else {
        *err = "unknown option " + name;
        return false;
    }
    if (!ok) {
        *err = "bad value for " + name + ": " + value;
    }
    return ok;
}

}  // namespace

std::string DefaultModulePath() {
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n <= 0) {
        return "libvksapiMultiTaskApp.so";
    }
    std::string dir(self, static_cast<size_t>(n));
    dir.erase(dir.rfind('/'));
    return dir + "/../lib/libvksapiMultiTaskApp.so";
}

ParseOutcome ParseHostOptions(int argc, char** argv, HostOptions* out, std::string* err) {
    out->modulePath = DefaultModulePath();
    out->cmdSocket = VW_CMD_SOCKET_DEFAULT;
    out->webRoot = vks_web::DefaultWebRoot();
    for (int i = 1; i < argc; ++i) {
        std::string name = argv[i];
        if (name == "--help" || name == "-h") {
            return kOptionsHelp;
        }
        if (i + 1 >= argc) {
            *err = "missing value for " + name;
            return kOptionsBad;
        }
        if (!ApplyOption(name, argv[++i], out, err)) {
            return kOptionsBad;
        }
    }
    return kOptionsOk;
}

std::string HostUsage(const char* argv0) {
    return std::string("usage: ") + argv0 +
           " [options]\n"
           "  --module PATH         plug-in module (default: <bindir>/../lib/libvksapiMultiTaskApp.so)\n"
           "  --listen HOST:PORT    address to serve (default 127.0.0.1:8080; port 0 picks a free one)\n"
           "  --workers N           threads that run the handler phases (default 4)\n"
           "  --cmd-socket PATH     command-channel socket (default " VW_CMD_SOCKET_DEFAULT
           ")\n"
           "  --oplog FILE          operation log, both languages ('-' for stdout; default: $VW_OPLOG_FILE "
           "or none)\n"
           "  --debug-level N       debug lines of level N and above to stderr (default 3)\n"
           "  --reply-timeout MS    bound on a reply from the camera side (default 35000)\n"
           "  --max-body BYTES      largest response body (default 16777216)\n"
           "  --web-root DIR        where /docs and /api/openapi.json are read from (default: the source "
           "tree)\n"
           "  --help                this text\n";
}

}  // namespace vks_host
