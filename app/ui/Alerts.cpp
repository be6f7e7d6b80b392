#include "Alerts.h"

#include "DisplayText.h"
#include "foundation/Text.h"
#include "sessions/CommandRisk.h"
#include "sessions/SessionText.h"

namespace tidewick {

namespace {

/// Notification bodies stay short: servers show a few lines at most.
constexpr std::size_t bodyLimit = 300;

Notification notificationFor(const Alert& alert) {
    const std::string agent(displayName(alert.session.agent));
    Notification notification;
    notification.session = alert.session;
    notification.requestId = alert.requestId;
    std::string body = alert.title;
    if (alert.detail && !alert.detail->empty())
        body += "\n" + Text::cut(*alert.detail, bodyLimit, Text::ellipsis);
    switch (alert.kind) {
    case Alert::Kind::needsPermission:
        notification.urgent = true;
        if (alert.question) {
            // The question itself is the body; its options may answer it at once.
            notification.summary = alert.title;
            body = alert.detail.value_or("");
            if (alert.requestId)
                notification.choices = alert.choices;
            break;
        }
        notification.summary = SessionText::asksFor(agent, PendingKind::permission);
        notification.offersAnswers = alert.requestId.has_value();
        notification.offersAlways = notification.offersAnswers && alert.canAlwaysAllow;
        if (auto risk = CommandRisk::assessDetail(alert.detail))
            body += "\n⚠ " + risk->reason;
        break;
    case Alert::Kind::waitingReply:
        notification.summary = SessionText::asksFor(agent, PendingKind::reply);
        break;
    case Alert::Kind::finished:
        notification.summary = agent + " finished";
        body = SessionText::noReplyItStopped;
        break;
    case Alert::Kind::error:
        notification.summary = agent + " ran into an error";
        break;
    case Alert::Kind::usageLimit:
        notification.summary = alert.title;
        body = alert.detail.value_or("");
        break;
    }
    if (alert.alsoHeld > 0)
        body += "\n" + SessionText::alsoWaiting(alert.alsoHeld);
    notification.body = std::move(body);
    return notification;
}

} // namespace

AlertEffects alertEffects(const Alert& alert, const TidewickSettings& settings) {
    AlertEffects effects;
    const bool held =
        alert.kind == Alert::Kind::needsPermission || alert.kind == Alert::Kind::waitingReply;
    const bool usage = alert.kind == Alert::Kind::usageLimit;
    const bool audible = !settings.quietMode;
    effects.bell = alert.bell;
    effects.glow = held && settings.glowEnabled && alert.requestId.has_value();
    if (settings.systemNotificationsEnabled && audible)
        effects.notification = notificationFor(alert);
    if (usage)
        effects.message = alert.title + ". " + alert.detail.value_or("");
    else if (!held)
        effects.message =
            std::string(displayName(alert.session.agent)) + ": " +
            (alert.kind == Alert::Kind::finished ? std::string(SessionText::noReplyItStopped)
                                                 : DisplayText::singleLine(alert.title));
    return effects;
}

} // namespace tidewick
