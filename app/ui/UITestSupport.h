// Helpers shared by the terminal UI tests: sessions and held requests at a fixed
// moment, a stand-in for the service and the application that records what the keys
// asked for, and a session list driven by typed keys.
#pragma once

#include "DisplayText.h"
#include "Layout.h"
#include "ScreenController.h"
#include "service/ApplicationControls.h"
#include "service/SessionActions.h"

#include <gtest/gtest.h>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace tidewick::testing {

/// The moment every UI test starts from.
inline const Date t0 = dateFromSeconds(1'800'000'000);

/// A working session of `agent` in /home/ana/src/`id`, last active `lastActivity` s after t0.
inline Session makeSession(std::string id, double lastActivity = 0,
                           AgentKind agent = AgentKind::claude) {
    Session session;
    session.key = {agent, std::move(id)};
    session.status = SessionStatus::working;
    session.startedAt = t0;
    session.lastActivityAt = addSeconds(t0, lastActivity);
    session.projectPath = "/home/ana/src/" + session.key.sessionId;
    return session;
}

/// A request of `kind` made `createdAt` s after t0 whose deadline is `timeout` s later.
inline PendingRequest heldRequest(PendingKind kind, std::string title,
                                  std::optional<std::string> detail = std::nullopt,
                                  double createdAt = 0, double timeout = 300) {
    PendingRequest request;
    request.id = UUID::random();
    request.kind = kind;
    request.title = std::move(title);
    request.detail = std::move(detail);
    request.createdAt = addSeconds(t0, createdAt);
    request.deadline = addSeconds(request.createdAt, timeout);
    return request;
}

/// `session` with `request` held, its status saying what it waits for.
inline Session holding(Session session, PendingRequest request) {
    session.status = request.kind == PendingKind::permission ? SessionStatus::needsPermission
                                                             : SessionStatus::waitingReply;
    session.pending.push_back(std::move(request));
    return session;
}

/// One decision handed on by the UI.
struct UICall {
    std::string what;
    SessionKey session;
    std::optional<std::string> text;
    friend bool operator==(const UICall&, const UICall&) = default;
};

/// The key of Claude Code's session `id`.
inline SessionKey claude(std::string id) {
    return {AgentKind::claude, std::move(id)};
}

/// Records every decision, pause, setting and forgetting; each decision is delivered while
/// `delivered` is true, each control answers `result`.
class RecordingActions : public SessionActions, public ApplicationControls {
public:
    std::vector<Session> sessions() const override { return {}; }
    std::vector<HeldRequest> pendingRequests() const override { return {}; }
    bool answerPermission(const SessionKey& session, SessionActions::Answer answer,
                          std::optional<std::string> message) override {
        return record({answer == Answer::allow ? "allow" : "deny", session, std::move(message)});
    }
    Delivery allowAlways(const SessionKey& session, std::optional<std::string> rule) override {
        return delivery({"allowAlways", session, std::move(rule)});
    }
    Delivery answerQuestions(const SessionKey& session, std::vector<std::string> answers) override {
        std::string joined;
        for (const std::string& answer : answers)
            joined += (joined.empty() ? "" : "|") + answer;
        return delivery({"answer", session, joined});
    }
    bool reply(const SessionKey& session, std::string text) override {
        return record({"reply", session, std::move(text)});
    }
    bool letStop(const SessionKey& session) override { return record({"letStop", session, {}}); }
    Result continueSession(const SessionKey& session, std::string text) override {
        return {record({"continue", session, std::move(text)}), "continue said"};
    }
    Result endSession(const SessionKey& session) override {
        return {record({"end", session, {}}), "end said"};
    }

    ControlResult pause(std::optional<Date> until) override {
        return control({"pause", {}, until ? std::optional("until") : std::nullopt});
    }
    ControlResult resume() override { return control({"resume", {}, std::nullopt}); }
    ControlResult changeSetting(const std::string& name, const std::string& value,
                                SettingCatalog::Change) override {
        return control({"setting", {}, name + "=" + value});
    }
    ControlResult forget(const SessionKey& session) override {
        return control({"forget", session, std::nullopt});
    }
    ControlResult forgetAll() override { return control({"forgetAll", {}, std::nullopt}); }

    std::vector<UICall> calls;
    bool delivered = true;
    ControlResult result = ControlResult::done("Done.");

private:
    bool record(UICall call) {
        calls.push_back(std::move(call));
        return delivered;
    }
    Delivery delivery(UICall call) {
        return {record(std::move(call)) ? Delivery::Kind::delivered : Delivery::Kind::nothingHeld,
                "done"};
    }
    ControlResult control(UICall call) {
        calls.push_back(std::move(call));
        return result;
    }
};

// Special keys written among typed characters, as code points of the private-use area.
inline constexpr char32_t up = 0xE000, down = 0xE001, pageUp = 0xE002, pageDown = 0xE003,
                          home = 0xE004, end = 0xE005, enter = 0xE006, escape = 0xE007,
                          backspace = 0xE008, tab = 0xE009;

/// Typed text and special keys one after another, e.g. keys(U"go on", enter). Built a key at
/// a time: GCC 12 at -O2 takes std::u32string's operator+ for a buffer overflow.
template <typename... Parts> std::u32string keys(const Parts&... parts) {
    std::u32string all;
    const auto add = [&all]<typename Part>(const Part& part) {
        if constexpr (std::is_convertible_v<Part, char32_t>)
            all.push_back(part);
        else
            for (char32_t c : std::u32string_view(part))
                all.push_back(c);
    };
    (add(parts), ...);
    return all;
}

/// The key `c` stands for: one of the special keys above, else the typed character.
inline Key keyOf(char32_t c) {
    constexpr Key::Kind specials[] = {
        Key::Kind::up,  Key::Kind::down,  Key::Kind::pageUp, Key::Kind::pageDown,  Key::Kind::home,
        Key::Kind::end, Key::Kind::enter, Key::Kind::escape, Key::Kind::backspace, Key::Kind::tab};
    return c >= up && c <= tab ? Key::special(specials[c - up]) : Key::of(c);
}

/// A session list over recording actions, driven by typed keys at t0.
class UITest : public ::testing::Test {
protected:
    ScreenController::Outcome press(char32_t c) { return controller.handleKey(keyOf(c), t0); }
    /// Presses each of `keys`: typed text and the special keys above alike.
    void type(std::u32string_view keys) {
        for (char32_t c : keys)
            (void)press(c);
    }
    void type(std::initializer_list<char32_t> keys) {
        type(std::u32string_view(keys.begin(), keys.size()));
    }
    /// The message shown at t0; empty when none is.
    std::string message() {
        auto shown = controller.message(t0);
        return shown ? shown->text : "";
    }
    std::string selectedId() { return controller.selected()->key.sessionId; }
    /// The screen drawn at `now` on a terminal of `width` × `height`.
    Frame screen(int width = 80, int height = 24, Date now = t0, LayoutOptions options = {}) {
        return layoutScreen(controller, now, width, height, options);
    }

    RecordingActions actions;
    ScreenController controller{actions};
};

/// Fails unless `frame` has `height` lines each exactly `width` columns wide.
inline void expectExactSize(const Frame& frame, int width, int height) {
    ASSERT_EQ(static_cast<int>(frame.lines.size()), height);
    for (int row = 0; row < height; ++row)
        EXPECT_EQ(DisplayText::width(frame.text(row)), width)
            << "row " << row << ": " << frame.text(row);
}

/// Whether `text` holds `part`.
inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// Fails for each of `parts` that `text` does not hold, showing the text.
inline void expectShows(const std::string& text, std::initializer_list<std::string> parts) {
    for (const std::string& part : parts)
        EXPECT_TRUE(contains(text, part)) << part << " is not in:\n" << text;
}

} // namespace tidewick::testing
