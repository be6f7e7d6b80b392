// Waiting in tests for what another thread or process does, with a generous bound
// rather than a guess at how long it takes.
#pragma once

#include <chrono>
#include <thread>

namespace tidewick::testing {

/// Polls `condition` every 10 ms until it holds (true) or `bound` has passed (false).
template <typename Condition>
[[nodiscard]] bool eventually(Condition condition,
                              std::chrono::milliseconds bound = std::chrono::seconds(30)) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

} // namespace tidewick::testing
