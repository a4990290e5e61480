#include "options.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "kit_dir.h"
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

// The options that take a whole number: name, range, field.
struct IntOption {
    const char* name;
    long long lo;
    long long hi;
    int HostOptions::*field;
};

const IntOption kIntOptions[] = {
    {"--workers", 1, 256, &HostOptions::workers},
    {"--max-workers", 1, 256, &HostOptions::maxWorkers},
    {"--debug-level", 0, 9, &HostOptions::debugLevel},
    {"--reply-timeout", 1, INT_MAX, &HostOptions::replyTimeoutMs},
    {"--cmd-timeout", 1, INT_MAX, &HostOptions::cmdTimeoutMs},
    {"--max-header-bytes", 256, INT_MAX, &HostOptions::maxHeaderBytes},
    {"--idle-timeout", 1, INT_MAX, &HostOptions::idleTimeoutMs},
    {"--header-timeout", 1, INT_MAX, &HostOptions::headerTimeoutMs},
    {"--max-connections", 1, 1 << 20, &HostOptions::maxConnections},
    {"--drain-timeout", 0, INT_MAX, &HostOptions::drainTimeoutMs},
    {"--auth-nonce-lifetime", 1, INT_MAX / 1000, &HostOptions::nonceLifetimeS},
};

bool Refuse(const std::string& name, const char* value, std::string* err) {
    *err = "bad value for " + name + ": " + value;
    return false;
}

// Applies one "--name value" pair; false with *err set when the value is not acceptable.
bool ApplyOption(const std::string& name, const char* value, HostOptions* out, std::string* err) {
    long long n = 0;
    bool ok = true;
    if (value == nullptr) {
        // Tried with an empty value only to tell an option we know from one we do not.
        HostOptions scratch;
        if (ApplyOption(name, "", &scratch, err) || err->rfind("unknown option", 0) != 0) {
            *err = "missing value for " + name;
        }
        return false;
    }
    for (const IntOption& o : kIntOptions) {
        if (name == o.name) {
            ok = ParseNumber(value, o.lo, o.hi, &n);
            out->*o.field = static_cast<int>(n);
            return ok || Refuse(name, value, err);
        }
    }
    if (name == "--module") {
        out->modulePath = value;
    } else if (name == "--listen") {
        ok = ParseListen(value, out);
    } else if (name == "--cmd-socket") {
        out->cmdSocket = value;
    } else if (name == "--oplog") {
        out->oplogPath = value;
    } else if (name == "--web-root") {
        out->webRoot = value;
    } else if (name == "--allow-host") {
        ok = *value != '\0';
        out->allowHosts.push_back(value);
    } else if (name == "--auth-file") {
        out->authFile = value;
    } else if (name == "--tls-cert") {
        out->tlsCert = value;
    } else if (name == "--tls-key") {
        out->tlsKey = value;
    } else if (name == "--max-body") {
        ok = ParseNumber(value, 1, UINT_MAX, &n);
        out->maxBody = static_cast<size_t>(n);
    } else {
        *err = "unknown option " + name;
        return false;
    }
    return ok || Refuse(name, value, err);
}

// Options that only make sense together.
bool CheckCombinations(const HostOptions& o, std::string* err) {
    if (o.maxWorkers < o.workers) {
        *err = "--max-workers is below --workers";
    } else if (o.tlsCert.empty() != o.tlsKey.empty()) {
        *err = "--tls-cert and --tls-key go together";
    } else if (o.authBasic && o.authFile.empty()) {
        *err = "--auth-basic needs --auth-file";
    } else if (o.authBasic && o.tlsCert.empty()) {
        *err = "--auth-basic needs --tls-cert and --tls-key: Basic would send the password in clear text";
    } else {
        return true;
    }
    return false;
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
    out->cmdSocket = kitdir::DefaultCmdSocket();
    out->webRoot = vks_web::DefaultWebRoot();
    for (int i = 1; i < argc; ++i) {
        std::string name = argv[i];
        if (name == "--help" || name == "-h") {
            return kOptionsHelp;
        }
        if (name == "--auth-basic") {  // the one option without a value
            out->authBasic = true;
            continue;
        }
        size_t equals = name.find('=');
        if (equals != std::string::npos) {  // "--name=value"
            if (!ApplyOption(name.substr(0, equals), argv[i] + equals + 1, out, err)) {
                return kOptionsBad;
            }
            continue;
        }
        if (!ApplyOption(name, i + 1 < argc ? argv[i + 1] : nullptr, out, err)) {
            return kOptionsBad;
        }
        ++i;
    }
    return CheckCombinations(*out, err) ? kOptionsOk : kOptionsBad;
}

std::string HostUsage(const char* argv0) {
    return std::string("usage: ") + argv0 +
           " [options]\n"
           "Options take their value as --name value or --name=value.\n"
           "  --module PATH         plug-in module (default: <bindir>/../lib/libvksapiMultiTaskApp.so)\n"
           "  --listen HOST:PORT    address to serve (default 127.0.0.1:8080; port 0 picks a free one)\n"
           "  --workers N           threads per road started at once (default 4)\n"
           "  --max-workers N       threads per road at most (default 16)\n"
           "  --cmd-socket PATH     command-channel socket, in a folder only this user may change\n"
           "                        (default: cmd.sock " +
           kitdir::DescribeDefault(kitdir::DefaultCmdSocket()) +
           ")\n"
           "  --oplog FILE          operation log, both languages ('-' for stdout; default: $VW_OPLOG_FILE "
           "or none)\n"
           "  --debug-level N       debug lines of level N and above to stderr (default 3)\n"
           "  --reply-timeout MS    bound on an asynchronous reply (default 35000)\n"
           "  --cmd-timeout MS      bound on one command-channel exchange (default 5000)\n"
           "  --max-body BYTES      largest response body (default 16777216)\n"
           "  --max-header-bytes N  largest request line plus headers (default 16384)\n"
           "  --idle-timeout MS     close a connection silent this long (default 15000)\n"
           "  --header-timeout MS   close a connection whose request takes longer to arrive (default 10000)\n"
           "  --max-connections N   pause accepting while this many connections are open (default 512)\n"
           "  --drain-timeout MS    on SIGINT/SIGTERM, time left to requests in flight (default 10000); "
           "then,\n"
           "                        or at a second signal, requests not started get 503 and the server "
           "exits\n"
           "  --web-root DIR        where /docs and /api/openapi.json are read from (default: the source "
           "tree)\n"
           "  --allow-host NAME     a name requests may give in Host besides 127.0.0.1, localhost and [::1]\n"
           "                        (repeatable); any other Host gets 421\n"
           "  --auth-file FILE      users (htdigest format); every request then needs a Digest login\n"
           "  --auth-nonce-lifetime S  how long a Digest nonce is taken (default 300)\n"
           "  --auth-basic          also take Basic credentials (needs --tls-cert)\n"
           "  --tls-cert FILE       serve HTTPS with this PEM certificate (chain)...\n"
           "  --tls-key FILE        ...and this PEM private key\n"
           "  --help                this text\n";
}

}  // namespace vks_host
