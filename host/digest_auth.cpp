#include "digest_auth.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <strings.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>

#include "http_records.h"
#include "request_head.h"

namespace vks_host {
namespace {

// Handed-out nonces kept at most: a flood of unauthenticated requests then costs bounded memory, and
// a user whose nonce it pushed out gets stale=true and retries without a prompt.
const size_t kMaxNonces = 4096;
// Nonce counts accepted out of order behind the highest one (the width of NonceUse::seen).
const uint64_t kCountWindow = 64;

const char kHex[] = "0123456789abcdef";

std::string Hex(const unsigned char* bytes, size_t length) {
    std::string text;
    for (size_t i = 0; i < length; ++i) {
        text += kHex[bytes[i] >> 4];
        text += kHex[bytes[i] & 15];
    }
    return text;
}

bool IsHex(const std::string& text, size_t length) {
    if (text.size() != length) {
        return false;
    }
    for (char c : text) {
        if (!isxdigit(static_cast<unsigned char>(c))) {
            return false;
        }
    }
    return true;
}

std::string Lower(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// Compared in time that does not depend on where the texts differ.
bool SameSecret(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

int Base64Value(char c) {
    static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const char* at = c != '\0' ? strchr(kAlphabet, c) : nullptr;
    return at != nullptr ? static_cast<int>(at - kAlphabet) : -1;
}

// Strict enough for credentials: stops at the first '=' and refuses any other foreign character.
bool Base64Decode(const char* text, std::string* out) {
    unsigned int bits = 0;
    int count = 0;
    for (const char* p = text; *p != '\0' && *p != '='; ++p) {
        int v = Base64Value(*p);
        if (v < 0) {
            return false;
        }
        bits = (bits << 6) | static_cast<unsigned int>(v);
        count += 6;
        if (count >= 8) {
            count -= 8;
            out->push_back(static_cast<char>((bits >> count) & 0xFF));
        }
    }
    return true;
}

void SkipSpace(const char** p) {
    while (**p == ' ' || **p == '\t') {
        ++*p;
    }
}

// One value: a token or a quoted string (backslash escapes the next character).
bool ParseValue(const char** p, std::string* value) {
    if (**p != '"') {
        while (IsTokenChar(static_cast<unsigned char>(**p))) {
            *value += *(*p)++;
        }
        return !value->empty();
    }
    for (++*p; **p != '"'; ++*p) {
        if (**p == '\\') {
            ++*p;
        }
        if (**p == '\0' || static_cast<unsigned char>(**p) < 0x20 || **p == 0x7F) {
            return false;
        }
        *value += **p;
    }
    ++*p;
    return true;
}

// The parameters after "Digest ": name=value pairs separated by commas, names lowercased. False on a
// syntax error or a name given twice.
bool ParseParams(const char* p, std::map<std::string, std::string>* params) {
    for (;;) {
        SkipSpace(&p);
        std::string name;
        while (IsTokenChar(static_cast<unsigned char>(*p))) {
            name += static_cast<char>(tolower(static_cast<unsigned char>(*p++)));
        }
        SkipSpace(&p);
        if (name.empty() || *p++ != '=') {
            return false;
        }
        SkipSpace(&p);
        std::string value;
        if (!ParseValue(&p, &value) || !params->emplace(name, value).second) {
            return false;
        }
        SkipSpace(&p);
        if (*p == '\0') {
            return true;
        }
        if (*p++ != ',') {
            return false;
        }
    }
}

std::string Param(const std::map<std::string, std::string>& params, const char* name) {
    auto found = params.find(name);
    return found != params.end() ? found->second : "";
}

// The HA1 of name. An unknown name gets a stand-in and the same work follows (the caller refuses it by
// *known), so that the answer's timing does not tell which names exist.
std::string Ha1Of(const DigestAuth& auth, const std::string& name, bool* known) {
    *known = false;
    std::string ha1 = Md5Hex(name + ":" + auth.realm + ":\n");  // no password can hold a line feed
    for (const auto& user : auth.users) {
        if (user.first == name) {
            *known = true;
            ha1 = user.second;
        }
    }
    return ha1;
}

// Accepts count once: above every count seen, or within the window below the highest and not seen.
bool TakeCount(NonceUse* use, uint64_t count) {
    if (count > use->highest) {
        uint64_t shift = count - use->highest;
        use->seen = shift >= kCountWindow ? 0 : use->seen << shift;
        use->seen |= 1;
        use->highest = count;
        return true;
    }
    uint64_t back = use->highest - count;
    if (back >= kCountWindow || (use->seen >> back & 1) != 0) {
        return false;
    }
    use->seen |= uint64_t{1} << back;
    return true;
}

// Drops the nonces whose lifetime is over, and the oldest beyond keep, oldest first.
void ForgetExpired(DigestAuth* auth, int64_t nowMs, size_t keep) {
    while (!auth->issued.empty()) {
        auto found = auth->nonces.find(auth->issued.front());
        if (found != auth->nonces.end() && nowMs - found->second.issuedMs < auth->nonceLifetimeMs &&
            auth->nonces.size() <= keep) {
            return;
        }
        if (found != auth->nonces.end()) {
            auth->nonces.erase(found);
        }
        auth->issued.pop_front();
    }
}

AuthVerdict CheckDigest(DigestAuth* auth, const char* method, const char* target, const char* text,
                        int64_t nowMs, std::string* user) {
    std::map<std::string, std::string> params;
    if (!ParseParams(text, &params)) {
        return AuthVerdict::kBadRequest;
    }
    for (const char* required : {"username", "realm", "nonce", "uri", "response", "qop", "nc", "cnonce"}) {
        if (params.count(required) == 0) {
            return AuthVerdict::kBadRequest;
        }
    }
    std::string nc = params["nc"];
    std::string algorithm = Lower(Param(params, "algorithm"));
    // Counts start at 1: 0 would be taken once on every nonce without ever having been sent.
    if (!IsHex(nc, 8) || nc == "00000000" || !IsHex(params["response"], 32) || params["uri"] != target ||
        Lower(Param(params, "userhash")) == "true") {
        return AuthVerdict::kBadRequest;
    }
    if (params["realm"] != auth->realm || params["qop"] != "auth" ||
        (!algorithm.empty() && algorithm != "md5")) {
        return AuthVerdict::kChallenge;
    }
    bool known = false;
    std::string ha1 = Ha1Of(*auth, params["username"], &known);
    std::string ha2 = Md5Hex(std::string(method) + ":" + params["uri"]);
    std::string expected =
        Md5Hex(ha1 + ":" + params["nonce"] + ":" + nc + ":" + params["cnonce"] + ":auth:" + ha2);
    if (!SameSecret(expected, Lower(params["response"])) || !known) {
        return AuthVerdict::kChallenge;
    }
    ForgetExpired(auth, nowMs, kMaxNonces);
    auto use = auth->nonces.find(params["nonce"]);
    if (use == auth->nonces.end()) {
        return AuthVerdict::kStale;
    }
    if (!TakeCount(&use->second, strtoull(nc.c_str(), nullptr, 16))) {
        return AuthVerdict::kChallenge;  // a replay: whoever sends it must answer a new nonce
    }
    *user = params["username"];
    return AuthVerdict::kGranted;
}

AuthVerdict CheckBasic(const DigestAuth& auth, const char* text, std::string* user) {
    std::string decoded;
    size_t colon = std::string::npos;
    if (Base64Decode(text, &decoded)) {
        colon = decoded.find(':');
    }
    if (colon == std::string::npos) {
        return AuthVerdict::kChallenge;
    }
    std::string name = decoded.substr(0, colon);
    bool known = false;
    std::string ha1 = Ha1Of(auth, name, &known);
    if (!SameSecret(ha1, Md5Hex(name + ":" + auth.realm + ":" + decoded.substr(colon + 1))) || !known) {
        return AuthVerdict::kChallenge;
    }
    *user = name;
    return AuthVerdict::kGranted;
}

// A realm as a quoted string.
std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted + "\"";
}

// One "user:realm:ha1" line; false when it is not one.
bool ParseLine(const std::string& line, std::string* user, std::string* realm, std::string* ha1) {
    size_t first = line.find(':');
    size_t second = first == std::string::npos ? first : line.find(':', first + 1);
    if (first == 0 || second == std::string::npos) {
        return false;
    }
    *user = line.substr(0, first);
    *realm = line.substr(first + 1, second - first - 1);
    *ha1 = Lower(line.substr(second + 1));
    return IsHex(*ha1, 32) && user->size() < HTTP_USER_LEN;
}

}  // namespace

std::string Md5Hex(const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr) != 1) {
        return "";  // compares equal to no response
    }
    return Hex(digest, length);
}

int LoadAuthFile(const std::string& path, DigestAuth* auth, std::string* err) {
    std::ifstream in(path);
    if (!in) {
        *err = "cannot read --auth-file " + path + ": " + strerror(errno);
        return -1;
    }
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty()) {
            continue;
        }
        std::string user, realm, ha1;
        std::string where = path + ":" + std::to_string(number) + ": ";
        if (!ParseLine(line, &user, &realm, &ha1)) {
            *err = where + "not user:realm:<32 hex digits> (a name of at most " +
                   std::to_string(HTTP_USER_LEN - 1) + " bytes)";
            return -1;
        }
        if (!auth->users.empty() && realm != auth->realm) {
            *err =
                where + "realm \"" + realm + "\" differs from \"" + auth->realm + "\" (one realm per file)";
            return -1;
        }
        auth->realm = realm;
        auth->users.emplace_back(user, ha1);
    }
    if (auth->users.empty()) {
        *err = "--auth-file " + path + " holds no user";
        return -1;
    }
    return 0;
}

AuthVerdict CheckAuthorization(DigestAuth* auth, const char* method, const char* target,
                               const char* authorization, bool tls, int64_t nowMs, std::string* user) {
    if (authorization == nullptr) {
        return AuthVerdict::kChallenge;
    }
    if (strncasecmp(authorization, "Digest ", 7) == 0) {
        return CheckDigest(auth, method, target, authorization + 7, nowMs, user);
    }
    if (auth->allowBasic && tls && strncasecmp(authorization, "Basic ", 6) == 0) {
        return CheckBasic(*auth, authorization + 6, user);
    }
    return AuthVerdict::kChallenge;
}

std::vector<std::string> NewChallenges(DigestAuth* auth, bool stale, int64_t nowMs) {
    unsigned char random[16];
    std::vector<std::string> challenges;
    if (RAND_bytes(random, sizeof(random)) == 1) {
        std::string nonce = Hex(random, sizeof(random));
        ForgetExpired(auth, nowMs, kMaxNonces - 1);
        NonceUse use;
        use.issuedMs = nowMs;
        auth->nonces[nonce] = use;
        auth->issued.push_back(nonce);
        challenges.push_back("Digest realm=" + Quoted(auth->realm) + ", qop=\"auth\", nonce=\"" + nonce +
                             "\", algorithm=MD5" + (stale ? ", stale=true" : ""));
    }
    if (auth->allowBasic) {
        challenges.push_back("Basic realm=" + Quoted(auth->realm) + ", charset=\"UTF-8\"");
    }
    return challenges;
}

}  // namespace vks_host
