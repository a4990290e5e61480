// The host's JSON tree functions over json-c. Print style and parsing rules: docs/json.md.
#include "cjson.h"

#include <string.h>

namespace {

// json-c's spaced style puts blanks inside brackets ("{ "a": 1 }"); the host prints {"a": 1}.
// Squeezing them out of the tree's own print buffer keeps the text owned by the tree.
void SqueezeBracketBlanks(char* text) {
    bool inString = false;
    char* out = text;
    for (const char* in = text; *in != '\0'; ++in) {
        char c = *in;
        if (inString) {
            if (c == '\\' && in[1] != '\0') {
                *out++ = c;
                c = *++in;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == ' ' && out > text && (out[-1] == '{' || out[-1] == '[')) {
            continue;
        } else if (c == ' ' && (in[1] == '}' || in[1] == ']')) {
            continue;
        }
        *out++ = c;
    }
    *out = '\0';
}

}  // namespace

json_object* cJSON_CreateObject() {
    return json_object_new_object();
}

json_object* cJSON_CreateArray() {
    return json_object_new_array();
}

json_object* cJSON_CreateNumber(int value) {
    return json_object_new_int(value);
}

json_object* cJSON_CreateNumber(long long value) {
    return json_object_new_int64(value);
}

json_object* cJSON_CreateNumber(unsigned long long value) {
    return json_object_new_uint64(value);
}

json_object* cJSON_CreateString(const char* text) {
    return text == nullptr ? nullptr : json_object_new_string(text);
}

void cJSON_AddItemToObject(json_object* object, const char* key, json_object* item) {
    // Ownership passes on every path: an item that cannot be linked is released here.
    if (object == nullptr || key == nullptr || !json_object_is_type(object, json_type_object) ||
        json_object_object_add(object, key, item) != 0) {
        json_object_put(item);
    }
}

void cJSON_AddItemToArray(json_object* array, json_object* item) {
    if (array == nullptr || !json_object_is_type(array, json_type_array) ||
        json_object_array_add(array, item) != 0) {
        json_object_put(item);
    }
}

json_object* cJSON_GetObjectItem(json_object* object, const char* key) {
    json_object* value = nullptr;
    if (object == nullptr || key == nullptr || !json_object_object_get_ex(object, key, &value)) {
        return nullptr;
    }
    return value;  // json-c holds a JSON null as a null value
}

json_object* cJSON_Parse(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    json_tokener* tokener = json_tokener_new();
    if (tokener == nullptr) {
        return nullptr;
    }
    // Strict mode rejects trailing text ("{} x") and trailing commas; the length includes the NUL
    // so that a complete value followed by nothing is accepted.
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
    json_object* tree = json_tokener_parse_ex(tokener, text, static_cast<int>(strlen(text) + 1));
    if (json_tokener_get_error(tokener) != json_tokener_success) {
        json_object_put(tree);
        tree = nullptr;
    }
    json_tokener_free(tokener);
    return tree;
}

char* cJSON_Print(json_object* object) {
    if (object == nullptr) {
        return nullptr;
    }
    // The returned buffer is the tree's print buffer: writable heap memory, rebuilt on every print
    // and released with the tree.
    char* text = const_cast<char*>(
        json_object_to_json_string_ext(object, JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE));
    if (text != nullptr) {
        SqueezeBracketBlanks(text);
    }
    return text;
}

void cJSON_Delete(json_object* object) {
    json_object_put(object);
}
