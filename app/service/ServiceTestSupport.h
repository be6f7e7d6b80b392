// Helpers shared by the service tests: a clock moved by hand, agents' payloads as the
// hook command forwards them, a file's lines and a fixture's questions.
#pragma once

#include "foundation/Clock.h"
#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "service/TidewickService.h"
#include "testing/Eventually.h"
#include "testing/TemporaryDirectory.h"
#include "wire/HookRequest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick::testing {

/// A clock that stands still until advanced; safe to read from any thread.
class ManualClock {
public:
    void advance(double seconds) { seconds_ = seconds_.load() + seconds; }
    [[nodiscard]] Date now() const { return dateFromSeconds(seconds_.load()); }
    [[nodiscard]] Clock clock() const {
        return [this] { return now(); };
    }

private:
    std::atomic<double> seconds_{1'800'000'000};
};

/// The complete lines of the file at `path`; none when it does not exist.
inline std::vector<std::string> fileLines(const std::string& path) {
    std::vector<std::string> found;
    const std::string text = File::exists(path) ? File::read(path) : std::string();
    for (std::size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1)
        found.push_back(text.substr(start, end - start));
    return found;
}

/// The session of the recorded Claude Code payloads.
inline constexpr std::string_view claudeSession = "d4e23369-98ea-4e04-8cd7-5fb639c89c36";
/// Its key.
inline const SessionKey claudeKey{AgentKind::claude, std::string(claudeSession)};
/// The command of the recorded Claude Code permission request.
inline constexpr std::string_view recordedCommand = "rm -rf build && echo removed-ok";

/// A request as the hook command sends it for Claude Code's `event`: `extra`'s members
/// laid over the fields every recorded payload carries.
inline HookRequest claudeRequest(std::string_view event, std::string_view extra = "{}") {
    HookRequest request;
    request.agent = "claude";
    request.event = std::string(event);
    request.payload = JSONValue::parse(
        R"({"session_id":"d4e23369-98ea-4e04-8cd7-5fb639c89c36",)"
        R"("transcript_path":"/home/dev/.claude/projects/-home-dev-proj/d4e23369.jsonl",)"
        R"("cwd":"/home/dev/proj","permission_mode":"default"})");
    request.payload.set("hook_event_name", std::string(event));
    const JSONValue overlay = JSONValue::parse(extra);
    for (const auto& [key, value] : *overlay.objectPairs())
        request.payload.set(key, value);
    request.pid = 4242;
    request.host = "com.apple.Terminal";
    request.agentPid = 4200;
    return request;
}

/// The recorded Claude Code permission request for a Bash command.
inline HookRequest claudePermission(std::string_view command = recordedCommand) {
    return claudeRequest(
        "PermissionRequest",
        R"({"tool_name":"Bash","permission_suggestions":[],"tool_input":{"command":)" +
            JSONValue::quote(command) + R"(,"description":"Run a command"}})");
}

/// The recorded Claude Code end of turn.
inline HookRequest claudeStop() {
    return claudeRequest("Stop",
                         R"({"stop_hook_active":false,"last_assistant_message":"All done."})");
}

/// Cursor's request to run `command` in conversation `conversation`.
inline HookRequest cursorShell(std::string_view command, std::string_view conversation = "c-1") {
    HookRequest request;
    request.agent = "cursor";
    request.event = "beforeShellExecution";
    request.payload = JSONValue::parse(
        R"({"hook_event_name":"beforeShellExecution","workspace_roots":["/w"],"cwd":"/w"})");
    request.payload.set("conversation_id", std::string(conversation));
    request.payload.set("command", std::string(command));
    request.pid = 77;
    return request;
}

/// Cursor's report that the agent stopped on an error in conversation `conversation`.
inline HookRequest cursorError(const std::string& conversation) {
    HookRequest request = cursorShell("", conversation);
    request.event = "stop";
    request.payload = JSONValue::parse(R"({"hook_event_name":"stop","status":"error",)"
                                       R"("workspace_roots":["/w"]})");
    request.payload.set("conversation_id", conversation);
    return request;
}

/// A service on a temporary home and a clock moved by hand, which each fixture makes with
/// its own options, and what the tests ask of it. A fixture's destructor ends the service
/// before the members its handlers use.
class ServiceFixture : public ::testing::Test {
protected:
    /// Handles `request` on the test's thread, as for a hook command that stays.
    HookOutput handleNow(const HookRequest& request) {
        return service->handle(request, [] { return false; }).output;
    }
    /// Runs handle() on a thread of its own, as a connection would, for a hook that stays.
    std::future<HookResponse> handleAsync(HookRequest request) {
        return std::async(std::launch::async, [this, request = std::move(request)] {
            return service->handle(request, [] { return false; });
        });
    }
    /// Whether `count` requests come to be held, within the bounded wait.
    bool pendingCountIs(std::size_t count) {
        return eventually([&] { return service->pendingRequests().size() == count; });
    }
    /// The session `key`; a test failure and an empty session when there is none.
    Session session(const SessionKey& key = claudeKey) {
        for (Session& found : service->sessions())
            if (found.key == key)
                return found;
        ADD_FAILURE() << "no session " << key.sessionId;
        return {};
    }
    /// Whether session `key`'s timeline holds an item saying `text`.
    bool inTimeline(const SessionKey& key, const std::string& text) {
        const Timeline timeline = session(key).timeline;
        return std::ranges::any_of(timeline, [&](const auto& item) { return item.text == text; });
    }

    TemporaryDirectory home;
    TidewickPaths paths{home.path()};
    ManualClock clock;
    std::unique_ptr<TidewickService> service;
};

} // namespace tidewick::testing
