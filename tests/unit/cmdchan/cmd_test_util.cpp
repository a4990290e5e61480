#include "cmd_test_util.h"

#include <dirent.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace cmdtest {

TempDir::TempDir() {
    char tmpl[] = "/tmp/cmdchan-test-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = tmpl;
}

TempDir::~TempDir() {
    for (const std::string& name : Entries()) {
        unlink(File(name).c_str());
    }
    rmdir(path_.c_str());
}

std::vector<std::string> TempDir::Entries() const {
    std::vector<std::string> names;
    DIR* dir = opendir(path_.c_str());
    if (dir == nullptr) {
        return names;
    }
    while (struct dirent* e = readdir(dir)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) {
            names.push_back(e->d_name);
        }
    }
    closedir(dir);
    return names;
}

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

bool FileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

ScriptedPeer::ScriptedPeer(const std::string& socketPath) {
    std::string error;
    server_ = cmdchan::FrameServer::Start(
        socketPath,
        [this](const cmdframe::Request& request, cmdframe::Reply* reply) {
            Script script;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                requests_.push_back(request);
                script = script_;
            }
            return script ? script(request, reply) : true;
        },
        &error);
    if (!server_) {
        throw std::runtime_error("scripted peer: " + error);
    }
}

void ScriptedPeer::SetScript(Script script) {
    std::lock_guard<std::mutex> lock(mutex_);
    script_ = std::move(script);
}

std::vector<cmdframe::Request> ScriptedPeer::Requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

std::vector<unsigned char> MsgReply(int32_t result, const std::string& path) {
    MSG_DATA msg;
    memset(&msg, 0, sizeof(msg));
    msg.recvMsgCode = VW_CMD_GET_HISTORY_RECORDS;
    msg.result = result;
    memcpy(msg.szPath, path.data(), path.size() < sizeof(msg.szPath) ? path.size() : sizeof(msg.szPath));
    return Bytes(msg);
}

namespace {
int CopyToString(tagHTTP_BUF_S* self, const char* text, unsigned int length) {
    static_cast<std::string*>(self->pPrivate)->append(text, length);
    return 0;
}
}  // namespace

Request::Request(const std::string& url, const std::string& socketPath, int timeoutMs) {
    snprintf(header.method, sizeof(header.method), "%s", "GET");
    snprintf(header.szReqUrl, sizeof(header.szReqUrl), "%s", url.c_str());
    snprintf(header.szUserName, sizeof(header.szUserName), "%s", "admin");
    snprintf(header.szClientIp, sizeof(header.szClientIp), "%s", "10.0.0.7");
    header.clientPort = 51234;
    client.synSock = UnixSocketOpen(socketPath.c_str(), timeoutMs);
    content.pContent = "";
    out.Copy2Buf = &CopyToString;
    out.pPrivate = &body;
}

Request::~Request() {
    UnixSocketClose(client.synSock);
    free(ctIn.preProcOut);
    free(ctIn.parseOut);
    free(ctIn.runOut);
}

}  // namespace cmdtest
