#include "NotificationCenter.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace tidewick {

NotificationCenter::NotificationCenter(ApplicationView& application,
                                       std::optional<std::string> busAddress, Reporter report)
    : application_(application), report_(std::move(report)),
      notifier_(std::move(busAddress),
                [this](const DesktopNotifier::Action& action) { pressed(action); }) {
    if (!notifier_.isAvailable())
        return;
    watch_ = application_
                 .watch({.changed = [this](const StoreChange& change) { changed(change); },
                         .alerted = [this](const Alert& alert) { alerted(alert); }})
                 .id;
}

NotificationCenter::~NotificationCenter() {
    if (watch_ != 0)
        application_.unwatch(watch_);
}

void NotificationCenter::alerted(const Alert& alert) {
    AlertEffects effects = alertEffects(alert, application_.settings());
    if (!effects.notification)
        return;
    const std::optional<UUID> id = effects.notification->requestId;
    if (id) {
        std::lock_guard guard(lock_);
        notified_[*id] = alert.session;
    }
    notifier_.notify(std::move(*effects.notification));
    // An alert the throttle held back may come after its request was answered.
    if (id && !isHeld(*id))
        withdraw(*id);
}

void NotificationCenter::changed(const StoreChange& change) {
    if (change.kind == StoreChange::Kind::session)
        return;
    std::vector<UUID> gone;
    {
        std::lock_guard guard(lock_);
        for (const auto& [id, session] : notified_) {
            if (session != change.key)
                continue;
            const bool stillHeld =
                change.kind == StoreChange::Kind::pending &&
                std::any_of(change.pending.begin(), change.pending.end(),
                            [&](const PendingRequest& request) { return request.id == id; });
            if (!stillHeld)
                gone.push_back(id);
        }
    }
    for (const UUID& id : gone)
        withdraw(id);
}

void NotificationCenter::withdraw(const UUID& id) {
    {
        std::lock_guard guard(lock_);
        if (notified_.erase(id) == 0)
            return;
    }
    notifier_.withdraw(id);
}

bool NotificationCenter::isHeld(const UUID& id) const {
    const std::vector<HeldRequest> held = application_.pendingRequests();
    return std::any_of(held.begin(), held.end(),
                       [&](const HeldRequest& request) { return request.second.id == id; });
}

void NotificationCenter::pressed(const DesktopNotifier::Action& action) {
    // A button answers its request only while it is the one the application would answer
    // for that session: never a different request than the one shown.
    for (const auto& [session, request] : application_.pendingRequests()) {
        if (session != action.session || request.kind != PendingKind::permission)
            continue;
        if (request.id != action.requestId)
            return; // an older request of the session comes first: leave this to the user
        if (action.key == "always") {
            const auto delivery = application_.allowAlways(session, std::nullopt);
            if (report_)
                report_(delivery.kind == SessionActions::Delivery::Kind::delivered
                            ? "Always allowed from the notification: " + delivery.sentence
                            : delivery.sentence);
            return;
        }
        if (action.key.starts_with(DesktopNotifier::choicePrefix)) {
            answerWithChoice(session, request, action.key);
            return;
        }
        const bool allow = action.key == "allow";
        if (application_.answerPermission(session, allow ? SessionActions::Answer::allow
                                                         : SessionActions::Answer::deny) &&
            report_)
            report_((allow ? "Allowed from the notification: " : "Denied from the notification: ") +
                    request.title);
        return;
    }
}

void NotificationCenter::answerWithChoice(const SessionKey& session, const PendingRequest& request,
                                          const std::string& key) {
    // Buttons are offered for one question only, one per option, numbered from 0.
    const std::string number = key.substr(std::string_view(DesktopNotifier::choicePrefix).size());
    const std::size_t choice = std::strtoul(number.c_str(), nullptr, 10);
    if (request.questions.size() != 1 || choice >= request.questions[0].options.size())
        return;
    const auto delivery =
        application_.answerQuestions(session, {request.questions[0].options[choice].label});
    if (delivery.kind == SessionActions::Delivery::Kind::delivered && report_)
        report_("Answered from the notification: " + delivery.sentence);
}

} // namespace tidewick
