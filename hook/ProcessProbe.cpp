#include "ProcessProbe.h"

#include "foundation/ProcFile.h"
#include "foundation/Text.h"

#include <string_view>

namespace tidewick {

namespace {

class LinuxProcessTable final : public ProcessTable {
public:
    std::optional<ProcessRecord> record(std::int32_t pid) const override {
        // "pid (name) state ppid ...": the name may hold spaces and parentheses,
        // so the fields after it are found from the last ')'.
        const std::string content = ProcFile::read(pid, "stat", 511);
        if (content.empty())
            return std::nullopt;
        std::string_view stat = content;
        size_t open = stat.find('(');
        size_t close = stat.rfind(')');
        if (open == std::string_view::npos || close == std::string_view::npos || close < open ||
            close + 4 >= stat.size())
            return std::nullopt;
        ProcessRecord record;
        record.name = std::string(stat.substr(open + 1, close - open - 1));
        // Skip ") S " to the parent's id.
        std::int64_t parent = 0;
        for (size_t i = close + 4; i < stat.size() && stat[i] >= '0' && stat[i] <= '9'; ++i)
            parent = parent * 10 + (stat[i] - '0');
        record.parent = static_cast<std::int32_t>(parent);
        return record;
    }

    std::vector<std::string> commandLine(std::int32_t pid) const override {
        return ProcFile::commandLine(pid);
    }
};

std::string_view baseName(std::string_view path) {
    size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// Runtimes that run an agent written as a script; the script tells which agent.
bool isScriptRuntime(std::string_view name) {
    return name == "node" || name == "nodejs" || name == "bun" || name == "deno";
}

bool nameIsAgent(std::string_view name, AgentKind agent) {
    switch (agent) {
    case AgentKind::claude:
        return name == "claude";
    case AgentKind::codex:
        // The native build is named after its target, e.g. "codex-x86_64-unknown-linux-musl".
        return name == "codex" || Text::startsWith(name, "codex-");
    case AgentKind::cursor:
        return name == "cursor" || Text::startsWith(name, "cursor-agent");
    case AgentKind::antigravity:
        return name == "antigravity";
    }
    return false;
}

bool scriptIsAgent(std::string_view script, AgentKind agent) {
    std::string path = Text::lowercased(script);
    std::string_view base = baseName(path);
    for (std::string_view extension : {".js", ".mjs", ".cjs"})
        if (base.size() > extension.size() && base.ends_with(extension))
            base.remove_suffix(extension.size());
    switch (agent) {
    case AgentKind::claude:
        return base == "claude" || path.find("/@anthropic-ai/claude-code/") != std::string::npos;
    case AgentKind::codex:
        return base == "codex" || path.find("/@openai/codex/") != std::string::npos;
    case AgentKind::cursor:
        return base == "cursor-agent" || path.find("/cursor-agent/") != std::string::npos;
    case AgentKind::antigravity:
        return base == "antigravity" || path.find("/antigravity/") != std::string::npos;
    }
    return false;
}

// The index of the first argument that belongs to the agent itself: after
// the program, and after the script when a runtime runs it.
size_t firstAgentArgument(const std::vector<std::string>& arguments) {
    if (arguments.empty() || !isScriptRuntime(Text::lowercased(baseName(arguments[0]))))
        return 1;
    for (size_t i = 1; i < arguments.size(); ++i)
        if (!Text::startsWith(arguments[i], "-"))
            return i + 1;
    return arguments.size();
}

bool isAgent(std::int32_t pid, const ProcessRecord& record, AgentKind agent,
             const ProcessTable& table) {
    std::string name = Text::lowercased(record.name);
    if (nameIsAgent(name, agent))
        return true;
    if (!isScriptRuntime(name))
        return false;
    auto arguments = table.commandLine(pid);
    size_t first = firstAgentArgument(arguments);
    return first >= 2 && first <= arguments.size() && scriptIsAgent(arguments[first - 1], agent);
}

} // namespace

const ProcessTable& ProcessTable::system() {
    static const LinuxProcessTable table;
    return table;
}

namespace ProcessProbe {

std::optional<std::int32_t> agentAncestor(std::int32_t pid, AgentKind agent, int maxSteps,
                                          const ProcessTable& table) {
    auto current = table.record(pid);
    for (int step = 0; step < maxSteps && current; ++step) {
        std::int32_t parent = current->parent;
        if (parent <= 0)
            return std::nullopt;
        auto record = table.record(parent);
        if (!record)
            return std::nullopt;
        if (isAgent(parent, *record, agent, table))
            return parent;
        if (parent == 1)
            return std::nullopt;
        current = std::move(record);
    }
    return std::nullopt;
}

bool isHeadless(std::int32_t pid, AgentKind agent, const ProcessTable& table) {
    auto arguments = table.commandLine(pid);
    size_t first = firstAgentArgument(arguments);
    bool firstPositional = true;
    for (size_t i = first; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--")
            break;
        switch (agent) {
        case AgentKind::claude:
        case AgentKind::cursor:
            if (argument == "-p" || argument == "--print")
                return true;
            break;
        case AgentKind::codex:
            // "codex exec" and its alias "codex e" run one task and exit.
            if (argument == "exec" || (firstPositional && argument == "e"))
                return true;
            break;
        case AgentKind::antigravity:
            return false; // An editor: someone is always at it.
        }
        if (!Text::startsWith(argument, "-"))
            firstPositional = false;
    }
    return false;
}

} // namespace ProcessProbe
} // namespace tidewick
