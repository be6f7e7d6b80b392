// A process table the tests fill by hand, recording the signals sent.
#pragma once

#include "agents/ProcessAccess.h"

#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace tidewick::testing {

class FakeProcesses final : public ProcessAccess {
public:
    struct Process {
        std::int64_t startTime = 1;
        std::string executable;
        std::vector<std::string> commandLine;
    };

    void add(std::int32_t pid, Process process) {
        std::lock_guard guard(lock_);
        table_[pid] = std::move(process);
    }
    void remove(std::int32_t pid) {
        std::lock_guard guard(lock_);
        table_.erase(pid);
    }
    /// Signals sent, in order, as (pid, signal).
    [[nodiscard]] std::vector<std::pair<std::int32_t, int>> signals() const {
        std::lock_guard guard(lock_);
        return signals_;
    }

    std::optional<std::int64_t> startTime(std::int32_t pid) const override {
        std::lock_guard guard(lock_);
        auto found = table_.find(pid);
        return found == table_.end() ? std::nullopt : std::optional(found->second.startTime);
    }
    std::optional<std::string> executable(std::int32_t pid) const override {
        std::lock_guard guard(lock_);
        auto found = table_.find(pid);
        return found == table_.end() ? std::nullopt : std::optional(found->second.executable);
    }
    std::vector<std::string> commandLine(std::int32_t pid) const override {
        std::lock_guard guard(lock_);
        auto found = table_.find(pid);
        return found == table_.end() ? std::vector<std::string>{} : found->second.commandLine;
    }
    bool signal(std::int32_t pid, int number) const override {
        std::lock_guard guard(lock_);
        if (!table_.contains(pid))
            return false;
        signals_.emplace_back(pid, number);
        return true;
    }

private:
    mutable std::mutex lock_;
    std::map<std::int32_t, Process> table_;
    mutable std::vector<std::pair<std::int32_t, int>> signals_;
};

} // namespace tidewick::testing
