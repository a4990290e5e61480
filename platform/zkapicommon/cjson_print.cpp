// Prints exactly what json-c's spaced style prints without the blanks just inside brackets
// ({"a": 1, "b": [1, 2]}), without going through that style: json-c formats every integer with
// snprintf, and squeezing the blanks out took one more pass; the two were half of encoding a record.
#include "cjson_print.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <charconv>

#include "cjson_owned.h"

namespace cjson_print {
namespace {

using cjson_owned::Text;

// json-c escapes these (the host leaves '/' as it is); every other byte is copied.
struct EscapeTable {
    bool escaped[256];
};

constexpr EscapeTable MakeEscapeTable() {
    EscapeTable table{};
    for (int c = 0; c < 0x20; ++c) {
        table.escaped[c] = true;
    }
    table.escaped[static_cast<unsigned char>('"')] = true;
    table.escaped[static_cast<unsigned char>('\\')] = true;
    return table;
}

constexpr EscapeTable kEscape = MakeEscapeTable();

class Writer {
public:
    explicit Writer(Text* text) : text_(text) { text_->length = 0; }

    bool ok() const { return ok_; }

    void Put(const char* bytes, size_t count) {
        if (Reserve(count)) {
            memcpy(text_->bytes + text_->length, bytes, count);
            text_->length += count;
        }
    }

    void Put(char c) { Put(&c, 1); }

    // As json-c escapes a string: short escapes for the usual controls, \u00xx for the others.
    void PutString(const char* s, size_t count) {
        Put('"');
        size_t run = 0;
        for (size_t i = 0; i < count; ++i) {
            unsigned char c = static_cast<unsigned char>(s[i]);
            if (!kEscape.escaped[c]) {
                continue;
            }
            Put(s + run, i - run);
            run = i + 1;
            PutEscape(c);
        }
        Put(s + run, count - run);
        Put('"');
    }

    template <typename Integer>
    void PutInteger(Integer value) {
        char digits[24];
        std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value);
        Put(digits, static_cast<size_t>(end.ptr - digits));
    }

    void PutValue(json_object* value);

private:
    bool Reserve(size_t count) {
        if (!ok_) {
            return false;
        }
        if (text_->length + count + 1 > text_->capacity) {
            size_t capacity = text_->capacity < 1024 ? 1024 : text_->capacity * 2;
            while (capacity < text_->length + count + 1) {
                capacity *= 2;
            }
            char* bytes = static_cast<char*>(realloc(text_->bytes, capacity));
            if (bytes == nullptr) {
                ok_ = false;
                return false;
            }
            text_->bytes = bytes;
            text_->capacity = capacity;
        }
        return true;
    }

    void PutEscape(unsigned char c) {
        char shortForm = 0;
        switch (c) {
            case '\b':
                shortForm = 'b';
                break;
            case '\n':
                shortForm = 'n';
                break;
            case '\r':
                shortForm = 'r';
                break;
            case '\t':
                shortForm = 't';
                break;
            case '\f':
                shortForm = 'f';
                break;
            case '"':
                shortForm = '"';
                break;
            case '\\':
                shortForm = '\\';
                break;
            default:
                break;
        }
        if (shortForm != 0) {
            const char escape[2] = {'\\', shortForm};
            Put(escape, 2);
            return;
        }
        static const char kHex[] = "0123456789abcdef";
        const char escape[6] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xf]};
        Put(escape, 6);
    }

    void PutObject(json_object* object);
    void PutArray(json_object* array);

    Text* text_;
    bool ok_ = true;
};

void Writer::PutObject(json_object* object) {
    Put('{');
    lh_table* members = json_object_get_object(object);
    for (lh_entry* entry = lh_table_head(members); entry != nullptr; entry = lh_entry_next(entry)) {
        if (entry != lh_table_head(members)) {
            Put(", ", 2);
        }
        const char* key = static_cast<const char*>(lh_entry_k(entry));
        PutString(key, strlen(key));
        Put(": ", 2);
        PutValue(static_cast<json_object*>(lh_entry_v(entry)));
    }
    Put('}');
}

void Writer::PutArray(json_object* array) {
    Put('[');
    const size_t count = json_object_array_length(array);
    for (size_t i = 0; i < count; ++i) {
        if (i > 0) {
            Put(", ", 2);
        }
        PutValue(json_object_array_get_idx(array, i));
    }
    Put(']');
}

void Writer::PutValue(json_object* value) {
    switch (json_object_get_type(value)) {
        case json_type_null:
            Put("null", 4);
            return;
        case json_type_boolean:
            json_object_get_boolean(value) ? Put("true", 4) : Put("false", 5);
            return;
        case json_type_int: {
            // json-c holds a signed or an unsigned 64-bit value; only an unsigned one above the
            // signed range reads as INT64_MAX when read signed.
            int64_t signedValue = json_object_get_int64(value);
            signedValue == INT64_MAX ? PutInteger(json_object_get_uint64(value)) : PutInteger(signedValue);
            return;
        }
        case json_type_string:
            PutString(json_object_get_string(value), static_cast<size_t>(json_object_get_string_len(value)));
            return;
        case json_type_object:
            PutObject(value);
            return;
        case json_type_array:
            PutArray(value);
            return;
        case json_type_double: {
            // Rare (parsed texts only): json-c's own digits, which may be the parsed text itself.
            const char* digits = json_object_to_json_string(value);
            Put(digits, strlen(digits));
            return;
        }
    }
}

}  // namespace

char* PrintContainer(json_object* container) {
    Text* text = cjson_owned::PrintBuffer(container);
    if (text == nullptr) {
        return nullptr;
    }
    Writer writer(text);
    writer.PutValue(container);
    if (!writer.ok()) {
        return nullptr;
    }
    text->bytes[text->length] = '\0';
    return text->bytes;
}

}  // namespace cjson_print
