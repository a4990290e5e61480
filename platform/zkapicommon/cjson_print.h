// The host's print style, written straight from the tree (docs/json.md).
#ifndef CJSON_PRINT_H
#define CJSON_PRINT_H

#include <json-c/json.h>

namespace cjson_print {

// The text of container (an object or an array), kept with it until it is printed again or
// released; null when memory is exhausted.
char* PrintContainer(json_object* container);

}  // namespace cjson_print

#endif
