// JSON texts the control plane takes from outside (request bodies, scenario files), read strictly:
// json-c alone takes text after the value and a trailing comma, and clamps an integer beyond 64 bits
// to the nearest end, so a row would be stored with another number than the one written; it takes
// texts of bytes that are no UTF-8 as well.
#ifndef VKS_CONTROL_JSON_TEXT_H
#define VKS_CONTROL_JSON_TEXT_H

#include <json-c/json.h>

#include <string>

namespace control {

// The value of the whole text; null with the reason in *why ("is not JSON: ..." or "has an integer
// that does not fit 64 bits"), to follow the name of what was read.
json_object* ParseStrictJson(const std::string& text, std::string* why);

// The value of the whole file; null with "PATH why" in *why.
json_object* ParseStrictJsonFile(const std::string& path, std::string* why);

}  // namespace control

#endif
