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
    const Case cases[] = {
        {"a number chooses, ticks then Enter", keys(U"231", enter), QuestionForm::Step::done, {"Blue", "Search, Maps"}},
        {"the cursor and space", keys(down, enter, down, down, U' ', up, enter), QuestionForm::Step::done, {"Blue", "Maps"}},
        {"Enter alone takes the option under the cursor", std::u32string{enter, enter}, QuestionForm::Step::done, {"Red", "Search"}},
        {"typed words, a typed label", keys(U"Green, please", enter, U"sync", enter), QuestionForm::Step::done, {"Green, please", "Sync"}},
        {"a number out of range, a tick taken back", U"1922", QuestionForm::Step::editing, {"Red"}},
        {"Backspace goes back a question", keys(U'1', backspace, U'2'), QuestionForm::Step::editing, {"Blue"}},
        {"Backspace edits the typed answer", keys(U"Grey", backspace, enter), QuestionForm::Step::editing, {"Gre"}},
        {"Esc cancels", keys(U'1', escape), QuestionForm::Step::cancelled, {"Red"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QuestionForm form(questions);
        QuestionForm::Step step = QuestionForm::Step::editing;
        for (char32_t key : c.keys)
            if (step == QuestionForm::Step::editing)
                step = form.handle(keyOf(key));
        EXPECT_EQ(step, c.step);
        EXPECT_EQ(form.answers(), c.answers);
    }

    QuestionForm ticking(questions);
    (void)ticking.handle(Key::of('1'));
    (void)ticking.handle(Key::of('3'));
    EXPECT_EQ(ticking.index(), 1u);
    EXPECT_TRUE(ticking.isTicked(2));
    EXPECT_FALSE(ticking.isTicked(0));
    EXPECT_EQ(ticking.cursor(), 2u);
    EXPECT_EQ(&ticking.current(), &ticking.questions()[1]);
}

} // namespace
} // namespace tidewick
