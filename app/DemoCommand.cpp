#include "DemoCommand.h"

#include "CommandFailure.h"
#include "control/ControlClient.h"
#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/Subprocess.h"
#include "foundation/Text.h"
#include "foundation/UUID.h"

#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

namespace tidewick {

namespace {

/// A pause between the steps of a script, so the sessions visibly move in the interface.
constexpr std::chrono::milliseconds stepPause{300};

struct HookRun {
    int status = -1;
    std::string out;
};

/// Runs `hook` with `arguments`, `input` on its standard input, and returns what it printed.
/// The environment is ours, so TIDEWICK_HOME reaches the hook as it reached us, and so is the
/// process group, so a Ctrl-C ends the hooks with the demo. Throws SystemError.
HookRun runHook(const std::string& hook, const std::vector<std::string>& arguments,
                const std::string& input) {
    Subprocess::Command command{.arguments = {hook}, .input = input};
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    Subprocess::Result result =
        Subprocess::run(command, Subprocess::Group::shared, std::nullopt);
    HookRun run{result.status, std::move(result.out)};
    while (!run.out.empty() && run.out.back() == '\n')
        run.out.pop_back();
    return run;
}

std::string hookCommand() {
    if (auto directory = ownExecutableDirectory()) {
        const std::string beside = File::join(*directory, "tidewick-hook");
        if (File::isExecutableFile(beside))
            return beside;
    }
    throw CommandFailure(1, "Tidewick couldn't find tidewick-hook beside tidewick. Build both "
                            "programs (cmake --build) and try again.");
}

/// Whether the application answers on its control socket.
bool applicationAnswers(const TidewickPaths& paths) {
    try {
        (void)ControlClient::send(ControlRequest{}, paths);
        return true;
    } catch (const ControlClient::NotRunning&) {
        return false;
    } catch (const ControlClient::VersionMismatch& error) {
        throw CommandFailure(1, error.what());
    }
}

JSONValue object(JSONValue::Object members) {
    return JSONValue(std::move(members));
}

/// A payload as compact JSON: the members all of a session's payloads share, then `extra`.
std::string payload(JSONValue::Object shared, JSONValue::Object extra) {
    for (auto& member : extra)
        shared.push_back(std::move(member));
    return object(std::move(shared)).compact();
}

using PayloadMaker = std::function<std::string(const char* event, JSONValue::Object extra)>;

/// The payloads of one session in the shape Claude Code and Codex share.
PayloadMaker claudeStyle(std::string sessionId, std::string cwd, std::string model) {
    return [=](const char* event, JSONValue::Object extra) {
        return payload(
            {{"hook_event_name", event}, {"session_id", sessionId}, {"cwd", cwd}, {"model", model}},
            std::move(extra));
    };
}

/// How a Claude Code or Codex session opens: it starts, is given `prompt`, and runs
/// `command` with its `tool`, which answers `response`.
std::vector<DemoStep> openingSteps(const PayloadMaker& make, const char* prompt, const char* tool,
                                   const char* command, const char* response) {
    const JSONValue input = object({{"command", command}});
    return {
        {"SessionStart", make("SessionStart", {{"source", "startup"}}), false, ""},
        {"UserPromptSubmit", make("UserPromptSubmit", {{"prompt", prompt}}), false, ""},
        {"PreToolUse", make("PreToolUse", {{"tool_name", tool}, {"tool_input", input}}), false, ""},
        {"PostToolUse",
         make("PostToolUse",
              {{"tool_name", tool}, {"tool_input", input}, {"tool_response", response}}),
         false, ""},
    };
}

std::string stringAt(const JSONValue& value, std::initializer_list<const char*> path) {
    const JSONValue* current = &value;
    for (const char* key : path) {
        current = current->get(key);
        if (!current)
            return {};
    }
    auto text = current->stringValue();
    return text ? std::string(*text) : std::string();
}

const std::string codexPrefix = "Message from the user, sent via Tidewick: ";

} // namespace

std::vector<DemoScript> demoScripts(const std::string& home, const std::string& suffix) {
    const std::string webshop = File::join(home, "projects/webshop");
    const std::string api = File::join(home, "projects/api");
    const std::string notes = File::join(home, "projects/notes");
    const std::string site = File::join(home, "projects/site");
    std::vector<DemoScript> scripts;

    DemoScript claude{AgentKind::claude, "demo-claude-" + suffix, {}};
    const PayloadMaker claudePayload = claudeStyle(claude.sessionId, webshop, "claude-sonnet-4-5");
    claude.steps = openingSteps(claudePayload, "Clean out the old build and rebuild the shop.",
                                "Bash", "ls build", "assets  index.html  main.js");
    claude.steps.push_back(
        {"PermissionRequest",
         claudePayload(
             "PermissionRequest",
             {{"tool_name", "Bash"},
              {"tool_input", object({{"command", "rm -rf build && npm run build"},
                                     {"description", "Remove the old build and rebuild"}})}}),
         true, "asks to run `rm -rf build && npm run build`: allow or deny it in Tidewick"});
    scripts.push_back(std::move(claude));

    DemoScript codex{AgentKind::codex, "demo-codex-" + suffix, {}};
    const PayloadMaker codexPayload = claudeStyle(codex.sessionId, api, "gpt-5-codex");
    codex.steps =
        openingSteps(codexPayload, "Validate the email and password of the signup endpoint.",
                     "shell", "cargo test signup", "test result: ok. 12 passed");
    codex.steps.push_back(
        {"Stop",
         codexPayload("Stop", {{"last_assistant_message",
                                "Signup now rejects malformed emails and short passwords; the "
                                "12 tests pass. Shall I update the API docs too?"}}),
         true,
         "finished its turn and waits for your reply: reply (r) or let it stop (s) in Tidewick"});
    scripts.push_back(std::move(codex));

    DemoScript cursor{AgentKind::cursor, "demo-cursor-" + suffix, {}};
    auto cursorPayload = [&](const char* event, JSONValue::Object extra) {
        return payload({{"hook_event_name", event},
                        {"conversation_id", cursor.sessionId},
                        {"workspace_roots", JSONValue(JSONValue::Array{notes})},
                        {"model", "cursor-fast"}},
                       std::move(extra));
    };
    cursor.steps = {
        {"sessionStart", cursorPayload("sessionStart", {{"composer_mode", "agent"}}), false, ""},
        {"beforeShellExecution", cursorPayload("beforeShellExecution", {{"command", "git status"}}),
         true, "runs `git status`: read-only, so Tidewick allows it without asking"},
        {"beforeShellExecution",
         cursorPayload("beforeShellExecution", {{"command", "git push --force origin main"}}), true,
         "asks to run `git push --force origin main`: allow or deny it in Tidewick"},
    };
    scripts.push_back(std::move(cursor));

    DemoScript antigravity{AgentKind::antigravity, "demo-antigravity-" + suffix, {}};
    auto antigravityPayload = [&](JSONValue::Object extra) {
        return payload({{"conversationId", antigravity.sessionId},
                        {"workspacePaths", JSONValue(JSONValue::Array{site})},
                        {"modelName", "gemini-3-pro"}},
                       std::move(extra));
    };
    antigravity.steps = {
        {"SessionStart", antigravityPayload({}), false, ""},
        {"PreInvocation", antigravityPayload({}), false, ""},
        {"PreToolUse",
         antigravityPayload(
             {{"toolCall",
               object({{"name", "run_command"},
                       {"args", object({{"CommandLine", "npm install && npm run deploy"},
                                        {"Cwd", site}})}})}}),
         true, "asks to run `npm install && npm run deploy`: allow or deny it in Tidewick"},
    };
    scripts.push_back(std::move(antigravity));
    return scripts;
}

std::string describeAnswer(AgentKind agent, const std::string& event, const std::string& output) {
    const std::string asksItself = "no answer from Tidewick, so " +
                                   std::string(displayName(agent)) + " asks in its own window";
    JSONValue answer;
    if (!output.empty()) {
        try {
            answer = JSONValue::parse(output);
        } catch (const std::exception&) {
            return "an answer Tidewick does not recognise";
        }
    }
    switch (agent) {
    case AgentKind::claude:
    case AgentKind::codex: {
        if (event == "Stop") {
            const std::string reason = stringAt(answer, {"reason"});
            if (reason.empty())
                return "it stops";
            return "reply: " + (Text::startsWith(reason, codexPrefix)
                                    ? reason.substr(codexPrefix.size())
                                    : reason);
        }
        const std::string behavior =
            stringAt(answer, {"hookSpecificOutput", "decision", "behavior"});
        if (behavior == "allow")
            return "allowed";
        if (behavior == "deny")
            return "denied: " + stringAt(answer, {"hookSpecificOutput", "decision", "message"});
        return asksItself;
    }
    case AgentKind::cursor: {
        if (event == "stop") {
            const std::string followUp = stringAt(answer, {"followup_message"});
            return followUp.empty() ? "it stops" : "reply: " + followUp;
        }
        const std::string permission = stringAt(answer, {"permission"});
        if (permission == "allow")
            return "allowed";
        if (permission == "deny")
            return "denied: " + stringAt(answer, {"user_message"});
        return asksItself;
    }
    case AgentKind::antigravity: {
        const std::string decision = stringAt(answer, {"decision"});
        if (decision == "allow")
            return "allowed";
        if (decision == "deny")
            return "denied: " + stringAt(answer, {"reason"});
        if (decision == "continue")
            return "reply: " + stringAt(answer, {"reason"});
        if (decision == "stop")
            return "it stops";
        return asksItself;
    }
    }
    return asksItself;
}

void registerDemoCommand(CLI::App& app, AppContext& context) {
    CLI::App* command = app.add_subcommand(
        "demo", "Run four scripted agent sessions against the running Tidewick app");
    command->callback([&context] {
        Terminal& terminal = context.terminal();
        if (!applicationAnswers(context.paths()))
            throw CommandFailure(notRunningExitStatus,
                                 "Tidewick isn't running. Start it in another terminal with "
                                 "`tidewick app`, then run `tidewick demo` again.");
        const std::string hook = hookCommand();
        const std::string suffix = UUID::random().string().substr(0, 8);
        std::mutex outputLock;
        auto say = [&](AgentKind agent, const std::string& line) {
            std::lock_guard guard(outputLock);
            terminal.out() << "[" << displayName(agent) << "] " << line << std::endl;
        };
        {
            std::lock_guard guard(outputLock);
            terminal.out() << "Four agents start working. Answer them in the Tidewick window; "
                              "each prints what it was told.\n"
                           << std::flush;
        }
        std::vector<std::thread> threads;
        for (DemoScript& script : demoScripts(context.home(), suffix)) {
            threads.emplace_back([&say, &hook, script = std::move(script)] {
                for (const DemoStep& step : script.steps) {
                    if (!step.announcement.empty())
                        say(script.agent, step.announcement);
                    HookRun run;
                    try {
                        run = runHook(
                            hook,
                            {"--agent", std::string(rawValue(script.agent)), "--event", step.event},
                            step.payload);
                    } catch (const std::exception& error) {
                        say(script.agent, std::string("stopped: ") + error.what());
                        return;
                    }
                    if (step.showsAnswer)
                        say(script.agent, "answer: " + (run.out.empty() ? "(nothing)" : run.out) +
                                              " → " +
                                              describeAnswer(script.agent, step.event, run.out));
                    std::this_thread::sleep_for(stepPause);
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        std::lock_guard guard(outputLock);
        terminal.out()
            << "The demo is over. Its sessions stay in Tidewick's list until they age out.\n";
    });
}

} // namespace tidewick
