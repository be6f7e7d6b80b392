// Answering an agent's questions in the terminal UI, one question after the
// other: a number chooses an option (or ticks it when several may be chosen),
// space ticks the option under the cursor, or the user types an answer.
#pragma once

#include "Key.h"
#include "events/AskedQuestion.h"

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace tidewick {

class QuestionForm {
public:
    enum class Step {
        /// Still answering.
        editing,
        /// The user gave up (Esc): nothing is sent.
        cancelled,
        /// Every question has its answer (answers()).
        done,
    };

    /// A form for `questions`, which must not be empty.
    explicit QuestionForm(std::vector<AskedQuestion> questions);

    /// Handles one key. On the typed line (empty): 1–9 choose the option (tick it for a
    /// multiple choice; other digits do nothing), space ticks the option under the cursor, ↑ ↓ move the cursor,
    /// Backspace goes back to the previous question. Enter answers with the typed text,
    /// else the ticked options, else the option under the cursor. Esc cancels.
    [[nodiscard]] Step handle(const Key& key);

    [[nodiscard]] const std::vector<AskedQuestion>& questions() const { return questions_; }
    /// The question being answered (the last one once done).
    [[nodiscard]] const AskedQuestion& current() const;
    [[nodiscard]] std::size_t index() const { return answers_.size(); }
    [[nodiscard]] std::size_t cursor() const { return cursor_; }
    [[nodiscard]] bool isTicked(std::size_t option) const { return ticked_.count(option) > 0; }
    /// The answer being typed.
    [[nodiscard]] const std::string& typed() const { return typed_; }
    /// The answers so far, one per question answered, as they are sent.
    [[nodiscard]] const std::vector<std::string>& answers() const { return answers_; }

private:
    Step answer(std::string text);
    /// The ticked options' labels in their order, joined by ", ".
    [[nodiscard]] std::string tickedLabels() const;
    void toggle(std::size_t option);

    std::vector<AskedQuestion> questions_;
    std::vector<std::string> answers_;
    std::size_t cursor_ = 0;
    std::set<std::size_t> ticked_;
    std::string typed_;
};

} // namespace tidewick
