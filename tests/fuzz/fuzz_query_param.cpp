// GetURIQueryParamByKey for every type against a plain reference reader of the same rules: the
// first pair whose percent-decoded name is the (non-empty) key; a value that is empty, badly escaped or (for
// a number) not a plain decimal in range is refused, and a refused read leaves the destination as it was.
// The text reader refuses only a missing key: a present value it cannot deliver whole reads as "?".
// Input: the key's index, the text buffer's size, then the URL.
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "zkapi_common.h"

namespace {

const char* const kKeys[] = {"ChannelId", "v", "StartTime", "k", "", "Start Time", "%"};

bool Decode(const std::string& in, std::string* out) {
    out->clear();
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] == '+') {
            *out += ' ';
        } else if (in[i] != '%') {
            *out += in[i];
        } else {
            if (i + 2 >= in.size() || !isxdigit(static_cast<unsigned char>(in[i + 1])) ||
                !isxdigit(static_cast<unsigned char>(in[i + 2]))) {
                return false;
            }
            char c = static_cast<char>(std::stoi(in.substr(i + 1, 2), nullptr, 16));
            if (c == '\0') {
                return false;
            }
            *out += c;
            i += 2;
        }
    }
    return true;
}

enum Presence { kAbsent, kValue, kUnusable };

// What url holds for key: its value, a value that cannot be read, or nothing.
Presence Reference(const std::string& url, const std::string& key, std::string* value) {
    std::string query = url.substr(0, url.find('#'));
    size_t q = query.find('?');
    if (q == std::string::npos || key.empty()) {  // no key names a nameless pair
        return kAbsent;
    }
    query = query.substr(q + 1);
    for (size_t start = 0; start <= query.size();) {
        size_t amp = query.find('&', start);
        std::string pair = query.substr(start, amp == std::string::npos ? std::string::npos : amp - start);
        size_t eq = pair.find('=');
        std::string name;
        if (Decode(pair.substr(0, eq), &name) && name == key) {
            bool usable = eq != std::string::npos && Decode(pair.substr(eq + 1), value) && !value->empty();
            return usable ? kValue : kUnusable;
        }
        if (amp == std::string::npos) {
            break;
        }
        start = amp + 1;
    }
    return kAbsent;
}

bool Digits(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool Unsigned(const std::string& text, unsigned long long max, unsigned long long* out) {
    if (!Digits(text)) {
        return false;
    }
    errno = 0;
    *out = strtoull(text.c_str(), nullptr, 10);
    return errno == 0 && *out <= max;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    tagHTTP_HEADER_S header{};
    memcpy(header.szReqUrl, data + 2, std::min(size - 2, sizeof(header.szReqUrl)));
    std::string url(header.szReqUrl, strnlen(header.szReqUrl, sizeof(header.szReqUrl)));
    const std::string key = kKeys[data[0] % (sizeof(kKeys) / sizeof(kKeys[0]))];
    std::string text;
    const Presence presence = Reference(url, key, &text);
    const bool found = presence == kValue;

    const unsigned int room = data[1] % 40;  // the text's buffer: what fits with its NUL is read
    char buffer[40];
    memset(buffer, '#', sizeof(buffer));
    const bool fits = found && text.size() < room;
    const bool marked = !fits && presence != kAbsent && room >= 2;  // present, not deliverable: "?"
    FUZZ_CHECK((GetURIQueryParamByKey(&header, key, buffer, room) == 0) == (fits || marked));
    std::string expected = fits ? text + '\0' : marked ? std::string("?", 2) : "";
    expected.resize(sizeof(buffer), '#');  // nothing written past the NUL, nothing at all when refused
    FUZZ_CHECK(memcmp(buffer, expected.data(), sizeof(buffer)) == 0);

    unsigned long long number = 0;
    unsigned long long u64 = 999;
    bool ok = found && Unsigned(text, ULLONG_MAX, &number);
    FUZZ_CHECK((GetURIQueryParamByKey<unsigned long long>(&header, key, &u64) == 0) == ok);
    FUZZ_CHECK(u64 == (ok ? number : 999));
    unsigned int u32 = 999;
    ok = found && Unsigned(text, UINT_MAX, &number);
    FUZZ_CHECK((GetURIQueryParamByKey<unsigned int>(&header, key, &u32) == 0) == ok);
    FUZZ_CHECK(u32 == (ok ? number : 999));
    int i32 = -999;
    bool negative = found && text[0] == '-';
    ok = found && Unsigned(negative ? text.substr(1) : text, negative ? 1ull + INT_MAX : INT_MAX, &number);
    FUZZ_CHECK((GetURIQueryParamByKey<int>(&header, key, &i32) == 0) == ok);
    FUZZ_CHECK(i32 ==
               (ok ? (negative ? -static_cast<long long>(number) : static_cast<long long>(number)) : -999));
    return 0;
}
