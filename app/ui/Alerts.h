// What an alert from the service turns into, given the user's settings: the
// terminal bell where the application played no sound, a glowing frame, a
// desktop notification (with Allow, Always allow and Deny for a permission
// request, the options of a question) and a line on the status bar.
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
    /// Ring the terminal bell: the application could not play the alert's sound.
    bool bell = false;
    bool glow = false;
    std::optional<Notification> notification;
    /// A line for the status bar, for alerts the screen would not otherwise point out.
    std::optional<std::string> message;
};

/// The effects of `alert` under `settings`. Its sound is the application's to play (see
/// TidewickSettings::soundFor); the bell rings where it could not. Every alert is notified
/// when systemNotificationsEnabled; quietMode silences notifications but never the screen.
/// A held request makes the frame glow when glowEnabled; the other kinds (finished, error,
/// a usage limit past 90 %) report themselves on the status line instead.
[[nodiscard]] AlertEffects alertEffects(const Alert& alert, const TidewickSettings& settings);

} // namespace tidewick
