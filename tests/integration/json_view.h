// Reading fields of a JSON response body in assertions.
#ifndef VKS_JSON_VIEW_H
#define VKS_JSON_VIEW_H

#include <string>
#include <vector>

struct json_object;

namespace vks_test {

class JsonView {
public:
    explicit JsonView(const std::string& text);
    ~JsonView();
    JsonView(const JsonView&) = delete;
    JsonView& operator=(const JsonView&) = delete;

    bool Valid() const { return root_ != nullptr; }
    bool Has(const std::vector<std::string>& path) const;
    // "" / 0 when a member on the path is missing; array elements are named by their index ("0").
    std::string Str(const std::vector<std::string>& path) const;
    long long Int(const std::vector<std::string>& path) const;
    bool Bool(const std::vector<std::string>& path) const;
    size_t Length(const std::vector<std::string>& path) const;  // of an array

private:
    json_object* At(const std::vector<std::string>& path) const;
    json_object* root_;
};

}  // namespace vks_test

#endif
