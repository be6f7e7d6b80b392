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

    /// hook 100 <- sh 99 <- the agent 98 <- shell 97 <- terminal 96 <- init 1.
    static FakeProcessTable chainWith(std::string name, std::vector<std::string> commandLine) {
        return FakeProcessTable({
            {100, {99, "tidewick-hook", {"tidewick-hook"}}},
            {99, {98, "sh", {"sh", "-c", "tidewick-hook"}}},
            {98, {97, std::move(name), std::move(commandLine)}},
            {97, {96, "zsh", {"-zsh"}}},
            {96, {1, "ghostty", {"ghostty"}}},
            {1, {0, "systemd", {"/sbin/init"}}},
        });
    }

private:
    std::map<std::int32_t, Entry> entries_;
};

} // namespace tidewick::testing
