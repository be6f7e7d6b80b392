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

// The hooks Claude Code and Codex share, in writing order.
std::vector<HookSpec> matcherGroupCore(std::int64_t sessionEndTimeout) {
    return {quick("SessionStart", 10),
            quick("UserPromptSubmit", 10),
            quick("SessionEnd", sessionEndTimeout),
            quick("PreToolUse", 10),
            quick("PostToolUse", 10),
            waiting("PermissionRequest"),
            waiting("Stop")};
}

} // namespace

std::vector<HookSpec> specs(AgentKind agent, GateCommands gate) {
    switch (agent) {
    case AgentKind::claude: {
        std::vector<HookSpec> list = matcherGroupCore(5);
        list.push_back(quick("Notification", 10));
        list.push_back(quick("PreCompact", 10));
        list.push_back(quick("PostCompact", 10));
        return list;
    }
    case AgentKind::codex: {
        // Codex has no Notification hook but reports interruptions, and ends
        // sessions on a shorter fuse.
        std::vector<HookSpec> list = matcherGroupCore(2);
        list.push_back(quick("PreCompact", 10));
        list.push_back(quick("PostCompact", 10));
        list.push_back(quick("Interrupt", 2));
        return list;
    }
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
