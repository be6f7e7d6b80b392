#include "events/QuestionDescriber.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using namespace QuestionDescriber;

TEST(QuestionDescriber, AsDictAcceptsObjectsAndJSONTextHoldingOne) {
    JSONValue object = JSONValue::parse(R"({"a":1})");
    JSONValue text(R"({"a":1})");
    EXPECT_EQ(asDict(&object), object);
    EXPECT_EQ(asDict(&text), object);
    for (const char* other : {R"("[1,2]")", R"("{not json")", R"("")", "[]", "3", "null"}) {
        JSONValue value = JSONValue::parse(other);
        EXPECT_EQ(asDict(&value), std::nullopt) << other;
    }
    EXPECT_EQ(asDict(nullptr), std::nullopt);
}

TEST(QuestionDescriber, ExtractsTheQuestionOrWhatPermissionIsWanted) {
    using Q = AgentQuestion;
    const char* several = R"({"questions":[{"question":"  Which?  ","header":"DB",
        "options":[{"label":"A","description":"x"},"B",3,{"d":1}]},{"question":"Second?"}]})";
    const std::optional<Q> none;
    // Tool names are recognised whatever their case. Option objects give label, else title,
    // text, value; a blank question gives way to the next key; "questions" that are not all
    // objects are ignored.
    // clang-format off
    const std::tuple<const char*, const char*, std::optional<Q>> rows[] = {
        {"AskUserQuestion", several, Q{"Which?", {"A", "B"}}},
        {"REQUEST_USER_INPUT_ASYNC", R"({"prompt":"Pick","choices":[{"value":"v"},{"title":"t","text":"x"}]})", Q{"Pick", {"v", "t"}}},
        {"request_user_input", R"({"question":" ","header":"Deploy?","questions":[1]})", Q{"Deploy?", {}}},
        {"AskQuestion", R"({"question":"  ","options":["a"]})", none},
        {"AskQuestion", R"("not an object")", none},
        {"Bash", R"({"question":"Why?"})", none},
        // A generic tool naming a question tool is unwrapped: the first key that names one
        // counts, and its arguments are looked for under several names, in order.
        {"mcp_call", R"({"tool_name":"ask_question","arguments":{"question":"Go?"},"args":{"question":"No"}})", Q{"Go?", {}}},
        {"invoke", R"({"toolName":"Bash","name":"AskUserQuestion","parameters":{"text":"Pick"}})", Q{"Pick", {}}},
        {"invoke", R"({"name":"ask_permission"})", Q{"Wants more permission", {}}},
        {"invoke", R"({"name":"deploy","question":"Go?"})", none},
        {"AskQuestion", R"({"tool_name":"ask_question","arguments":{"question":"Go?"},"question":"Here?"})", Q{"Here?", {}}},
        {"request_permissions", R"({"reason":"","justification":"Needs network"})", Q{"Needs network", {}}},
        {"request_permissions", R"({"action":"deploy","options":["x"]})", Q{"Wants permission for deploy", {}}},
        {"Ask_Permission", R"({"Target":"prod","action":"deploy"})", Q{"Wants permission for prod", {}}},
        {"Request_Permissions", "7", Q{"Wants more permission", {}}},
    };
    // clang-format on
    for (const auto& [tool, input, expected] : rows) {
        JSONValue value = JSONValue::parse(input);
        EXPECT_EQ(question(std::string(tool), &value), expected) << tool << " " << input;
    }
    EXPECT_EQ(question(std::nullopt, nullptr), none);
}

TEST(AgentQuestion, RecordTextRoundTrips) {
    AgentQuestion question{"Which one?\n\nThink first.", {"A", "", "B c"}};
    EXPECT_EQ((AgentQuestion{"Which?", {"A", "B"}}).recordText(), "Which?\n\u2022 A\n\u2022 B");
    EXPECT_EQ(AgentQuestion::fromRecord(question.recordText()), question);
    EXPECT_EQ(AgentQuestion::fromRecord("Plain"), (AgentQuestion{"Plain", {}}));
    EXPECT_EQ(AgentQuestion::fromRecord("\n\u2022 only\n  \n"), (AgentQuestion{"", {"only"}}));
}

} // namespace
} // namespace tidewick
