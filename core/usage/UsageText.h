// The sentences and short texts of usage figures, said once here for the
// screen, the command line and the alerts alike.
#pragma once

#include "usage/UsageWindow.h"

#include <string>

namespace tidewick::UsageText {

/// Why Claude Code has no figures: where they come from and who gets them.
[[nodiscard]] std::string claudeNoFigures();
/// Why Codex has no figures: no session record under `sessionsFolder` reports any yet.
[[nodiscard]] std::string codexNoRecord(const std::string& sessionsFolder);
/// Why Codex has no figures: its newest record says the service sent none.
[[nodiscard]] std::string codexNoneSent(const std::string& record);
/// A figures file that could not be read, with the reason.
[[nodiscard]] std::string unreadable(const std::string& file, const std::string& reason);

/// A span for the screen: "45s", "12m", "2h 10m", "3d 4h"; "0s" for none or less.
[[nodiscard]] std::string duration(double seconds);
/// "resets in 2h 10m", or "reset" once `now` is past the window's reset time, or "" when
/// the reset time is unknown.
[[nodiscard]] std::string resetPhrase(const UsageWindow& window, Date now);
/// "42%" (rounded down, so 90.4 is not shown as over 90 % once it is), or "reset".
[[nodiscard]] std::string percent(const UsageWindow& window, Date now);
/// A bar `cells` wide, filled in proportion to the use at `now` (empty once reset).
[[nodiscard]] std::string bar(const UsageWindow& window, Date now, int cells);
/// "as of 3m ago", from the figures' report time; "" when unknown.
[[nodiscard]] std::string age(const AgentUsage& usage, Date now);

/// A token count with thousands separated: "12,345".
[[nodiscard]] std::string tokens(std::int64_t count);
/// How the screen and the command line name a session's token use: "12,345 tokens
/// (12,000 in, 345 out)", preceded by "at least " when only part of its record was read.
[[nodiscard]] std::string tokenUse(std::int64_t input, std::int64_t output, bool partial);

/// The alert's title and body for a window past 90 %: "Codex: 5h limit 93% used" and
/// "Resets in 1h 20m." (or "No reset time was reported.").
[[nodiscard]] std::string alertTitle(AgentKind agent, const UsageWindow& window, Date now);
[[nodiscard]] std::string alertDetail(const UsageWindow& window, Date now);

} // namespace tidewick::UsageText
