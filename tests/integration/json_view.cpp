#include "json_view.h"

#include <json-c/json.h>

#include <cstdlib>

namespace vks_test {

JsonView::JsonView(const std::string& text) : root_(json_tokener_parse(text.c_str())) {}

JsonView::~JsonView() {
    json_object_put(root_);
}

json_object* JsonView::At(const std::vector<std::string>& path) const {
    json_object* at = root_;
    for (const std::string& step : path) {
        if (json_object_is_type(at, json_type_array)) {
            size_t index = strtoul(step.c_str(), nullptr, 10);
            at = index < json_object_array_length(at) ? json_object_array_get_idx(at, index) : nullptr;
        } else if (!json_object_is_type(at, json_type_object) ||
                   !json_object_object_get_ex(at, step.c_str(), &at)) {
            return nullptr;
        }
    }
    return at;
}

bool JsonView::Has(const std::vector<std::string>& path) const {
    return At(path) != nullptr;
}

std::string JsonView::Str(const std::vector<std::string>& path) const {
    json_object* at = At(path);
    return at != nullptr ? json_object_get_string(at) : "";
}

long long JsonView::Int(const std::vector<std::string>& path) const {
    return json_object_get_int64(At(path));
}

bool JsonView::Bool(const std::vector<std::string>& path) const {
    return json_object_get_boolean(At(path)) != 0;
}

size_t JsonView::Length(const std::vector<std::string>& path) const {
    json_object* at = At(path);
    return json_object_is_type(at, json_type_array) ? json_object_array_length(at) : 0;
}

}  // namespace vks_test
