// Deliberately small line scanners that read single settings out of a TOML
// file without parsing TOML.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick::TOMLProbe {

/// The value of `key = true|false` inside `[section]` ("" for keys before any
/// header) of `text`; the last matching line wins and any other value leaves
/// the result as it was. Comments are cut at the first "#", quotes or not;
/// array-of-table headers ("[[...]]") do not change the section. Nothing when
/// no line sets it. (Named boolValue because `bool` is a C++ keyword.)
[[nodiscard]] std::optional<bool> boolValue(std::string_view section, std::string_view key,
                                            std::string_view text);

/// Every string assigned to `key` in the tables `[prefix."<name>"]` of `text`, by name:
/// for prefix {"hooks", "state"} and key "trusted_hash", the hash of each approved hook.
/// Table names and values are read as TOML strings (basic with their escapes, or
/// literal), so quotes and "#" inside them are kept; a "#" outside quotes starts a
/// comment. Lines it does not understand are skipped; the last assignment wins.
[[nodiscard]] std::map<std::string, std::string>
stringsInTables(const std::vector<std::string>& prefix, std::string_view key,
                std::string_view text);

} // namespace tidewick::TOMLProbe
