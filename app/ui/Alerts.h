// What an alert from the service turns into, given the user's settings: a
// terminal bell, a glowing frame, a desktop notification (with Allow, Always allow
// and Deny for a permission request, the options of a question) and a line on the
// status bar.
#pragma once

#include "service/Alert.h"
#include "service/TidewickSettings.h"

#include <optional>
#include <string>
#include <vector>

namespace tidewick {

/// A desktop notification to show.
struct Notification {
    std::string summary;
    std::string body;
    SessionKey session;
    /// The held request it is about; its Allow and Deny answer this request.
    std::optional<UUID> requestId;
    /// Offer "Allow" and "Deny" buttons.
    bool offersAnswers = false;
    /// Ask the notification server to keep it up until dismissed.
    bool urgent = false;
    /// Offer "Always allow" among them.
    bool offersAlways = false;
    /// One button per label, answering the question with it.
    std::vector<std::string> choices = {};
};

struct AlertEffects {
    bool bell = false;
    bool glow = false;
    std::optional<Notification> notification;
    /// A line for the status bar, for alerts the screen would not otherwise point out.
    std::optional<std::string> message;
};

/// The effects of `alert` under `settings`. A held request rings the bell when
/// soundEnabled, makes the frame glow when glowEnabled and is notified when
/// systemNotificationsEnabled; quietMode silences bell and notification but never the
/// screen. An ended turn ("finished") only notifies and reports itself on the status line;
/// a usage limit past 90 % rings, notifies and reports itself there.
[[nodiscard]] AlertEffects alertEffects(const Alert& alert, const TidewickSettings& settings);

} // namespace tidewick
