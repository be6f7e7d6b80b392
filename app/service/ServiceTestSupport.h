// Helpers shared by the service tests: a scratch home, a clock moved by hand,
// agents' payloads as the hook command forwards them, and a bounded wait.
#pragma once

#include "foundation/Clock.h"
#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "wire/HookRequest.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace tidewick::testing {

/// A fresh directory under /tmp, removed with its content at the end. Short, so the
/// socket under it stays within the address limit.
class TemporaryHome {
public:
    TemporaryHome() {
        std::string pattern = "/tmp/tw-svc-XXXXXX";
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~TemporaryHome() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryHome(const TemporaryHome&) = delete;
    TemporaryHome& operator=(const TemporaryHome&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

/// A clock that stands still until advanced; safe to read from any thread.
class ManualClock {
public:
    explicit ManualClock(double seconds = 1'800'000'000) : seconds_(seconds) {}
    void advance(double seconds) { seconds_ = seconds_.load() + seconds; }
    [[nodiscard]] Date now() const { return dateFromSeconds(seconds_.load()); }
    [[nodiscard]] Clock clock() const {
        return [this] { return now(); };
    }

private:
    std::atomic<double> seconds_;
};

/// Polls `condition` every few milliseconds until it holds; false after `limitSeconds`.
/// The limit is a generous bound for a test that would otherwise hang, never a timing check.
inline bool eventually(const std::function<bool()>& condition, double limitSeconds = 10) {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(limitSeconds));
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

/// The session of the recorded Claude Code payloads.
inline constexpr std::string_view claudeSession = "d4e23369-98ea-4e04-8cd7-5fb639c89c36";
/// The command of the recorded Claude Code permission request.
inline constexpr std::string_view recordedCommand = "rm -rf build && echo removed-ok";

/// `extra`'s members laid over the fields every recorded Claude Code payload carries.
inline JSONValue claudePayload(std::string_view event, std::string_view extra = "{}") {
    JSONValue object = JSONValue::parse(
        R"({"session_id":"d4e23369-98ea-4e04-8cd7-5fb639c89c36",)"
        R"("transcript_path":"/home/dev/.claude/projects/-home-dev-proj/d4e23369-98ea-4e04-8cd7-5fb639c89c36.jsonl",)"
        R"("cwd":"/home/dev/proj","prompt_id":"3023a310-581d-4efb-a787-06cb5f681cb7",)"
        R"("permission_mode":"default","effort":{"level":"medium"}})");
    object.set("hook_event_name", std::string(event));
    const JSONValue overlay = JSONValue::parse(extra);
    for (const auto& [key, value] : *overlay.objectPairs())
        object.set(key, value);
    return object;
}

/// A request as the hook command sends it for Claude Code's `event`.
inline HookRequest claudeRequest(std::string_view event, std::string_view extra = "{}") {
    HookRequest request;
    request.agent = "claude";
    request.event = std::string(event);
    request.payload = claudePayload(event, extra);
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
                         R"({"stop_hook_active":false,"last_assistant_message":"All done.",)"
                         R"("background_tasks":[],"session_crons":[]})");
}

/// Cursor's request to run `command` in conversation `conversation`.
inline HookRequest cursorShell(std::string_view command, std::string_view conversation = "c-1") {
    HookRequest request;
    request.agent = "cursor";
    request.event = "beforeShellExecution";
    JSONValue payload = JSONValue::parse(
        R"({"hook_event_name":"beforeShellExecution","workspace_roots":["/w"],"cwd":"/w"})");
    payload.set("conversation_id", std::string(conversation));
    payload.set("command", std::string(command));
    request.payload = std::move(payload);
    request.pid = 77;
    return request;
}

} // namespace tidewick::testing
