// The hook command's view of its environment variables, so tests can hand it
// any environment without touching the test program's own.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

class Environment {
public:
    /// Copies a NUL-terminated array of "NAME=value" entries (such as environ).
    explicit Environment(char** entries);
    /// Takes "NAME=value" entries; entries without "=" are ignored.
    explicit Environment(std::vector<std::string> entries);

    /// The value of `name` (possibly empty); nothing when it is not set.
    [[nodiscard]] std::optional<std::string_view> get(std::string_view name) const;
    /// Whether `name` is set, whatever its value.
    [[nodiscard]] bool contains(std::string_view name) const { return get(name).has_value(); }
    /// Whether any variable's name starts with `prefix`.
    [[nodiscard]] bool containsPrefix(std::string_view prefix) const;

private:
    std::vector<std::string> entries_;
};

} // namespace tidewick
