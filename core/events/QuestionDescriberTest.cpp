#include "events/QuestionDescriber.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

std::optional<AgentQuestion> ask(const char* tool, std::string_view input) {
    JSONValue value = JSONValue::parse(input);
    return QuestionDescriber::question(std::string(tool), &value);
}

TEST(QuestionDescriber, RecognisesQuestionAndPermissionToolsIgnoringCase) {
    using namespace QuestionDescriber;
    for (const char* name :
         {"AskUserQuestion", "request_user_input", "REQUEST_USER_INPUT_ASYNC", "AskQuestion",
          "ask_question", "request_permissions", "Ask_Permission"})
        EXPECT_TRUE(isQuestionTool(std::string(name))) << name;
    EXPECT_TRUE(isPermissionTool(std::string("Request_Permissions")));
    EXPECT_FALSE(isPermissionTool(std::string("AskUserQuestion")));
    EXPECT_FALSE(isQuestionTool(std::string("Bash")));
    EXPECT_FALSE(isQuestionTool(std::nullopt));
    EXPECT_FALSE(isPermissionTool(std::nullopt));
}

TEST(QuestionDescriber, AsDictAcceptsObjectsAndJSONTextHoldingOne) {
    using QuestionDescriber::asDict;
    JSONValue object = JSONValue::parse(R"({"a":1})");
    EXPECT_EQ(asDict(&object), object);
    JSONValue text(R"({"a":1})");
    EXPECT_EQ(asDict(&text), object);
    for (const char* other : {R"("[1,2]")", R"("{not json")", R"("")", "[]", "3", "null"}) {
        JSONValue value = JSONValue::parse(other);
        EXPECT_EQ(asDict(&value), std::nullopt) << other;
    }
    EXPECT_EQ(asDict(nullptr), std::nullopt);
}

TEST(QuestionDescriber, UnwrapsGenericToolsThatNameAQuestionTool) {
    using QuestionDescriber::unwrap;
    JSONValue wrapped = JSONValue::parse(
        R"({"tool_name":"ask_question","arguments":{"question":"Go?"},"args":{"question":"No"}})");
    auto call = unwrap(std::string("mcp_call"), &wrapped);
    EXPECT_EQ(call.tool, "ask_question");
    EXPECT_EQ(call.input, JSONValue::parse(R"({"question":"Go?"})"));
    EXPECT_EQ(ask("mcp_call", wrapped.compact())->text, "Go?");

    // Keys are tried in order, and only a key naming a question tool counts.
    JSONValue both = JSONValue::parse(
        R"({"toolName":"Bash","name":"AskUserQuestion","parameters":{"text":"Pick"}})");
    call = unwrap(std::string("invoke"), &both);
    EXPECT_EQ(call.tool, "AskUserQuestion");
    EXPECT_EQ(call.input, JSONValue::parse(R"({"text":"Pick"})"));

    JSONValue noArguments = JSONValue::parse(R"({"name":"ask_permission"})");
    EXPECT_EQ(unwrap(std::string("invoke"), &noArguments).input, std::nullopt);
    EXPECT_EQ(ask("invoke", noArguments.compact())->text, "Wants more permission");

    JSONValue plain = JSONValue::parse(R"({"name":"deploy"})");
    EXPECT_EQ(unwrap(std::string("invoke"), &plain),
              (QuestionDescriber::UnwrappedCall{"invoke", plain}));
    EXPECT_EQ(unwrap(std::string("AskQuestion"), &wrapped),
              (QuestionDescriber::UnwrappedCall{"AskQuestion", wrapped}));
    EXPECT_EQ(unwrap(std::nullopt, nullptr), (QuestionDescriber::UnwrappedCall{}));
}

TEST(QuestionDescriber, ExtractsTheFirstQuestionWithItsOptions) {
    auto question = ask("AskUserQuestion", R"({"questions":[
        {"question":"  Which?  ","header":"DB","options":[{"label":"A","description":"x"},"B",3,{"d":1}]},
        {"question":"Second?"}]})");
    ASSERT_TRUE(question);
    EXPECT_EQ(*question, (AgentQuestion{"Which?", {"A", "B"}}));
    EXPECT_EQ(question->recordText(), "Which?\n\u2022 A\n\u2022 B");

    // Options fall back to "choices"; objects give label, else title, text, value.
    EXPECT_EQ(*ask("ask_question",
                   R"({"prompt":"Pick","choices":[{"value":"v"},{"title":"t","text":"x"}]})"),
              (AgentQuestion{"Pick", {"v", "t"}}));
    // A blank question gives way to the next key; "questions" that are not all objects are ignored.
    EXPECT_EQ(ask("AskQuestion", R"({"question":" ","header":"Deploy?","questions":[1]})")->text,
              "Deploy?");
    EXPECT_EQ(ask("AskQuestion", R"({"question":"  ","options":["a"]})"), std::nullopt);
    EXPECT_EQ(ask("AskQuestion", R"("not an object")"), std::nullopt);
    EXPECT_EQ(ask("Bash", R"({"question":"Why?"})"), std::nullopt);
}

TEST(QuestionDescriber, PermissionRequestsExplainWhatIsWanted) {
    EXPECT_EQ(*ask("request_permissions", R"({"reason":"","justification":"Needs network"})"),
              (AgentQuestion{"Needs network", {}}));
    EXPECT_EQ(ask("request_permissions", R"({"action":"deploy","options":["x"]})")->text,
              "Wants permission for deploy");
    EXPECT_EQ(ask("ask_permission", R"({"Target":"prod","action":"deploy"})")->text,
              "Wants permission for prod");
    EXPECT_EQ(ask("request_permissions", "{}")->text, "Wants more permission");
    EXPECT_EQ(ask("request_permissions", "7")->text, "Wants more permission");
}

TEST(AgentQuestion, RecordTextRoundTrips) {
    AgentQuestion question{"Which one?\n\nThink first.", {"A", "", "B c"}};
    EXPECT_EQ(AgentQuestion::fromRecord(question.recordText()), question);
    EXPECT_EQ(AgentQuestion::fromRecord("Plain"), (AgentQuestion{"Plain", {}}));
    EXPECT_EQ(AgentQuestion::fromRecord("\n\u2022 only\n  \n"), (AgentQuestion{"", {"only"}}));
    EXPECT_EQ(AgentQuestion{}.recordText(), "");
}

} // namespace
} // namespace tidewick
