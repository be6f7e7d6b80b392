// The real `tidewick` and `tidewick-hook` programs run against one temporary
// home, for the end-to-end tests: commands, the headless application, hooks.
// Test-only: it needs the TIDEWICK_BINARY_DIR that appTests is compiled with.
#pragma once

#include "testing/BackgroundProgram.h"
#include "testing/ProgramRun.h"
#include "testing/TemporaryDirectory.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/TidewickPaths.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string_view>
#include <thread>

namespace tidewick::testing {

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

    /// Starts `tidewick app --headless`; whether it said both sockets listen within 10 s.
    [[nodiscard]] bool startApp() {
        app_ = std::make_unique<BackgroundProgram>(
            std::vector<std::string>{tidewickPath, "app", "--headless"}, environment, "",
            scratch("app"));
        for (auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
             std::chrono::steady_clock::now() < deadline && app_->isRunning();
             std::this_thread::sleep_for(std::chrono::milliseconds(10)))
            if (app_->out().find("Tidewick is running.") != std::string::npos)
                return true;
        ADD_FAILURE() << "the application did not start: " << app_->out() << app_->err();
        return false;
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

    /// What `program` printed once it ended with status 0 (15 s at most).
    static std::string finished(BackgroundProgram& program) {
        EXPECT_EQ(program.waitFor(std::chrono::seconds(15)), 0) << program.err();
        return program.out();
    }

    /// `tidewick command --json` parsed; an empty array when it failed.
    JSONValue listing(const std::string& command) const {
        ProgramResult result = tidewick({command, "--json"});
        EXPECT_EQ(result.status, 0) << result.err;
        return result.status == 0 ? JSONValue::parse(result.out) : JSONValue(JSONValue::Array{});
    }

    /// Waits (30 s at most) until exactly `count` requests are held; the held requests.
    JSONValue::Array waitForHeld(std::size_t count) const {
        JSONValue::Array held;
        for (auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
             std::chrono::steady_clock::now() < deadline;
             std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
            held = *listing("pending").arrayValue();
            if (held.size() == count)
                return held;
        }
        ADD_FAILURE() << "expected " << count << " held requests, have " << held.size();
        return held;
    }

    /// The texts of the session's timeline, oldest first.
    std::vector<std::string> timeline(const std::string& sessionId) const {
        std::vector<std::string> texts;
        const JSONValue sessions = listing("sessions");
        for (const JSONValue& session : *sessions.arrayValue())
            if (*session.get("key")->get("sessionId") == JSONValue(sessionId))
                for (const JSONValue& item : *session.get("timeline")->arrayValue())
                    texts.push_back(*item.get("text")->stringValue());
        return texts;
    }

    /// Makes tidewick-hook append a record of every call (agent, event, payload) to a
    /// log beside the socket, from its next call on.
    void recordHookCalls() const {
        File::makeDirectories(socketFolder(), 0700);
        File::writeAtomically(File::join(socketFolder(), "debug-hooks"), "", 0600);
    }
    /// The records of tidewick-hook's calls for `event` (every event when empty), oldest
    /// first; none when the hook never ran since recordHookCalls().
    [[nodiscard]] std::vector<JSONValue> hookCalls(std::string_view event = {}) const {
        std::vector<JSONValue> calls;
        const std::string log = File::join(socketFolder(), "hook-debug.jsonl");
        if (!File::exists(log))
            return calls;
        std::istringstream lines(File::read(log));
        for (std::string line; std::getline(lines, line);) {
            JSONValue record = JSONValue::parse(line);
            const JSONValue* name = record.get("event");
            if (event.empty() || (name && *name == JSONValue(std::string(event))))
                calls.push_back(std::move(record));
        }
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
        for (int i = 0; i < 500 && !File::exists(path); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return File::exists(path) ? File::read(path) : "";
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
