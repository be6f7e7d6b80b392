// A real Codex accepts what `tidewick connect codex` writes, once the user has
// approved the hooks as Codex's /hooks screen does (here through `codex
// app-server`): headless `codex exec` turns are recorded and never held, an
// editor's turn is held and answered from the command line, and reconnecting or
// disconnecting never silently costs the user the approval of their own hooks.
// Codex comes from the npm registry (test only) and talks to a loopback
// stand-in for its model service, in a network namespace of its own when the
// system allows one.
#include "RealAgents.h"

#include "foundation/Text.h"

#include <filesystem>
#include <map>

namespace tidewick {
namespace {

using testing::agentScripts;
using testing::BackgroundProgram;
using testing::ProgramResult;
using testing::runProgram;

const std::string approvalNote =
    "Note: Codex needs your OK once. Open Codex, type /hooks and approve Tidewick.";

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Offline: a provider at the stand-in, no retries, no plugin look-ups.
std::string configText(int port, const std::string& work) {
    const std::string text = R"(model = "gpt-5.1-codex"
model_provider = "stand-in"
check_for_update_on_startup = false

[model_providers.stand-in]
name = "stand-in"
base_url = "http://127.0.0.1:PORT/v1"
wire_api = "responses"
env_key = "STAND_IN_KEY"
supports_websockets = false
request_max_retries = 0
stream_max_retries = 0

[analytics]
enabled = false

[features]
plugins = false

[projects."WORK"]
trust_level = "trusted"
)";
    return Text::replacingAll(Text::replacingAll(text, "PORT", std::to_string(port)), "WORK", work);
}

// Codex installed on first use (into TIDEWICK_CODEX_DIR when set, so build trees can
// share it), with HOME, CODEX_HOME's parent and TIDEWICK_HOME one temporary home,
// reached through a symbolic link: Codex keys its approvals by the real path.
class Codex : public testing::RealAgentTest {
protected:
    void SetUp() override {
        install("install-codex.sh", "TIDEWICK_CODEX_DIR", "codex");
        if (IsSkipped() || HasFatalFailure())
            return;
        std::filesystem::create_directories(File::join(run.home(), "real-home/.codex"));
        std::filesystem::create_directory_symlink("real-home", home());
        std::filesystem::create_directories(work());
        for (const auto& [name, value] : {std::pair{"HOME", home()},
                                          {"TIDEWICK_HOME", home()},
                                          {"CODEX_HOME", codexHome()},
                                          {"STAND_IN_KEY", "test-key"},
                                          {"PATH", File::parent(agent) + ":/usr/bin:/bin"}})
            run.setVariable(name, value);
        isolate = testing::canIsolateNetwork();
        // A closed port until a test starts the stand-in: Codex must not reach anything.
        File::writeAtomically(File::join(codexHome(), "config.toml"), configText(9, work()), 0600);
    }

    std::string home() const { return File::join(run.home(), "home"); }
    std::string codexHome() const { return File::join(home(), ".codex"); }
    std::string work() const { return File::join(run.home(), "real-home/work"); }
    std::string hooksFile() const { return File::join(codexHome(), "hooks.json"); }
    // What Codex keys the approval of `place` ("stop:1:0") under.
    std::string key(const std::string& place) const {
        return File::join(run.home(), "real-home/.codex/hooks.json") + ":" + place;
    }

    // Starts the stand-in with `scenario` (a network namespace of its own when one can be
    // made) and points config.toml at it.
    void startModel(const std::string& scenario) {
        std::vector<std::string> argv = {python,       agentScripts + "/codex_stand_in.py",
                                         "--port",     "0",
                                         "--scenario", scenarioFile(),
                                         "--log",      requestLog()};
        if (isolate)
            // A new namespace starts with loopback down; unshare and sh hand their
            // process over to python, so its id names the namespace.
            argv.insert(argv.begin(), {"/usr/bin/unshare", "-n", "/bin/sh", "-c",
                                       "ip link set lo up && exec \"$@\"", "stand-in"});
        const std::string port = startStandIn(scenario, argv);
        ASSERT_FALSE(port.empty());
        File::writeAtomically(File::join(codexHome(), "config.toml"),
                              configText(std::stoi(port), work()), 0600);
    }
    std::string requestLog() const { return File::join(run.home(), "requests.jsonl"); }

    // `argv` prefixed so that it shares the stand-in's network namespace, or gets an
    // empty one of its own when there is no stand-in.
    std::vector<std::string> offline(std::vector<std::string> argv) const {
        if (!isolate)
            return argv;
        std::vector<std::string> prefix =
            standIn ? std::vector<std::string>{"/usr/bin/nsenter",
                                               "--net=/proc/" + std::to_string(standIn->pid()) +
                                                   "/ns/net",
                                               "--"}
                    : std::vector<std::string>{"/usr/bin/unshare", "-n", "--"};
        argv.insert(argv.begin(), prefix.begin(), prefix.end());
        return argv;
    }

    // The app-server driver's arguments before its command.
    std::vector<std::string> driver(const std::string& transcript) const {
        return offline({python, agentScripts + "/codex_app_server.py", "--codex", agent, "--cwd",
                        work(), "--transcript", File::join(run.home(), transcript)});
    }

    // What `hooks/list` says of each hook's approval, by key: "trusted", "untrusted",
    // "modified" or "managed"; after approving every hook first, as /hooks does, when asked.
    enum class Approving { none, all };
    std::map<std::string, std::string> trust(Approving approving = Approving::none) {
        std::vector<std::string> argv = driver("hooks.jsonl");
        argv.push_back("hooks");
        if (approving == Approving::all)
            argv.push_back("--approve");
        ProgramResult result =
            runProgram(argv, run.environment, {}, work(), std::chrono::seconds(120));
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        std::map<std::string, std::string> statuses;
        if (result.status != 0)
            return statuses;
        const JSONValue listed = JSONValue::parse(result.out);
        for (const JSONValue& hook : *listed.get("hooks")->arrayValue())
            statuses[*hook.get("key")->stringValue()] = *hook.get("trustStatus")->stringValue();
        return statuses;
    }

    // Codex's line of `tidewick status` says its hooks are connected, or wait for the
    // user's approval with the note that says how to give it.
    enum class Status { connected, awaitingApproval };
    void expectStatus(Status expected) const {
        ProgramResult result = run.succeeded({"status"});
        std::istringstream lines(result.out);
        std::string line;
        while (std::getline(lines, line) && !line.starts_with("codex")) {
        }
        const bool awaiting = expected == Status::awaitingApproval;
        EXPECT_EQ(contains(line, "waiting for your approval in Codex"), awaiting) << line;
        EXPECT_EQ(contains(line, approvalNote), awaiting) << line;
        EXPECT_EQ(contains(line, " connected "), !awaiting) << line;
    }

    // Runs `codex exec prompt` offline in the work folder to its end; fails unless it succeeds.
    ProgramResult exec(const std::string& prompt) const {
        ProgramResult result = runProgram(offline({agent, "exec", "--skip-git-repo-check", prompt}),
                                          run.environment, {}, work(), std::chrono::seconds(120));
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        return result;
    }

    // The one request held, once it is there: of `kind`, with `part` in its detail; its session.
    std::string held(const std::string& kind, const std::string& part) const {
        const JSONValue::Array held = run.waitForHeld(1);
        if (held.size() != 1)
            return {};
        const JSONValue& request = *held[0].get("request");
        EXPECT_EQ(*request.get("kind"), JSONValue(kind)) << request.compact();
        const JSONValue* detail = request.get("detail");
        EXPECT_TRUE(detail && contains(detail->compact(), part)) << request.compact();
        return *held[0].get("session")->get("sessionId")->stringValue();
    }

    bool isolate = false;
};

// Besides, the model service's usage headers reach Codex's record, and Tidewick shows
// them and raises its alert for the window past 90 % once.
TEST_F(Codex, ExecTurnsAreRecordedAndAnEditorsTurnIsHeldAndAnswered) {
    const std::string outside = File::join(run.home(), "outside");
    std::filesystem::create_directories(outside);
    // One step per request to the model: the exec turn runs a command and answers; the
    // editor's turn asks twice to leave the sandbox, then answers. Every answer carries
    // the same usage headers, with the window's reset at one fixed time.
    const std::string scenario = R"({"steps": [{"exec": "echo exec-turn"},
        {"reply": "exec turn done"}, {"exec": "touch OUT/denied", "escalated": true},
        {"exec": "touch OUT/allowed", "escalated": true}, {"reply": "Both asked."}],
        "primary_used": 93.5, "primary_window": 300, "primary_reset_at": RESET,
        "secondary_used": 12.5, "secondary_window": 10080, "secondary_reset_in": 86400})";
    startModel(Text::replacingAll(Text::replacingAll(scenario, "OUT", outside), "RESET",
                                  testing::secondsFromNow(3600)));
    ASSERT_TRUE(run.startApp());

    ProgramResult connect = run.succeeded({"connect", "codex", "--yes"});
    EXPECT_TRUE(contains(connect.out, approvalNote)) << connect.out;
    // Approved as /hooks does: then every hook of Tidewick's runs.
    (void)trust(Approving::all);

    // Headless: recorded, nothing held, the turn ends by itself.
    ProgramResult turnOne = exec("first turn");
    EXPECT_TRUE(contains(turnOne.out, "exec turn done")) << turnOne.out;
    JSONValue sessions = run.listing("sessions");
    ASSERT_EQ(sessions.arrayValue()->size(), 1u) << sessions.compact();
    const JSONValue execSession = (*sessions.arrayValue())[0];
    EXPECT_EQ(*execSession.get("status"), JSONValue("ended")) << execSession.compact();
    EXPECT_TRUE(execSession.get("pending")->arrayValue()->empty());
    EXPECT_TRUE(contains(execSession.get("timeline")->compact(), "echo exec-turn"))
        << execSession.compact();

    // Each window's share and length as the headers gave them; levels are the readers' to test.
    ProgramResult usage = run.succeeded({"usage", "--json"});
    const JSONValue report = JSONValue::parse(usage.out);
    ASSERT_EQ(report.get("agents")->arrayValue()->size(), 2u) << usage.out;
    std::vector<std::string> windows;
    for (const JSONValue& window :
         *(*report.get("agents")->arrayValue())[1].get("windows")->arrayValue())
        windows.push_back(window.get("usedPercent")->compact() + " " +
                          window.get("label")->compact());
    EXPECT_EQ(windows, (std::vector<std::string>{R"(93.5 "5h")", R"(12.5 "7d")"})) << usage.out;
    const std::string alert = "Codex: 5h limit 93% used. Resets in ";
    EXPECT_TRUE(testing::eventually([&] { return contains(run.appOutput(), alert); },
                                    std::chrono::seconds(60)))
        << run.appOutput();

    // An editor's turn, approval policy "on-request": both escalations are held.
    std::vector<std::string> argv = driver("turn.jsonl");
    argv.insert(argv.end(), {"turn", "--prompt", "second turn", "--timeout", "200"});
    BackgroundProgram turn(argv, run.environment, "", File::join(run.home(), "turn"), work());
    const std::string refusal = "Not outside the workspace, please";
    const std::string first = held("permission", outside + "/denied");
    ASSERT_FALSE(first.empty());
    (void)run.succeeded({"deny", first, "--message", refusal});

    const std::string second = held("permission", outside + "/allowed");
    ASSERT_EQ(second, first);
    (void)run.succeeded({"allow", second});

    const std::string stop = held("reply", "Both asked.");
    ASSERT_FALSE(stop.empty());
    EXPECT_FALSE(File::exists(File::join(outside, "denied")));
    EXPECT_TRUE(File::exists(File::join(outside, "allowed")));
    (void)run.succeeded({"reply", stop, "Now run the tests"});
    // The reply sends the turn on; it stops again, held again until let go.
    const std::string again = held("reply", "Continued:");
    ASSERT_FALSE(again.empty());
    (void)run.succeeded({"let-stop", again});

    ASSERT_EQ(turn.waitFor(std::chrono::seconds(120)), 0) << turn.out() << turn.err();
    const JSONValue summary = JSONValue::parse(turn.out());
    EXPECT_EQ(*summary.get("status"), JSONValue("completed")) << summary.compact();
    // Every answer came from Tidewick's hooks: Codex never had to ask the editor.
    EXPECT_TRUE(summary.get("serverRequests")->arrayValue()->empty()) << summary.compact();

    // What the model received: the refusal's message as the tool's output, then the reply
    // in Codex's hook prompt.
    const std::string sent = File::read(requestLog());
    const std::string rejected = JSONValue::quote("Rejected(\\\"" + refusal + "\\\")");
    EXPECT_TRUE(contains(sent, rejected.substr(1, rejected.size() - 2))) << sent;
    EXPECT_TRUE(contains(sent, "<hook_prompt")) << sent;
    EXPECT_TRUE(contains(sent, "sent via Tidewick: Now run the tests")) << sent;

    // The editor's session too ended once the server closed.
    sessions = run.listing("sessions");
    ASSERT_EQ(sessions.arrayValue()->size(), 2u) << sessions.compact();
    for (const JSONValue& session : *sessions.arrayValue())
        EXPECT_EQ(*session.get("status"), JSONValue("ended")) << session.compact();
    // However many answers carried the headers, the alert was printed once.
    const std::string printed = run.appOutput();
    EXPECT_EQ(printed.find(alert), printed.rfind(alert)) << printed;
    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
}

TEST_F(Codex, ReconnectingKeepsTheUsersApprovalsAndDisconnectingNamesTheHooksItMoves) {
    (void)run.succeeded({"connect", "codex", "--yes"});
    // What an older install left and the user approved: Tidewick's hook command somewhere
    // else and no Interrupt group; and the user's own hooks, a Stop hook behind Tidewick's
    // group and one for an event Tidewick leaves alone.
    const std::string userStop = "echo user-stop", userSubagent = "echo user-subagent";
    auto userGroup = [](const std::string& command) {
        return JSONValue::parse(R"({"hooks": [{"type": "command", "command": ")" + command +
                                "\"}]}");
    };
    JSONValue document = JSONValue::parse(File::read(hooksFile()));
    JSONValue& hooks = *document.get("hooks");
    hooks.remove("Interrupt");
    (*hooks.get("Stop")->arrayValue())[0].get("hooks")->arrayValue()->at(0).set(
        "command", "'/old/place/tidewick-hook' --agent codex --event Stop");
    hooks.get("Stop")->arrayValue()->push_back(userGroup(userStop));
    hooks.set("SubagentStop", JSONValue(JSONValue::Array{userGroup(userSubagent)}));
    File::writeAtomically(hooksFile(), document.pretty() + "\n", 0600);
    std::map<std::string, std::string> states = trust(Approving::all);
    ASSERT_EQ(states[key("stop:1:0")], "trusted");
    ASSERT_EQ(states[key("subagent_stop:0:0")], "trusted");

    // Reconnecting rewrites Tidewick's Stop hook in place and adds its Interrupt group: the
    // user's hooks keep their keys, so Codex still runs them; Tidewick's two changed hooks
    // wait for the user's approval, and status says so.
    ProgramResult reconnect = run.succeeded({"connect", "codex"}, "y\n");
    EXPECT_FALSE(contains(reconnect.out, "These hooks of yours move")) << reconnect.out;
    states = trust();
    for (const auto& [place, state] :
         std::map<std::string, std::string>{{"stop:0:0", "modified"},
                                            {"stop:1:0", "trusted"},
                                            {"interrupt:0:0", "untrusted"},
                                            {"subagent_stop:0:0", "trusted"},
                                            {"pre_tool_use:0:0", "trusted"}}) {
        SCOPED_TRACE(place);
        EXPECT_EQ(states[key(place)], state);
    }
    expectStatus(Status::awaitingApproval);
    (void)trust(Approving::all);
    expectStatus(Status::connected);

    // Disconnecting drops Tidewick's Stop group in front of the user's: the preview says
    // so, and exactly the hook it named loses its approval.
    ProgramResult disconnect = run.succeeded({"disconnect", "codex", "--yes"});
    EXPECT_TRUE(contains(disconnect.out, "These hooks of yours move, so Codex will ask you to "
                                         "approve them again (type /hooks in Codex):\n  Stop: " +
                                             userStop + "\n"))
        << disconnect.out;
    EXPECT_FALSE(contains(disconnect.out, userSubagent)) << disconnect.out;
    states = trust();
    EXPECT_EQ(states, (std::map<std::string, std::string>{{key("stop:0:0"), "modified"},
                                                          {key("subagent_stop:0:0"), "trusted"}}));
}

} // namespace
} // namespace tidewick
