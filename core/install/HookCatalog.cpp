#include "install/HookCatalog.h"

#include "foundation/Text.h"

namespace tidewick::HookCatalog {

namespace {

HookSpec quick(std::string event, std::int64_t timeout) {
    return HookSpec{std::move(event), std::nullopt, timeout, false, {}};
}

HookSpec waiting(std::string event) {
    return HookSpec{std::move(event), std::nullopt, userWaitTimeout, true, {}};
}

} // namespace

std::vector<HookSpec> specs(AgentKind agent, GateCommands gate) {
    switch (agent) {
    case AgentKind::claude:
        return {quick("SessionStart", 10), quick("UserPromptSubmit", 10),
                quick("SessionEnd", 5),    quick("PreToolUse", 10),
                quick("PostToolUse", 10),  waiting("PermissionRequest"),
                waiting("Stop"),           quick("Notification", 10),
                quick("PreCompact", 10),   quick("PostCompact", 10)};
    case AgentKind::codex:
        // Codex has no Notification hook but reports interruptions, and ends
        // sessions on a shorter fuse.
        return {quick("SessionStart", 10), quick("UserPromptSubmit", 10),
                quick("SessionEnd", 2),    quick("PreToolUse", 10),
                quick("PostToolUse", 10),  waiting("PermissionRequest"),
                waiting("Stop"),           quick("PreCompact", 10),
                quick("PostCompact", 10),  quick("Interrupt", 2)};
    case AgentKind::cursor: {
        std::vector<HookSpec> list = {quick("sessionStart", 10), quick("sessionEnd", 5)};
        if (gate == GateCommands::on) {
            list.push_back(waiting("beforeShellExecution"));
            list.push_back(waiting("beforeMCPExecution"));
        }
        list.push_back(quick("postToolUse", 10));
        list.push_back(quick("afterAgentResponse", 10));
        list.push_back(quick("preCompact", 10));
        list.push_back(quick("preToolUse", 10));
        HookSpec stop = waiting("stop");
        // Cursor would otherwise cap how often a stop hook may send the agent back to work.
        stop.extra.emplace_back("loop_limit", JSONValue(nullptr));
        list.push_back(std::move(stop));
        return list;
    }
    case AgentKind::antigravity:
        return {quick("SessionStart", 10), quick("PreInvocation", 10), quick("PostToolUse", 10),
                waiting("Stop")};
    }
    return {};
}

std::set<std::string> installedEvents(AgentKind agent) {
    std::set<std::string> events;
    for (const HookSpec& spec : specs(agent, GateCommands::on))
        events.insert(spec.event);
    return events;
}

std::string command(std::string_view helperPath, AgentKind agent, std::string_view event) {
    // Single quotes keep every character literal for a POSIX shell except the
    // quote itself, which is closed, escaped and reopened.
    std::string line = "'";
    line += Text::replacingAll(helperPath, "'", "'\\''");
    line += "' --agent ";
    line += rawValue(agent);
    line += " --event ";
    line += event;
    return line;
}

} // namespace tidewick::HookCatalog

namespace tidewick {

bool isOurs(const JSONValue& value) {
    const JSONValue* command = value.get("command");
    if (!command)
        return false;
    const std::string* text = command->stringValue();
    return text && text->find(HookCatalog::marker) != std::string::npos;
}

} // namespace tidewick
