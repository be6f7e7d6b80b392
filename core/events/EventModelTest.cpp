#include "events/AgentKind.h"
#include "events/Payload.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(EventModel, AgentKindsRoundTripTheirRawValues) {
    for (AgentKind kind : allAgentKinds)
        EXPECT_EQ(fromRaw<AgentKind>(rawValue(kind)), kind);
    EXPECT_EQ(fromRaw<AgentKind>("claude-code"), std::nullopt);
    EXPECT_EQ(fromRaw<AgentKind>("Claude"), std::nullopt);
}

TEST(EventModel, PayloadLookupsTreatMistypedValuesAsAbsent) {
    Payload payload(JSONValue::parse(
        R"({"empty":"","five":5,"yes":true,"text":"t","list":[1],"dict":{"a":1},"half":1.5})"));
    EXPECT_EQ(payload.string("empty"), std::nullopt);
    EXPECT_EQ(payload.string("five"), std::nullopt);
    EXPECT_EQ(payload.integer("five"), 5);
    EXPECT_EQ(payload.integer("text"), std::nullopt);
    EXPECT_EQ(payload.boolean("yes"), true);
    EXPECT_EQ(payload.boolean("five"), std::nullopt);
    EXPECT_EQ(payload.dict("list"), nullptr);
    EXPECT_NE(payload.dict("dict"), nullptr);
    EXPECT_EQ(payload.array("dict"), nullptr);
    EXPECT_EQ(payload.array("list")->size(), 1u);
    EXPECT_EQ(payload.string("missing"), std::nullopt);
    // Anything but an object counts as an empty payload.
    EXPECT_EQ(Payload(JSONValue::parse("[1]")).raw(), JSONValue(JSONValue::Object{}));
}

} // namespace
} // namespace tidewick
