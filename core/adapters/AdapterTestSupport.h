// Row tables for the adapter tests: each row lays its members over a base
// payload and fixes the event the adapter reports or the answer it prints.
#pragma once

#include "events/AgentAdapter.h"

#include <gtest/gtest.h>

#include <span>
#include <vector>

namespace tidewick::testing {

// The tables name event kinds and holds unqualified.
using enum EventKind;
using enum HoldKind;
using MaybeText = std::optional<std::string>;
using Decisions = std::vector<std::optional<Decision>>;

/// `extra`'s members laid over `base`'s (both JSON object texts).
inline Payload payload(std::string_view base, std::string_view extra = "{}") {
    JSONValue object = JSONValue::parse(base);
    const JSONValue overlay = JSONValue::parse(extra); // outlives the loop
    for (const auto& [key, value] : *overlay.objectPairs())
        object.set(key, value);
    return Payload(std::move(object));
}

/// {"tool_name":<name>,"tool_input":<input JSON text>}: a Claude-style or Cursor tool call.
inline std::string call(std::string_view name, std::string_view input) {
    return R"({"tool_name":)" + JSONValue::quote(name) + R"(,"tool_input":)" + std::string(input) +
           "}";
}

/// One row of a parse table; `{}` for an absent text.
struct Row {
    std::string event, extra; // extra: the members laid over the base payload
    EventKind kind;
    MaybeText title, detail, toolName;
    HoldKind hold;
};

/// What every event parsed from one base payload carries.
struct Common {
    std::string sessionId;
    MaybeText projectPath, transcriptPath, model;
};

/// Checks what `adapter` reports for `event` and `payload` against the row (its `extra` unused):
/// a decision is wanted exactly when the event is held, and it was received just now.
inline void expectEvent(const AgentAdapter& adapter, const Payload& payload, const Row& row,
                        const Common& common) {
    Date before = now();
    auto parsed = adapter.parse(row.event, payload);
    ASSERT_TRUE(parsed);
    const AgentEvent& event = parsed->event;
    EXPECT_EQ(rawValue(event.kind), rawValue(row.kind)); // readable when it fails
    EXPECT_EQ(event.title, row.title);
    EXPECT_EQ(event.detail, row.detail);
    EXPECT_EQ(event.toolName, row.toolName);
    EXPECT_EQ(parsed->hold, row.hold);
    EXPECT_EQ(event.needsDecision, row.hold != none);
    EXPECT_EQ(rawValue(event.decisionType), row.hold == permission ? "permission"
                                            : row.hold == reply    ? "reply"
                                                                   : "none");
    EXPECT_EQ(event.agent, adapter.kind());
    EXPECT_EQ(event.hookEvent, row.event);
    EXPECT_EQ(event.sessionId, common.sessionId);
    EXPECT_EQ(event.projectPath, common.projectPath);
    EXPECT_EQ(event.transcriptPath, common.transcriptPath);
    EXPECT_EQ(event.model, common.model);
    EXPECT_GE(event.receivedAt, before);
    EXPECT_LE(event.receivedAt, now());
}

/// Checks every row with its `extra` laid over `base`.
inline void expectRows(const AgentAdapter& adapter, std::string_view base, const Common& common,
                       std::span<const Row> rows) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.event + " " + row.extra);
        expectEvent(adapter, payload(base, row.extra), row, common);
    }
}

/// One row of an output table: the event parsed from `extra` over the base payload makes the
/// adapter print `printed`, with exit code 0, for each of the decisions.
struct Answer {
    const char* event;
    std::string extra;
    Decisions decisions;
    std::string printed;
};

inline void expectAnswers(const AgentAdapter& adapter, std::string_view base,
                          std::span<const Answer> answers) {
    for (const Answer& answer : answers) {
        auto parsed = adapter.parse(answer.event, payload(base, answer.extra));
        ASSERT_TRUE(parsed) << answer.event << " " << answer.extra;
        for (size_t i = 0; i < answer.decisions.size(); ++i)
            EXPECT_EQ(adapter.output(*parsed, answer.decisions[i]), (HookOutput{answer.printed, 0}))
                << answer.event << " " << answer.extra << " decision #" << i;
    }
}

/// Every kind of decision, and none; then those that leave a permission or a turn end unanswered.
inline const Decisions everyDecision = {Decision::allow(),    Decision::deny("no"),
                                        Decision::reply("x"), Decision::letStop(),
                                        Decision::timeout(),  std::nullopt};
inline const Decisions withoutVerdict(everyDecision.begin() + 2, everyDecision.end());
inline const Decisions withoutReply = {Decision::allow(), Decision::deny("no"), Decision::letStop(),
                                       Decision::timeout(), std::nullopt};

} // namespace tidewick::testing
