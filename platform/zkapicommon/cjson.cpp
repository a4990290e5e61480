// The host's JSON tree functions over json-c. Print style and parsing rules: docs/json.md.
#include "cjson.h"

#include <string.h>

#include "cjson_owned.h"
#include "cjson_print.h"

namespace {

// Objects with at most this many members are searched by walking them: 13 lookups in a 13-member
// body cost about 1,600 instructions less walked than hashed.
const int kWalkedMembers = 16;

// Texts nest shallowly: a short stack, which json-c allocates small and cheaply, parses them. A text
// that nests deeper than it is parsed again with json-c's default depth, so that exactly the texts
// json-c accepts are accepted (the tokenizer runs the same way until the depth runs out).
const int kShallowDepth = 8;

// Strict mode rejects trailing text ("{} x") and trailing commas; the length includes the NUL so
// that a complete value followed by nothing is accepted. *tooDeep tells a text that nests deeper
// than depth.
json_object* ParseAtDepth(const char* text, int length, int depth, bool* tooDeep) {
    *tooDeep = false;
    json_tokener* tokener = json_tokener_new_ex(depth);
    if (tokener == nullptr) {
        return nullptr;
    }
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
    json_object* tree = json_tokener_parse_ex(tokener, text, length);
    json_tokener_error error = json_tokener_get_error(tokener);
    if (error != json_tokener_success) {
        json_object_put(tree);
        tree = nullptr;
        *tooDeep = error == json_tokener_error_depth;
    }
    json_tokener_free(tokener);
    return tree;
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
    // Ownership passes on every path: an item that cannot be linked is released here. The object
    // keeps its keys' copies itself (json-c is told they are constant).
    const char* kept = object == nullptr || key == nullptr || !json_object_is_type(object, json_type_object)
                           ? nullptr
                           : cjson_owned::KeepKey(object, key);
    if (kept == nullptr ||
        json_object_object_add_ex(object, kept, item, JSON_C_OBJECT_ADD_CONSTANT_KEY) != 0) {
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
    lh_table* members = json_object_get_object(object);  // null for null and for other types
    if (members == nullptr || key == nullptr) {
        return nullptr;
    }
    // The members of a small object are walked: cheaper than hashing the key. A key is in an object
    // once (adding an existing key replaces its value), so the walk finds what the hash would.
    if (lh_table_length(members) <= kWalkedMembers) {
        for (lh_entry* entry = lh_table_head(members); entry != nullptr; entry = lh_entry_next(entry)) {
            const char* name = static_cast<const char*>(lh_entry_k(entry));
            if (name[0] == key[0] && strcmp(name, key) == 0) {
                return static_cast<json_object*>(lh_entry_v(entry));  // null for JSON null
            }
        }
        return nullptr;
    }
    json_object* value = nullptr;
    return json_object_object_get_ex(object, key, &value) ? value : nullptr;
}

json_object* cJSON_Parse(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    const int length = static_cast<int>(strlen(text) + 1);
    bool tooDeep = false;
    json_object* tree = ParseAtDepth(text, length, kShallowDepth, &tooDeep);
    if (tooDeep) {
        tree = ParseAtDepth(text, length, JSON_TOKENER_DEFAULT_DEPTH, &tooDeep);
    }
    return tree;
}

char* cJSON_Print(json_object* object) {
    if (json_object_is_type(object, json_type_object) || json_object_is_type(object, json_type_array)) {
        return cjson_print::PrintContainer(object);
    }
    // A scalar prints alike in every style; the text is the value's own print buffer.
    return object == nullptr ? nullptr
                             : const_cast<char*>(json_object_to_json_string_ext(
                                   object, JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE));
}

void cJSON_Delete(json_object* object) {
    json_object_put(object);
}
