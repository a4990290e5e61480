// The camera-style login of the access server: users of an htdigest file ("user:realm:MD5(user:realm:
// password)"), HTTP Digest with qop=auth and expiring, single-use nonce counts, and (only when asked
// for, and only over TLS) Basic against the same file. Independent of HTTP transport; loop thread only.
#ifndef VKS_HOST_DIGEST_AUTH_H
#define VKS_HOST_DIGEST_AUTH_H

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vks_host {

// A nonce handed out in a challenge: when, and which nonce counts it has been used with.
struct NonceUse {
    int64_t issuedMs = 0;
    uint64_t highest = 0;  // highest nonce count accepted so far
    uint64_t seen = 0;     // bit i: highest - i was accepted (clients may send in parallel, out of order)
};

struct DigestAuth {
    std::string realm;
    std::vector<std::pair<std::string, std::string>> users;  // name, HA1 as lowercase hex
    bool allowBasic = false;
    int64_t nonceLifetimeMs = 0;
    std::unordered_map<std::string, NonceUse> nonces;
    std::deque<std::string> issued;  // the nonces in the order they were handed out
};

// Reads the htdigest file: one realm for every line, at least one user, names that fit the request
// record. 0, or -1 with the reason in *err.
int LoadAuthFile(const std::string& path, DigestAuth* auth, std::string* err);

enum class AuthVerdict {
    kGranted,     // *user names the verified user
    kChallenge,   // no credentials, or wrong ones, or a nonce count used before: 401
    kStale,       // right credentials on a nonce that expired or is not known (any more): 401, stale=true
    kBadRequest,  // Digest parameters missing or malformed, or not for this request target: 400
};

// The verdict on one request's Authorization value (null: none). tls: the request came over TLS
// (Basic is taken only then). nowMs: a monotonic clock.
AuthVerdict CheckAuthorization(DigestAuth* auth, const char* method, const char* target,
                               const char* authorization, bool tls, int64_t nowMs, std::string* user);

// The WWW-Authenticate values of a 401, the Digest challenge (with a fresh nonce) first.
std::vector<std::string> NewChallenges(DigestAuth* auth, bool stale, int64_t nowMs);

// Lowercase hex of MD5 over text.
std::string Md5Hex(const std::string& text);

}  // namespace vks_host

#endif
