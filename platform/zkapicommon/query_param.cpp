// Query parameters of a request URL (docs/query-parameters.md): the text after the first '?' up to a
// '#', pairs split on '&', key and value split on the first '=', both percent-decoded ('+' is a blank).
// The first pair whose key matches decides; every failure leaves the destination untouched. A text
// that is there but cannot be delivered whole reads as kUnusableText, never as an absent key.
#include <limits.h>
#include <string.h>

#include <new>
#include <string>

#include "zkapi_common.h"

namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// -1 for a '%' without two hex digits, or an escaped NUL that no C text can carry.
int PercentDecode(const char* begin, const char* end, std::string* out) {
    out->clear();
    for (const char* p = begin; p < end; ++p) {
        if (*p == '+') {
            out->push_back(' ');
        } else if (*p != '%') {
            out->push_back(*p);
        } else {
            int high = end - p > 2 ? HexDigit(p[1]) : -1;
            int low = high >= 0 ? HexDigit(p[2]) : -1;
            if (low < 0 || (high == 0 && low == 0)) {
                return -1;
            }
            out->push_back(static_cast<char>(high * 16 + low));
            p += 2;
        }
    }
    return 0;
}

// What the first pair named key holds.
enum class Found { kAbsent, kValue, kUnusable };

// The text stored for a key that is present with a value that cannot be delivered (empty, badly
// escaped, or longer than the destination): a caller that treats a failed read as "no value" must
// not widen what it does because a client sent a value it cannot read. No time, number or name the
// services take is a lone question mark, so they refuse it.
const char kUnusableText[] = "?";

Found FindValueOrThrow(const tagHTTP_HEADER_S* header, const std::string& key, std::string* value) {
    if (header == nullptr || key.empty()) {
        return Found::kAbsent;
    }
    // The fragment ends the URL first: a '?' inside it starts no query.
    const char* url = header->szReqUrl;
    const char* end = url + strnlen(url, sizeof(header->szReqUrl));
    const char* fragment = static_cast<const char*>(memchr(url, '#', static_cast<size_t>(end - url)));
    end = fragment != nullptr ? fragment : end;
    const char* query = static_cast<const char*>(memchr(url, '?', static_cast<size_t>(end - url)));
    if (query == nullptr) {
        return Found::kAbsent;
    }
    std::string name;
    for (const char* pair = query + 1; pair < end;) {
        const char* next = static_cast<const char*>(memchr(pair, '&', static_cast<size_t>(end - pair)));
        const char* pairEnd = next != nullptr ? next : end;
        const char* eq = static_cast<const char*>(memchr(pair, '=', static_cast<size_t>(pairEnd - pair)));
        const char* nameEnd = eq != nullptr ? eq : pairEnd;
        if (PercentDecode(pair, nameEnd, &name) == 0 && name == key) {
            if (eq == nullptr || PercentDecode(eq + 1, pairEnd, value) != 0 || value->empty()) {
                return Found::kUnusable;
            }
            return Found::kValue;
        }
        pair = pairEnd + 1;
    }
    return Found::kAbsent;
}

// The same, with running out of memory reported as unusable: the key may well be there, and a
// caller that took it for absent would widen what it does (a ranged deletion would delete all).
Found FindValue(const tagHTTP_HEADER_S* header, const std::string& key, std::string* value) {
    try {
        return FindValueOrThrow(header, key, value);
    } catch (const std::bad_alloc&) {
        return Found::kUnusable;
    }
}

// Strict decimal: digits only (no blank, sign, prefix or exponent), at most max.
int ParseDecimal(const char* text, unsigned long long max, unsigned long long* out) {
    if (*text == '\0') {
        return -1;
    }
    unsigned long long result = 0;
    for (const char* p = text; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9') {
            return -1;
        }
        unsigned digit = static_cast<unsigned>(*p - '0');
        if (result > (max - digit) / 10) {
            return -1;
        }
        result = result * 10 + digit;
    }
    *out = result;
    return 0;
}

int ParseNumber(const std::string& text, unsigned long long* out) {
    return ParseDecimal(text.c_str(), ULLONG_MAX, out);
}

int ParseNumber(const std::string& text, unsigned int* out) {
    unsigned long long parsed = 0;
    if (ParseDecimal(text.c_str(), UINT_MAX, &parsed) != 0) {
        return -1;
    }
    *out = static_cast<unsigned int>(parsed);
    return 0;
}

int ParseNumber(const std::string& text, int* out) {
    const bool negative = text[0] == '-';
    // The magnitude of INT_MIN is one more than INT_MAX.
    const unsigned long long max = negative ? static_cast<unsigned long long>(INT_MAX) + 1 : INT_MAX;
    unsigned long long magnitude = 0;
    if (ParseDecimal(text.c_str() + (negative ? 1 : 0), max, &magnitude) != 0) {
        return -1;
    }
    *out = negative ? static_cast<int>(-static_cast<long long>(magnitude)) : static_cast<int>(magnitude);
    return 0;
}

}  // namespace

template <typename T>
int GetURIQueryParamByKey(tagHTTP_HEADER_S* header, const std::string& key, T* value) {
    std::string text;
    T parsed{};
    if (value == nullptr || FindValue(header, key, &text) != Found::kValue ||
        ParseNumber(text, &parsed) != 0) {
        return -1;
    }
    *value = parsed;
    return 0;
}

template int GetURIQueryParamByKey<int>(tagHTTP_HEADER_S*, const std::string&, int*);
template int GetURIQueryParamByKey<unsigned int>(tagHTTP_HEADER_S*, const std::string&, unsigned int*);
template int GetURIQueryParamByKey<unsigned long long>(tagHTTP_HEADER_S*, const std::string&,
                                                       unsigned long long*);

int GetURIQueryParamByKey(tagHTTP_HEADER_S* header, const std::string& key, char* value, unsigned int size) {
    std::string text;
    Found found = value != nullptr && size != 0 ? FindValue(header, key, &text) : Found::kAbsent;
    if (found == Found::kValue && text.size() >= size) {
        found = Found::kUnusable;
    }
    if (found == Found::kUnusable && size >= sizeof(kUnusableText)) {
        memcpy(value, kUnusableText, sizeof(kUnusableText));
        return 0;
    }
    if (found != Found::kValue) {
        return -1;
    }
    memcpy(value, text.c_str(), text.size() + 1);
    return 0;
}
