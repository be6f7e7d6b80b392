#include "service/AlertThrottle.h"

namespace tidewick {

bool AlertThrottle::admit(const SessionKey& session, Date time) {
    std::lock_guard guard(lock_);
    if (window_ <= 0)
        return true;
    auto found = lastAdmitted_.find(session);
    if (found != lastAdmitted_.end() && time >= found->second &&
        time < addSeconds(found->second, window_))
        return false;
    if (lastAdmitted_.size() >= tidyThreshold) {
        const Date cutoff = addSeconds(time, -window_);
        std::erase_if(lastAdmitted_, [cutoff](const auto& entry) { return entry.second < cutoff; });
    }
    lastAdmitted_[session] = time;
    return true;
}

} // namespace tidewick
