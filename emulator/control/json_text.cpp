#include "json_text.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace control {
namespace {

// False when an integer literal of text (JSON the strict parser took, so digits outside strings
// belong to numbers) does not fit 64 bits.
bool IntegersFit(const std::string& text) {
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (inString) {
            i += c == '\\' ? 1 : 0;  // an escaped character, a quote too
            inString = c != '"';
            continue;
        }
        if (c == '"') {
            inString = true;
            continue;
        }
        if (c != '-' && !isdigit(static_cast<unsigned char>(c))) {
            continue;
        }
        size_t end = i + (c == '-' ? 1 : 0);
        while (end < text.size() && isdigit(static_cast<unsigned char>(text[end]))) {
            ++end;
        }
        bool integer = end == text.size() || strchr(".eE", text[end]) == nullptr;
        std::string literal = text.substr(i, end - i);
        errno = 0;
        if (integer && c == '-') {
            (void)strtoll(literal.c_str(), nullptr, 10);
        } else if (integer) {
            (void)strtoull(literal.c_str(), nullptr, 10);
        }
        if (errno == ERANGE) {
            return false;
        }
        while (end < text.size() && strchr("0123456789.eE+-", text[end]) != nullptr) {
            ++end;
        }
        i = end - 1;
    }
    return true;
}

}  // namespace

json_object* ParseStrictJson(const std::string& text, std::string* why) {
    json_tokener* tokener = json_tokener_new();
    if (tokener == nullptr) {
        *why = "could not be read: out of memory";
        return nullptr;
    }
    // Texts are UTF-8: a name of other bytes would travel on into the module's result files.
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
    // The length takes the NUL in: a value at the very end of the text is complete. Nothing may
    // follow it, a NUL byte in the text neither.
    json_object* value = json_tokener_parse_ex(tokener, text.c_str(), static_cast<int>(text.size() + 1));
    json_tokener_error error = json_tokener_get_error(tokener);
    bool whole = error == json_tokener_success && json_tokener_get_parse_end(tokener) >= text.size();
    json_tokener_free(tokener);
    if (!whole || !IntegersFit(text)) {
        json_object_put(value);
        *why = whole ? "has an integer that does not fit 64 bits"
                     : std::string("is not JSON: ") +
                           json_tokener_error_desc(
                               error == json_tokener_success ? json_tokener_error_parse_unexpected : error);
        return nullptr;
    }
    return value;
}

json_object* ParseStrictJsonFile(const std::string& path, std::string* why) {
    FILE* file = fopen(path.c_str(), "re");
    if (file == nullptr) {
        *why = path + " cannot be read: " + strerror(errno);
        return nullptr;
    }
    std::string text;
    char buffer[65536];
    for (size_t n; (n = fread(buffer, 1, sizeof(buffer), file)) > 0;) {
        text.append(buffer, n);
    }
    bool failed = ferror(file) != 0;
    fclose(file);
    if (failed) {
        *why = path + " cannot be read";
        return nullptr;
    }
    json_object* value = ParseStrictJson(text, why);
    if (value == nullptr) {
        *why = path + " " + *why;
    }
    return value;
}

}  // namespace control
