// Helpers shared by the adapter tests: payloads from JSON text and a compact
// check of the fields that every row of an adapter's table fixes.
#pragma once

#include "events/AgentAdapter.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace tidewick::testing {

using MaybeText = std::optional<std::string>;

/// `extra`'s members laid over `base`'s (both JSON object texts).
inline Payload payload(std::string_view base, std::string_view extra = "{}") {
    JSONValue object = JSONValue::parse(base);
    const JSONValue overlay = JSONValue::parse(extra);
    for (const auto& [key, value] : *overlay.objectPairs())
        object.set(key, value);
    return Payload(std::move(object));
}

/// One row of an adapter's parse table.
struct Row {
    std::string event;
    std::string extra;
    EventKind kind;
    MaybeText title;
    MaybeText detail;
    MaybeText toolName;
    HoldKind hold;
};

/// Checks the row's own fields for `payload` (the row's `extra` is not used),
/// and that a decision is wanted exactly when the event is held.
inline void expectRow(const AgentAdapter& adapter, const Payload& payload, const Row& row) {
    Date before = now();
    auto parsed = adapter.parse(row.event, payload);
    ASSERT_TRUE(parsed);
    const AgentEvent& event = parsed->event;
    EXPECT_EQ(rawValue(event.kind), rawValue(row.kind));
    EXPECT_EQ(event.title, row.title);
    EXPECT_EQ(event.detail, row.detail);
    EXPECT_EQ(event.toolName, row.toolName);
    EXPECT_EQ(parsed->hold, row.hold);
    EXPECT_EQ(event.needsDecision, row.hold != HoldKind::none);
    DecisionType wanted = row.hold == HoldKind::permission ? DecisionType::permission
                          : row.hold == HoldKind::reply    ? DecisionType::reply
                                                           : DecisionType::none;
    EXPECT_EQ(event.decisionType, wanted);
    EXPECT_EQ(event.agent, adapter.kind());
    EXPECT_EQ(event.hookEvent, row.event);
    EXPECT_GE(event.receivedAt, before);
    EXPECT_LE(event.receivedAt, now());
}

/// Checks the row for its `extra` members laid over `base`.
inline void expectRow(const AgentAdapter& adapter, std::string_view base, const Row& row) {
    SCOPED_TRACE(row.event + " " + row.extra);
    expectRow(adapter, payload(base, row.extra), row);
}

/// What `adapter` prints for an event parsed from `extra` over `base` and `decision`.
inline std::string printed(const AgentAdapter& adapter, std::string_view event,
                           std::string_view base, std::string_view extra,
                           const std::optional<Decision>& decision) {
    auto parsed = adapter.parse(event, payload(base, extra));
    if (!parsed)
        return "<ignored>";
    HookOutput output = adapter.output(*parsed, decision);
    EXPECT_EQ(output.exitCode, 0);
    return output.stdoutText;
}

} // namespace tidewick::testing
