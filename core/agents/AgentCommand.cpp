#include "agents/AgentCommand.h"

#include "foundation/File.h"
#include "foundation/Text.h"

namespace tidewick::AgentCommand {

namespace {

std::string_view baseName(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// A program file's name as the agent's: "claude.exe" is Claude Code's native build,
// "codex-x86_64-unknown-linux-musl" Codex's.
bool namesAgent(std::string_view path, std::string_view program) {
    std::string name = Text::lowercased(baseName(path));
    if (name.ends_with(".exe"))
        name.resize(name.size() - 4);
    return name == program || (program == "codex" && Text::startsWith(name, "codex-"));
}

bool isScriptRuntime(std::string_view path) {
    const std::string name = Text::lowercased(baseName(path));
    return name == "node" || name == "nodejs" || name == "bun" || name == "deno";
}

// A runtime's script that is the agent: named like it, or inside its package.
bool scriptIsAgent(std::string_view script, AgentKind agent, std::string_view program) {
    std::string name = Text::lowercased(baseName(script));
    for (std::string_view extension : {".js", ".mjs", ".cjs"})
        if (name.ends_with(extension))
            name.resize(name.size() - extension.size());
    if (name == program)
        return true;
    const std::string path = Text::lowercased(script);
    switch (agent) {
    case AgentKind::claude:
        return path.find("/@anthropic-ai/claude-code/") != std::string::npos;
    case AgentKind::codex:
        return path.find("/@openai/codex/") != std::string::npos;
    case AgentKind::cursor:
        return path.find("/cursor-agent/") != std::string::npos;
    case AgentKind::antigravity:
        break;
    }
    return false;
}

} // namespace

std::optional<std::string_view> programName(AgentKind agent) {
    switch (agent) {
    case AgentKind::claude:
        return "claude";
    case AgentKind::codex:
        return "codex";
    case AgentKind::cursor:
        return "cursor-agent";
    case AgentKind::antigravity:
        break;
    }
    return std::nullopt;
}

std::optional<std::vector<std::string>> fromProcess(AgentKind agent, std::int32_t pid,
                                                    std::optional<std::int64_t> startTime,
                                                    const ProcessAccess& processes) {
    const std::optional<std::string_view> program = programName(agent);
    if (!program || !processes.isSameProcess(pid, startTime))
        return std::nullopt;
    const std::optional<std::string> executable = processes.executable(pid);
    if (!executable)
        return std::nullopt;
    const std::vector<std::string> arguments = processes.commandLine(pid);
    if (namesAgent(*executable, *program) ||
        (!arguments.empty() && namesAgent(arguments[0], *program) && !isScriptRuntime(*executable)))
        return std::vector<std::string>{*executable};
    if (!isScriptRuntime(*executable))
        return std::nullopt;
    // The runtime's first word that is not an option is the script; only an absolute one
    // can be found again from another folder.
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        if (Text::startsWith(arguments[i], "-"))
            continue;
        if (Text::startsWith(arguments[i], "/") && scriptIsAgent(arguments[i], agent, *program))
            return std::vector<std::string>{*executable, arguments[i]};
        break;
    }
    return std::nullopt;
}

std::optional<std::string> findOnPath(std::string_view name, std::string_view searchPath) {
    for (std::size_t start = 0; start <= searchPath.size();) {
        std::size_t end = searchPath.find(':', start);
        if (end == std::string_view::npos)
            end = searchPath.size();
        const std::string_view folder = searchPath.substr(start, end - start);
        // An empty entry or "." would find whatever lies in the current folder.
        if (Text::startsWith(folder, "/")) {
            std::string candidate = File::join(std::string(folder), std::string(name));
            if (File::isExecutableFile(candidate))
                return candidate;
        }
        start = end + 1;
    }
    return std::nullopt;
}

std::optional<std::vector<std::string>> resolve(AgentKind agent, const Sources& sources,
                                                const ProcessAccess& processes) {
    const std::optional<std::string_view> program = programName(agent);
    if (!program)
        return std::nullopt;
    if (sources.pid)
        if (auto running = fromProcess(agent, *sources.pid, sources.startTime, processes))
            return running;
    if (auto found = findOnPath(*program, sources.searchPath))
        return std::vector<std::string>{*found};
    if (sources.configured && File::isExecutableFile(*sources.configured))
        return std::vector<std::string>{*sources.configured};
    return std::nullopt;
}

std::vector<std::string> continuation(AgentKind agent, std::vector<std::string> program,
                                      const std::string& sessionId, const std::string& text) {
    std::vector<std::string> words = std::move(program);
    auto add = [&words](std::initializer_list<std::string> more) {
        words.insert(words.end(), more.begin(), more.end());
    };
    switch (agent) {
    case AgentKind::claude:
    case AgentKind::cursor:
        add({"--resume", sessionId, "-p", "--", text});
        break;
    case AgentKind::codex:
        // Outside a repository exec refuses to run without the first option.
        add({"exec", "--skip-git-repo-check", "resume", sessionId, "--", text});
        break;
    case AgentKind::antigravity:
        break;
    }
    return words;
}

} // namespace tidewick::AgentCommand
