#include "UsageCommand.h"

#include "TranscriptCommands.h"
#include "foundation/File.h"
#include "foundation/JSONCoding.h"
#include "ui/DisplayText.h"
#include "usage/UsageText.h"

#include <algorithm>
#include <memory>

namespace tidewick {

namespace {

constexpr int barCells = 20;

std::string padded(const std::string& text, int width) {
    return DisplayText::pad(text, width);
}

} // namespace

std::string formatUsage(const UsageReport& report) {
    std::string text;
    for (const AgentUsage& usage : report.agents) {
        text += std::string(displayName(usage.agent));
        const std::string age = UsageText::age(usage, report.at);
        text += age.empty() ? "\n" : " · " + age + "\n";
        if (usage.windows.empty())
            text += "  " + usage.missing + "\n";
        for (const UsageWindow& window : usage.windows) {
            text += "  " + padded(window.label(), 10) +
                    UsageText::bar(window, report.at, barCells) + "  ";
            // A reset window says so in place of its percentage already.
            const std::string reset =
                window.isReset(report.at) ? "" : UsageText::resetPhrase(window, report.at);
            const std::string percent = UsageText::percent(window, report.at);
            text += reset.empty() ? percent + "\n" : padded(percent, 6) + "  " + reset + "\n";
        }
    }
    text += "Tokens by session\n";
    if (report.sessions.empty() && report.sessionsWithoutRecord == 0)
        text += "  No sessions yet.\n";
    for (const SessionTokens& session : report.sessions) {
        const std::string where = session.projectPath ? File::lastComponent(*session.projectPath)
                                  : session.title     ? *session.title
                                                      : session.key.sessionId;
        text += "  " + padded(std::string(displayName(session.key.agent)), 13) +
                padded(DisplayText::fit(DisplayText::singleLine(where), 24), 26) +
                UsageText::tokenUse(session.tokens.input, session.tokens.output, session.partial) +
                "\n";
    }
    if (report.sessionsWithoutRecord > 0)
        text += "  " + std::to_string(report.sessionsWithoutRecord) +
                (report.sessionsWithoutRecord == 1 ? " session has" : " sessions have") +
                " no record Tidewick could read.\n";
    return text;
}

void registerUsageCommand(CLI::App& app, AppContext& context) {
    auto json = std::make_shared<bool>(false);
    CLI::App* usage = app.add_subcommand(
        "usage", "Show how much of each agent's usage limits is used, and tokens per session");
    usage->add_flag("--json", *json, "Print the figures as JSON");
    usage->callback([&context, json] {
        const UsageSources sources{context.paths().claudeLimitsFile(),
                                   TranscriptLocations::forHome(context.home())};
        const UsageReport report = Usage::readReport(sources, knownSessions(context), now());
        if (*json)
            context.terminal().out() << encodeJSON(report, JSONWriter::Style::pretty) << "\n";
        else
            context.terminal().out() << formatUsage(report);
    });
}

} // namespace tidewick
