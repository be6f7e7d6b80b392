#include "QuestionForm.h"

#include "UITestSupport.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;

TEST(QuestionForm, NumbersSpaceAndTypingAnswerEachQuestionInTurn) {
    const std::vector<AskedQuestion> questions = {
        {"Which colour?", "Colour", {{"Red", "Warm"}, {"Blue", {}}}, false},
        {"Which features?", {}, {{"Search", {}}, {"Sync", {}}, {"Maps", {}}}, true},
    };
    struct Case {
        const char* name;
        std::u32string keys;
        QuestionForm::Step step;
        std::vector<std::string> answers;
    };
    using enum QuestionForm::Step;
    const Case cases[] = {
        {"numbers choose, tick then Enter", keys(U"231", enter), done, {"Blue", "Search, Maps"}},
        {"cursor, space", keys(down, enter, down, down, U' ', up, enter), done, {"Blue", "Maps"}},
        {"Enter takes the option under the cursor", keys(enter, enter), done, {"Red", "Search"}},
        {"typed, a label", keys(U"Teal, ok", enter, U"sync", enter), done, {"Teal, ok", "Sync"}},
        {"a number out of range, a tick taken back", U"1922", editing, {"Red"}},
        {"Backspace goes back a question", keys(U'1', backspace, U'2'), editing, {"Blue"}},
        {"Backspace edits the typed answer", keys(U"Grey", backspace, enter), editing, {"Gre"}},
        {"Esc cancels", keys(U'1', escape), cancelled, {"Red"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QuestionForm form(questions);
        QuestionForm::Step step = editing;
        for (char32_t key : c.keys)
            if (step == editing)
                step = form.handle(keyOf(key));
        EXPECT_EQ(step, c.step);
        EXPECT_EQ(form.answers(), c.answers);
    }
}

} // namespace
} // namespace tidewick
