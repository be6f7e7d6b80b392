#include "foundation/QueueScheduler.h"

#include <algorithm>
#include <chrono>

namespace tidewick {

void QueueScheduler::schedule(double delaySeconds, Task task) {
    constexpr double year = 365.0 * 24 * 3600;
    const double seconds = std::clamp(delaySeconds, 0.0, year);
    queue_.asyncAfter(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                          std::chrono::duration<double>(seconds)),
                      std::move(task));
}

} // namespace tidewick
