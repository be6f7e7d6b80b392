#include "events/AskedQuestion.h"
#include "events/PermissionUpdates.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

const JSONValue questionsInput = JSONValue::parse(R"({"questions":[
    {"question":" Which colour? ","header":"Colour","multiSelect":false,"options":[{"label":"Red","description":"Warm"},{"label":"Blue"},{"description":"no label"}]},
    {"question":"Which features?","multiSelect":true,"options":[{"label":"Search"},{"label":"Sync"}],"preview":"kept"},
    {"question":"   "}, 7, {"header":"no question"}]})");

TEST(AskedQuestion, ReadsTheQuestionsAndBuildsTheAnswersTheAgentExpects) {
    const std::vector<AskedQuestion> questions = AskedQuestions::from(&questionsInput);
    ASSERT_EQ(questions.size(), 2u);
    EXPECT_EQ(questions[0], (AskedQuestion{"Which colour?", "Colour", {{"Red", "Warm"}, {"Blue", {}}}, false}));
    EXPECT_EQ(questions[1].header, std::nullopt);
    EXPECT_EQ(AskedQuestions::recordText(questions),
              "Which colour?\n\u2022 Red\n\u2022 Blue\n\nWhich features?\n\u2022 Search\n\u2022 Sync");
    EXPECT_TRUE(AskedQuestions::from(nullptr).empty());
    EXPECT_TRUE(AskedQuestions::from(&questionsInput.get("questions")->arrayValue()->at(3)).empty());

    struct Case { size_t question; const char* given; const char* sent; };
    const Case cases[] = {
        {0, "Blue", "Blue"},
        {0, " blue ", "Blue"},                   // a label, whatever the case and spacing
        {0, "Green, please", "Green, please"},   // the user's own words
        {0, "Red, Blue", "Red, Blue"},           // one choice only: taken as words
        {1, "sync,SEARCH", "Sync, Search"},      // several labels for a multi-select question
        {1, "Search, Maps", "Search, Maps"},     // not all labels: the user's words
        {1, "  ", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.given);
        EXPECT_EQ(questions[c.question].answerFor(c.given), c.sent);
    }

    // The agent gets its own questionsInput back, untouched, with the answers keyed by question.
    const JSONValue answered = AskedQuestions::answeredInput(questionsInput, questions, {"Blue", "Search, Sync", "extra"});
    JSONValue expected = questionsInput;
    expected.set("answers", JSONValue::Object{{"Which colour?", "Blue"}, {"Which features?", "Search, Sync"}});
    EXPECT_EQ(answered, expected);
    EXPECT_EQ(AskedQuestions::describeAnswers(answered), "Which colour? \u2192 Blue\nWhich features? \u2192 Search, Sync");
    EXPECT_EQ(AskedQuestions::answeredInput(JSONValue(), questions, {"Red"}).compact(), R"({"answers":{"Which colour?":"Red"}})");
    EXPECT_EQ(AskedQuestions::describeAnswers(questionsInput), std::nullopt);
}

TEST(PermissionUpdates, DescribesEachUpdateForTheUser) {
    const JSONValue::Array updates = *JSONValue::parse(R"([
        {"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"npm test:*"},{"toolName":"Edit"}],"behavior":"allow","destination":"localSettings"},
        {"type":"addDirectories","directories":["/p/work","/p/lib"],"destination":"session"},
        {"type":"setMode","mode":"acceptEdits","destination":"session"},
        {"type":"addRules","rules":[{"toolName":"Read","ruleContent":"//tmp/**"}],"behavior":"deny","destination":"userSettings"},
        {"type":"removeDirectories","directories":["/x"]}])").arrayValue();
    EXPECT_EQ(PermissionUpdates::describe(updates),
              "Allow Bash(npm test:*), Edit, kept in this project's local settings\n"
              "Allow access to /p/work, /p/lib, for this session\n"
              "Switch to acceptEdits mode, for this session\n"
              "Deny Read(//tmp/**), kept in your own settings\n"
              R"({"type":"removeDirectories","directories":["/x"]})");
    EXPECT_EQ(PermissionUpdates::allowRule("Bash", "touch:*").compact(),
              R"({"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"touch:*"}],"behavior":"allow","destination":"localSettings"})");
}

} // namespace
} // namespace tidewick
