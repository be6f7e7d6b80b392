// What an alert from the service turns into, given the user's settings: a
// sound (or the terminal bell), a glowing frame, a desktop notification (with
// Allow and Deny for a permission request) and a line on the status bar.
#pragma once

#include "presentation/AlertSound.h"
#include "service/Alert.h"
#include "service/TidewickSettings.h"

#include <optional>
#include <string>

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
};

struct AlertEffects {
    /// The sound to play (the bell where no sound can be played); none: silence.
    AlertSound sound = AlertSound::none;
    bool glow = false;
    std::optional<Notification> notification;
    /// A line for the status bar, for alerts the screen would not otherwise point out.
    std::optional<std::string> message;
};

/// The effects of `alert` under `settings`. Every alert plays the sound alertSounds gives
/// its kind when soundEnabled, and is notified when systemNotificationsEnabled; quietMode
/// silences sound and notification but never the screen. A held request makes the frame
/// glow when glowEnabled; the other kinds (finished, error, usage limit) report themselves
/// on the status line instead.
[[nodiscard]] AlertEffects alertEffects(const Alert& alert, const TidewickSettings& settings);

} // namespace tidewick
