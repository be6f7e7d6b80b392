// Test helper: a process list written by hand, for the process probe.
#pragma once

#include "ProcessProbe.h"

#include <map>

namespace tidewick::testing {

/// pid -> (parent, name, command line).
class FakeProcessTable final : public ProcessTable {
public:
    struct Entry {
        std::int32_t parent;
        std::string name;
        std::vector<std::string> commandLine;
    };
    explicit FakeProcessTable(std::map<std::int32_t, Entry> entries)
        : entries_(std::move(entries)) {}
    std::optional<ProcessRecord> record(std::int32_t pid) const override {
        auto found = entries_.find(pid);
        if (found == entries_.end())
            return std::nullopt;
        return ProcessRecord{found->second.parent, found->second.name};
    }
    std::vector<std::string> commandLine(std::int32_t pid) const override {
        auto found = entries_.find(pid);
        return found == entries_.end() ? std::vector<std::string>{} : found->second.commandLine;
    }

private:
    std::map<std::int32_t, Entry> entries_;
};

} // namespace tidewick::testing
