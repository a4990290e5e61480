// Command-line options of the development access server.
#ifndef VKS_HOST_OPTIONS_H
#define VKS_HOST_OPTIONS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vks_host {

struct HostOptions {
    std::string modulePath;  // libvksapiMultiTaskApp.so
    std::string listenHost = "127.0.0.1";
    uint16_t listenPort = 8080;  // 0: any free port, printed when listening
    int workers = 4;             // threads per road started at once
    int maxWorkers = 16;         // threads per road at most
    int cmdTimeoutMs = 5000;     // one command-channel exchange
    std::string cmdSocket;
    std::string oplogPath;  // empty: operation log dropped; "-": stdout
    int debugLevel = 3;     // debug lines of this level and above go to stderr
    int replyTimeoutMs = 35000;
    size_t maxBody = 16u << 20;   // response body bound enforced by Copy2Buf
    int maxHeaderBytes = 16384;   // request line and header block
    int idleTimeoutMs = 15000;    // a connection silent this long (idle, or stalled mid-request) is closed
    int headerTimeoutMs = 10000;  // a request must arrive whole this long after its first bytes
    int maxConnections = 512;     // accepting pauses while this many connections are open
    int drainTimeoutMs = 10000;   // on SIGINT/SIGTERM, how long requests in flight may take to finish
    std::string webRoot;          // docs/openapi, web/ and node_modules/ of the docs page
    std::vector<std::string> allowHosts;  // names beside the loopback ones a request may name in Host
    std::string authFile;         // htdigest users; empty: no login
    bool authBasic = false;       // Basic against authFile as well (TLS only)
    int nonceLifetimeS = 300;     // a Digest nonce is taken this long after it was handed out
    std::string tlsCert;          // PEM certificate chain; with tlsKey: HTTPS
    std::string tlsKey;
};

enum ParseOutcome { kOptionsOk = 0, kOptionsHelp = 1, kOptionsBad = -1 };

// Fills *out from argv. kOptionsBad comes with the reason in *err.
ParseOutcome ParseHostOptions(int argc, char** argv, HostOptions* out, std::string* err);
std::string HostUsage(const char* argv0);
// <directory of the running executable>/../lib/libvksapiMultiTaskApp.so
std::string DefaultModulePath();

}  // namespace vks_host

#endif
