#include "service/AlertThrottle.h"

namespace tidewick {

AlertThrottle::Admission AlertThrottle::admit(const Alert& alert, Date time) {
    std::lock_guard guard(lock_);
    if (window_ <= 0)
        return {};
    auto found = windows_.find(alert.session);
    if (found != windows_.end() && time >= found->second.admittedAt &&
        time < addSeconds(found->second.admittedAt, window_)) {
        Window& open = found->second;
        open.kept.push_back(alert);
        if (open.kept.size() > 1)
            return {Admission::Kind::joined, 0};
        const double left =
            std::chrono::duration<double>(addSeconds(open.admittedAt, window_) - time).count();
        return {Admission::Kind::kept, left};
    }
    if (windows_.size() >= tidyThreshold) {
        const Date cutoff = addSeconds(time, -window_);
        std::erase_if(windows_, [cutoff](const auto& entry) {
            return entry.second.admittedAt < cutoff && entry.second.kept.empty();
        });
    }
    Window& opened = windows_[alert.session];
    opened.admittedAt = time;
    // Alerts still kept from an earlier window stay for the takeKept() already scheduled.
    return {};
}

std::vector<Alert> AlertThrottle::takeKept(const SessionKey& session, Date time) {
    std::lock_guard guard(lock_);
    auto found = windows_.find(session);
    if (found == windows_.end() || found->second.kept.empty())
        return {};
    found->second.admittedAt = time;
    return std::exchange(found->second.kept, {});
}

} // namespace tidewick
