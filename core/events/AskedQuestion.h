// The questions an agent puts to the user through its question tool, with the
// options it offers, and the answers Tidewick sends back for them.
#pragma once

#include "foundation/JSONValue.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

class JSONReader;
class JSONWriter;

/// One answer an agent offers for a question.
struct QuestionOption {
    std::string label;
    std::optional<std::string> description;

    friend bool operator==(const QuestionOption&, const QuestionOption&) = default;
};

struct AskedQuestion {
    /// The question itself; it also keys the answer.
    std::string question;
    /// A short heading ("Colour").
    std::optional<std::string> header;
    std::vector<QuestionOption> options;
    /// Whether several options may be chosen together.
    bool multiSelect = false;

    /// The answer sent for `given`, which is either typed by the user or an option's label:
    /// the option's own label when `given` names one (ignoring case and surrounding space);
    /// for a multi-select question, the labels joined by ", " when every comma-separated
    /// part names one; otherwise `given` trimmed, as the user's own words.
    [[nodiscard]] std::string answerFor(std::string_view given) const;

    friend bool operator==(const AskedQuestion&, const AskedQuestion&) = default;
};

namespace AskedQuestions {

/// The questions under "questions" in a question tool's input, in order. Elements that are
/// not objects or have no question text are skipped, options without a label too. Never
/// fails: anything else gives an empty list.
[[nodiscard]] std::vector<AskedQuestion> from(const JSONValue* input);

/// The questions for the user to read: each question's text followed by one "• " line per
/// option label, the questions separated by a blank line.
[[nodiscard]] std::string recordText(const std::vector<AskedQuestion>& questions);

/// The tool input that answers `questions`: `input` (the agent's own, questions and all)
/// with "answers" set to {question: answer} for each question, in order. `answers` holds
/// one answer per question; extra ones are ignored, missing ones leave their question out.
[[nodiscard]] JSONValue answeredInput(const JSONValue& input,
                                      const std::vector<AskedQuestion>& questions,
                                      const std::vector<std::string>& answers);

/// "Question → answer" lines from the "answers" of an answered input; nothing when it has
/// none.
[[nodiscard]] std::optional<std::string> describeAnswers(const JSONValue& answeredInput);

} // namespace AskedQuestions

/// {"label", "description" (when present)}.
void writeJSON(JSONWriter& out, const QuestionOption& option);
[[nodiscard]] bool readJSON(JSONReader& in, QuestionOption& out);
/// {"question", "header" (when present), "options", "multiSelect"}.
void writeJSON(JSONWriter& out, const AskedQuestion& question);
/// The question writeJSON writes; false when "question" is missing or a member is mistyped.
[[nodiscard]] bool readJSON(JSONReader& in, AskedQuestion& out);

} // namespace tidewick
