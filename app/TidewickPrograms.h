// The real `tidewick` and `tidewick-hook` programs run against one temporary
// home, for the end-to-end tests: commands, the headless application, hooks.
// Test-only: it needs the TIDEWICK_BINARY_DIR that appTests is compiled with.
#pragma once

#include "testing/BackgroundProgram.h"
#include "testing/Eventually.h"
#include "testing/ProgramRun.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"
#include "transcripts/TranscriptTestSupport.h"

#include "foundation/Clock.h"
#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/TidewickPaths.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <sstream>

namespace tidewick::testing {

/// Claude Code's answer that allows a permission request, as tidewick-hook prints it.
inline const std::string claudeAllowed =
    R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow"}}})"
    "\n";

/// Each non-empty line of the file at `path` parsed as JSON; none when it is not there.
[[nodiscard]] inline std::vector<JSONValue> jsonLines(const std::string& path) {
    std::vector<JSONValue> records;
    std::istringstream lines(File::exists(path) ? File::read(path) : "");
    for (std::string line; std::getline(lines, line);)
        if (!line.empty())
            records.push_back(JSONValue::parse(line));
    return records;
}

/// A Claude Code PermissionRequest of `session` in /home/ana/src/webshop; `toolAndInput`
/// are the payload's members naming the tool and its input.
[[nodiscard]] inline std::string claudeAsks(const std::string& session,
                                            const std::string& toolAndInput) {
    return R"({"hook_event_name":"PermissionRequest","session_id":")" + session +
           R"(","cwd":"/home/ana/src/webshop",)" + toolAndInput + "}";
}
/// The same for the shell command `command`.
[[nodiscard]] inline std::string claudeAsksToRun(const std::string& session,
                                                 const std::string& command) {
    return claudeAsks(session, R"("tool_name":"Bash","tool_input":{"command":")" + command + "\"}");
}

/// The time `offset` seconds from now in whole seconds since 1970, as agents write resets.
[[nodiscard]] inline std::string secondsFromNow(double offset) {
    return std::to_string(static_cast<std::int64_t>(secondsSince1970(now()) + offset));
}

class TidewickPrograms {
public:
    inline static const std::string tidewickPath =
        std::string(TIDEWICK_BINARY_DIR) + "/bin/tidewick";
    inline static const std::string hookPath =
        std::string(TIDEWICK_BINARY_DIR) + "/bin/tidewick-hook";

    /// Whether tidewick-hook was built beside tidewick (the tests skip otherwise).
    [[nodiscard]] static bool built() { return File::isExecutableFile(hookPath); }

    /// The environment starts as TIDEWICK_HOME and HOME at the home, PATH=/usr/bin:/bin.
    TidewickPrograms() {
        environment = {"TIDEWICK_HOME=" + home(), "HOME=" + home(), "PATH=/usr/bin:/bin"};
    }
    ~TidewickPrograms() {
        hooks_.clear();
        if (app_ && app_->isRunning())
            (void)stopApp();
    }

    [[nodiscard]] const std::string& home() const { return home_.path(); }

    /// Sets (or adds) the variable `name` of the programs' environment.
    void setVariable(const std::string& name, const std::string& value) {
        std::erase_if(environment, [&](const std::string& e) { return e.starts_with(name + "="); });
        environment.push_back(name + "=" + value);
    }

    /// Runs `tidewick arguments...` to its end (two minutes at most).
    ProgramResult tidewick(std::vector<std::string> arguments,
                           const std::string& input = {}) const {
        arguments.insert(arguments.begin(), tidewickPath);
        return runProgram(arguments, environment, input, {}, std::chrono::seconds(120));
    }

    /// Runs `tidewick arguments...` as tidewick() does, and fails the test unless it exits 0.
    ProgramResult succeeded(std::vector<std::string> arguments,
                            const std::string& input = {}) const {
        ProgramResult result = tidewick(arguments, input);
        EXPECT_EQ(result.status, 0) << arguments[0] << ": " << result.out << result.err;
        return result;
    }

    /// Runs `tidewick arguments...` as tidewick() does, and fails the test unless it exits
    /// `status`; what it printed on standard error (the refusal's sentence).
    std::string fails(std::vector<std::string> arguments, int status) const {
        ProgramResult result = tidewick(arguments);
        EXPECT_EQ(result.status, status) << arguments[0] << ": " << result.out << result.err;
        return result.err;
    }

    /// Starts `tidewick app --headless`; whether it said both sockets listen within 10 s.
    [[nodiscard]] bool startApp() {
        app_ = std::make_unique<BackgroundProgram>(
            std::vector<std::string>{tidewickPath, "app", "--headless"}, environment, "",
            scratch("app"));
        auto started = [&] {
            return app_->out().find("Tidewick is running.") != std::string::npos;
        };
        (void)eventually([&] { return !app_->isRunning() || started(); }, std::chrono::seconds(10));
        if (app_->isRunning() && started())
            return true;
        ADD_FAILURE() << "the application did not start: " << app_->out() << app_->err();
        return false;
    }

    /// A shell command for a terminal pane: `tidewick arguments` with nothing in its
    /// environment but the terminal's, the home and `variables` ("NAME='value' ..."), its
    /// standard error into the file "`name`.err" of the home.
    [[nodiscard]] std::string inTerminal(const std::string& name, const std::string& variables = {},
                                         const std::string& arguments = "app") const {
        return "exec env -i TERM=\"$TERM\" LANG=C.UTF-8 TIDEWICK_HOME='" + home() + "' HOME='" +
               home() + "' " + variables + " '" + tidewickPath + "' " + arguments + " 2>'" +
               File::join(home(), name + ".err") + "'";
    }

    /// Stops the application with SIGTERM as a service manager would; its exit status.
    int stopApp() {
        app_->signal(SIGTERM);
        auto status = app_->waitFor(std::chrono::seconds(20));
        EXPECT_TRUE(status) << "the application did not stop";
        return status.value_or(-1);
    }
    [[nodiscard]] std::string appErrors() const { return app_ ? app_->err() : ""; }
    /// What the headless application printed so far.
    [[nodiscard]] std::string appOutput() const { return app_ ? app_->out() : ""; }

    /// Starts `tidewick-hook --agent agent --event event` fed `payload`, with `extra` variables.
    BackgroundProgram& hook(const std::string& agent, const std::string& event,
                            const std::string& payload, std::vector<std::string> extra = {}) {
        extra.insert(extra.begin(), environment.begin(), environment.end());
        hooks_.push_back(std::make_unique<BackgroundProgram>(
            std::vector<std::string>{hookPath, "--agent", agent, "--event", event}, extra, payload,
            scratch("hook")));
        return *hooks_.back();
    }

    /// Starts tidewick-hook with Cursor's `event` of `conversation` in /w; `extra` holds
    /// more members (",\"name\":value...").
    BackgroundProgram& cursor(const std::string& event, const std::string& conversation,
                              const std::string& extra = "") {
        return hook("cursor", event,
                    R"({"conversation_id":")" + conversation +
                        R"(","workspace_roots":["/w"],"cwd":"/w","hook_event_name":")" + event +
                        "\"" + extra + "}");
    }
    /// Cursor of `conversation` asking to run `command`.
    BackgroundProgram& cursorShell(const std::string& conversation, const std::string& command) {
        return cursor("beforeShellExecution", conversation, R"(,"command":")" + command + "\"");
    }

    /// Runs the hook with the status line Claude Code gives a subscriber: 93.2 % of the
    /// five-hour window used and 41 % of the weekly one, resetting `fiveHourReset` and
    /// `weeklyReset` seconds from now; fails the test unless it prints nothing.
    void claudeStatusLine(double fiveHourReset, double weeklyReset) {
        EXPECT_EQ(finished(hook("claude", "StatusLine",
                                R"({"session_id":"s1","model":{"id":"claude-opus"},"rate_limits":)"
                                R"({"five_hour":{"used_percentage":93.2,"resets_at":)" +
                                    secondsFromNow(fiveHourReset) +
                                    R"(},"seven_day":{"used_percentage":41,"resets_at":)" +
                                    secondsFromNow(weeklyReset) + "}}}")),
                  "");
    }

    /// What `program` printed once it ended with status 0 (15 s at most).
    static std::string finished(BackgroundProgram& program) {
        EXPECT_EQ(program.waitFor(std::chrono::seconds(15)), 0) << program.err();
        return program.out();
    }

    /// `tidewick command --json` parsed; an empty array when it failed.
    JSONValue listing(const std::string& command) const {
        ProgramResult result = succeeded({command, "--json"});
        return result.status == 0 ? JSONValue::parse(result.out) : JSONValue(JSONValue::Array{});
    }

    /// Waits (30 s at most) until exactly `count` requests are held; the held requests.
    JSONValue::Array waitForHeld(std::size_t count) const {
        JSONValue::Array held;
        if (!eventually(
                [&] {
                    held = *listing("pending").arrayValue();
                    return held.size() == count;
                },
                std::chrono::seconds(30)))
            ADD_FAILURE() << "expected " << count << " held requests, have " << held.size();
        return held;
    }

    /// The texts of the timeline of `session` (as `sessions --json` lists it), oldest first.
    static std::vector<std::string> texts(const JSONValue& session) {
        std::vector<std::string> texts;
        for (const JSONValue& item : *session.get("timeline")->arrayValue())
            texts.push_back(*item.get("text")->stringValue());
        return texts;
    }
    /// The texts of the timeline of the session `sessionId`, oldest first.
    std::vector<std::string> timeline(const std::string& sessionId) const {
        const JSONValue sessions = listing("sessions");
        for (const JSONValue& session : *sessions.arrayValue())
            if (*session.get("key")->get("sessionId") == JSONValue(sessionId))
                return texts(session);
        return {};
    }
    /// The one session listed, once `ready` holds for it (90 s at most; a failure and the
    /// last one seen otherwise).
    template <typename Ready> JSONValue sessionWhen(Ready ready) const {
        JSONValue last;
        if (!eventually(
                [&] {
                    const JSONValue list = listing("sessions");
                    if (list.arrayValue()->size() != 1)
                        return false;
                    last = (*list.arrayValue())[0];
                    return ready(last);
                },
                std::chrono::seconds(90)))
            ADD_FAILURE() << "the session never got there: " << last.compact();
        return last;
    }

    /// Makes tidewick-hook append a record of every call (agent, event, payload) to a
    /// log beside the socket, from its next call on.
    void recordHookCalls() const {
        File::makeDirectories(socketFolder(), 0700);
        File::writeAtomically(File::join(socketFolder(), "debug-hooks"), "", 0600);
    }
    /// The records of tidewick-hook's calls for `event`, oldest first; none when the hook
    /// never ran since recordHookCalls().
    [[nodiscard]] std::vector<JSONValue> hookCalls(const std::string& event) const {
        std::vector<JSONValue> calls = jsonLines(File::join(socketFolder(), "hook-debug.jsonl"));
        std::erase_if(calls, [&](const JSONValue& record) {
            return !record.get("event") || *record.get("event") != JSONValue(event);
        });
        return calls;
    }

    /// Puts a stand-in for the sound player `program` in the folder "players" of the home,
    /// first on the programs' PATH; it notes the arguments of every play, one line each, in
    /// the file whose path it returns.
    std::string fakeSoundPlayer(const std::string& program) {
        const std::string folder = File::join(home(), "players");
        const std::string played = File::join(home(), "played");
        File::makeDirectories(folder, 0700);
        File::writeAtomically(File::join(folder, program),
                              "#!/bin/sh\necho \"$*\" >> '" + played + "'\n", 0700);
        setVariable("PATH", folder + ":/usr/bin:/bin");
        return played;
    }

    /// The content of `path` once it is there (10 s at most); empty if it never is.
    static std::string whenWritten(const std::string& path) {
        (void)eventually([&] { return File::exists(path); }, std::chrono::seconds(10));
        return File::exists(path) ? File::read(path) : "";
    }

    /// The session of the recorded Claude Code transcript that recordedClaudeSession() starts.
    inline static const std::string recordedClaudeId = "bc2ae821-aea9-4d2a-bb46-238b514a9108";
    /// Copies the recorded transcript of a Claude Code session in /home/dev/proj where
    /// Claude Code keeps it, and tells the running application of the session as the
    /// SessionStart hook does; the copy's path.
    std::string recordedClaudeSession() {
        const std::string transcript =
            home() + "/.claude/projects/-home-dev-proj/" + recordedClaudeId + ".jsonl";
        put(transcript, File::read(recorded + "/claude-transcripts/perm-allow.jsonl"));
        (void)finished(hook("claude", "SessionStart",
                            R"({"hook_event_name":"SessionStart","session_id":")" +
                                recordedClaudeId + R"(","transcript_path":")" + transcript +
                                R"(","cwd":"/home/dev/proj","source":"startup"})"));
        return transcript;
    }

    /// "NAME=value" entries every program gets, and nothing else.
    std::vector<std::string> environment;

private:
    std::string socketFolder() const { return File::parent(TidewickPaths(home()).socketPath()); }
    std::string scratch(const std::string& name) {
        return File::join(home(), name + "-" + std::to_string(++programs_));
    }

    TemporaryDirectory home_;
    std::unique_ptr<BackgroundProgram> app_;
    std::vector<std::unique_ptr<BackgroundProgram>> hooks_;
    int programs_ = 0;
};

} // namespace tidewick::testing
