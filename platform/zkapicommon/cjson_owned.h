// What the host keeps with a json-c container, in the container's userdata and released with it:
// the keys added to an object, copied into blocks of its own (one allocation serves many keys, where
// json-c would copy each key alone), and the text of the container's last print.
#ifndef CJSON_OWNED_H
#define CJSON_OWNED_H

#include <stddef.h>

#include <json-c/json.h>

namespace cjson_owned {

// A growing text buffer; bytes stays NUL-terminated once anything is written.
struct Text {
    char* bytes = nullptr;
    size_t length = 0;
    size_t capacity = 0;
};

// A copy of key that lives as long as object does; null when memory is exhausted.
const char* KeepKey(json_object* object, const char* key);

// The buffer that holds container's printed text; null when memory is exhausted.
Text* PrintBuffer(json_object* container);

}  // namespace cjson_owned

#endif
