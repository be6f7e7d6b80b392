// A deliberately small line scanner that reads one boolean setting out of a
// TOML file without parsing TOML.
#pragma once

#include <optional>
#include <string_view>

namespace tidewick::TOMLProbe {

/// The value of `key = true|false` inside `[section]` ("" for keys before any
/// header) of `text`; the last matching line wins and any other value leaves
/// the result as it was. Comments are cut at the first "#", quotes or not;
/// array-of-table headers ("[[...]]") do not change the section. Nothing when
/// no line sets it. (Named boolValue because `bool` is a C++ keyword.)
[[nodiscard]] std::optional<bool> boolValue(std::string_view section, std::string_view key,
                                            std::string_view text);

} // namespace tidewick::TOMLProbe
