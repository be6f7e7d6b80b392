#include "ChangeView.h"

#include "foundation/JSONCoding.h"
#include "install/HookCatalog.h"
#include "install/LineDiff.h"

namespace tidewick {

namespace {

// The events in the order the catalog writes them; any others after, by name.
std::string joined(AgentKind agent, const std::set<std::string>& names) {
    std::string out;
    auto add = [&out](const std::string& name) { out += (out.empty() ? "" : ", ") + name; };
    std::set<std::string> rest = names;
    for (const HookSpec& spec : HookCatalog::specs(agent, GateCommands::on))
        if (rest.erase(spec.event) == 1)
            add(spec.event);
    for (const std::string& name : rest)
        add(name);
    return out;
}

std::string joined(const std::vector<std::string>& names) {
    std::string out;
    for (const std::string& name : names)
        out += (out.empty() ? "" : ", ") + name;
    return out;
}

std::string stateText(const ConnectionState& state) {
    switch (state.stateCase()) {
    case ConnectionState::Case::unreadable:
    case ConnectionState::Case::hooksDisabled:
        return state.label() + " (" + state.reason() + ")";
    case ConnectionState::Case::needsReconnect:
        return state.label() + " (missing: " + joined(state.missing()) + ")";
    default:
        return state.label();
    }
}

Colour stateColour(const ConnectionState& state) {
    switch (state.stateCase()) {
    case ConnectionState::Case::connected:
        return Colour::green;
    case ConnectionState::Case::disconnected:
    case ConnectionState::Case::notInstalled:
        return Colour::dim;
    default:
        return Colour::yellow;
    }
}

} // namespace

std::string describeChange(const ConfigChange& change, const Terminal& terminal) {
    std::string out = terminal.paint(Colour::bold, change.path) + "\n";
    if (!change.fileExisted)
        out += "The file does not exist yet; Tidewick will create it.\n";
    if (change.deletesFile)
        out +=
            "Tidewick created this file and nothing else is left in it, so it will be deleted.\n";
    // A file about to be deleted reads as every line removed, not as its leftover "{}".
    const std::vector<DiffLine> lines =
        change.deletesFile ? LineDiff::diff(change.before, "") : change.diff;
    for (const DiffLine& line : LineDiff::condensed(lines, previewContext)) {
        switch (line.kind) {
        case DiffLine::Kind::added:
            out += terminal.paint(Colour::green, "+ " + line.text);
            break;
        case DiffLine::Kind::removed:
            out += terminal.paint(Colour::red, "- " + line.text);
            break;
        case DiffLine::Kind::same:
            out += terminal.paint(Colour::dim, "  " + line.text);
            break;
        }
        out += "\n";
    }
    if (!change.addedEvents.empty())
        out += "Adds hooks for: " + joined(change.agent, change.addedEvents) + "\n";
    if (!change.removedEvents.empty())
        out += "Removes hooks for: " + joined(change.agent, change.removedEvents) + "\n";
    if (!change.movedApprovedHooks.empty()) {
        out += terminal.paint(Colour::yellow,
                              "These hooks of yours move, so Codex will ask you to approve them "
                              "again (type /hooks in Codex):") +
               "\n";
        for (const std::string& hook : change.movedApprovedHooks)
            out += "  " + hook + "\n";
    }
    return out;
}

std::string describeStatus(const ConnectionStatus& status, const Terminal& terminal) {
    std::string name(cliName(status.kind));
    name.resize(std::max<size_t>(name.size(), 12), ' ');
    std::string state = stateText(status.state);
    std::string padded = state;
    padded.resize(std::max<size_t>(padded.size(), 16), ' ');
    std::string line =
        name + terminal.paint(stateColour(status.state), padded) + "  " + status.configPath;
    line +=
        "  (" + (status.evidence ? "found: " + *status.evidence : std::string("not found")) + ")";
    for (const std::string& note : status.notes)
        line += "  Note: " + note;
    return line;
}

std::string statusesAsJSON(const std::vector<ConnectionStatus>& statuses) {
    std::string text;
    JSONWriter out(text, JSONWriter::Style::pretty);
    out.beginArray();
    for (const ConnectionStatus& status : statuses) {
        out.beginObject();
        out.member("agent", status.kind);
        out.member("name", displayName(status.kind));
        out.member("state", status.state.label());
        if (!status.state.reason().empty())
            out.member("reason", status.state.reason());
        if (status.state.stateCase() == ConnectionState::Case::needsReconnect)
            out.member("missing", status.state.missing());
        out.member("configPath", status.configPath);
        out.key("evidence"); // null when nothing was found
        writeJSON(out, status.evidence);
        out.member("notes", status.notes);
        out.endObject();
    }
    out.endArray();
    return text + "\n";
}

} // namespace tidewick
