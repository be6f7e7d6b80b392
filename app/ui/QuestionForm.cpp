#include "QuestionForm.h"

#include "foundation/UTF8.h"

#include <algorithm>

namespace tidewick {

QuestionForm::QuestionForm(std::vector<AskedQuestion> questions)
    : questions_(std::move(questions)) {}

const AskedQuestion& QuestionForm::current() const {
    return questions_[std::min(answers_.size(), questions_.size() - 1)];
}

std::string QuestionForm::tickedLabels() const {
    std::string labels;
    for (std::size_t option : ticked_)
        labels += (labels.empty() ? "" : ", ") + current().options[option].label;
    return labels;
}

void QuestionForm::toggle(std::size_t option) {
    if (!ticked_.erase(option))
        ticked_.insert(option);
    cursor_ = option;
}

QuestionForm::Step QuestionForm::answer(std::string text) {
    answers_.push_back(std::move(text));
    cursor_ = 0;
    ticked_.clear();
    typed_.clear();
    return answers_.size() == questions_.size() ? Step::done : Step::editing;
}

QuestionForm::Step QuestionForm::handle(const Key& key) {
    const AskedQuestion& question = current();
    const std::size_t options = question.options.size();
    switch (key.kind) {
    case Key::Kind::escape:
        return Step::cancelled;
    case Key::Kind::up:
        cursor_ = cursor_ > 0 ? cursor_ - 1 : 0;
        return Step::editing;
    case Key::Kind::down:
        cursor_ = options > 0 ? std::min(cursor_ + 1, options - 1) : 0;
        return Step::editing;
    case Key::Kind::backspace:
        if (!typed_.empty())
            UTF8::removeLast(typed_);
        else if (!answers_.empty()) {
            answers_.pop_back();
            ticked_.clear();
            cursor_ = 0;
        }
        return Step::editing;
    case Key::Kind::enter:
        if (!typed_.empty())
            return answer(question.answerFor(typed_));
        if (!ticked_.empty())
            return answer(tickedLabels());
        if (options > 0)
            return answer(question.options[cursor_].label);
        return Step::editing;
    case Key::Kind::character:
        break;
    default:
        return Step::editing;
    }
    const char32_t c = key.character;
    // On an empty line a digit picks an option, never starts an answer.
    if (typed_.empty() && c >= '0' && c <= '9') {
        const std::size_t option = c - '1';
        if (c == '0' || option >= options)
            return Step::editing;
        if (!question.multiSelect)
            return answer(question.options[option].label);
        toggle(option);
        return Step::editing;
    }
    if (typed_.empty() && c == ' ' && question.multiSelect && options > 0) {
        toggle(cursor_);
        return Step::editing;
    }
    if (c >= ' ' && c != 0x7F && c <= 0x10FFFF)
        UTF8::append(typed_, static_cast<std::uint32_t>(c));
    return Step::editing;
}

} // namespace tidewick
