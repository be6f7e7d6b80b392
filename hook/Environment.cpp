#include "Environment.h"

namespace tidewick {

Environment::Environment(char** entries) {
    for (char** entry = entries; entry && *entry; ++entry)
        entries_.emplace_back(*entry);
}

Environment::Environment(std::vector<std::string> entries) : entries_(std::move(entries)) {}

std::optional<std::string_view> Environment::get(std::string_view name) const {
    for (const std::string& entry : entries_) {
        if (entry.size() > name.size() && entry[name.size()] == '=' &&
            std::string_view(entry).substr(0, name.size()) == name)
            return std::string_view(entry).substr(name.size() + 1);
    }
    return std::nullopt;
}

bool Environment::containsPrefix(std::string_view prefix) const {
    for (const std::string& entry : entries_) {
        size_t equals = entry.find('=');
        if (equals != std::string::npos && equals >= prefix.size() &&
            std::string_view(entry).substr(0, prefix.size()) == prefix)
            return true;
    }
    return false;
}

} // namespace tidewick
