#include "events/AskedQuestion.h"

#include "foundation/JSONCoding.h"
#include "foundation/Text.h"

namespace tidewick {

namespace {

constexpr std::string_view labelSeparator = ", ";

// The trimmed, non-empty string under `key`.
std::optional<std::string> textUnder(const JSONValue& object, std::string_view key) {
    const JSONValue* value = object.get(key);
    const std::string* text = value ? value->stringValue() : nullptr;
    if (!text || Text::trimmed(*text).empty())
        return std::nullopt;
    return std::string(Text::trimmed(*text));
}

std::vector<QuestionOption> questionOptions(const JSONValue& question) {
    std::vector<QuestionOption> options;
    const JSONValue* list = question.get("options");
    if (!list || !list->arrayValue())
        return options;
    for (const JSONValue& element : *list->arrayValue())
        if (auto label = textUnder(element, "label"))
            options.push_back({std::move(*label), textUnder(element, "description")});
    return options;
}

const QuestionOption* optionNamed(const std::vector<QuestionOption>& options,
                                  std::string_view given) {
    const std::string wanted = Text::lowercased(Text::trimmed(given));
    for (const QuestionOption& option : options)
        if (Text::lowercased(option.label) == wanted)
            return &option;
    return nullptr;
}

} // namespace

std::string AskedQuestion::answerFor(std::string_view given) const {
    if (const QuestionOption* option = optionNamed(options, given))
        return option->label;
    if (multiSelect) {
        std::string labels;
        std::string_view rest = given;
        while (true) {
            const std::size_t comma = rest.find(',');
            const QuestionOption* option = optionNamed(options, rest.substr(0, comma));
            if (!option)
                break;
            if (!labels.empty())
                labels += labelSeparator;
            labels += option->label;
            if (comma == std::string_view::npos)
                return labels;
            rest.remove_prefix(comma + 1);
        }
    }
    return std::string(Text::trimmed(given));
}

namespace AskedQuestions {

std::vector<AskedQuestion> from(const JSONValue* input) {
    std::vector<AskedQuestion> questions;
    const JSONValue* list = input ? input->get("questions") : nullptr;
    if (!list || !list->arrayValue())
        return questions;
    for (const JSONValue& element : *list->arrayValue()) {
        auto text = textUnder(element, "question");
        if (!text)
            continue;
        const JSONValue* multi = element.get("multiSelect");
        questions.push_back({std::move(*text), textUnder(element, "header"),
                             questionOptions(element),
                             multi && multi->boolValue().value_or(false)});
    }
    return questions;
}

std::string recordText(const std::vector<AskedQuestion>& questions) {
    std::string text;
    for (const AskedQuestion& question : questions) {
        if (!text.empty())
            text += "\n\n";
        text += question.question;
        for (const QuestionOption& option : question.options)
            text += "\n" + std::string(Text::bullet) + option.label;
    }
    return text;
}

JSONValue answeredInput(const JSONValue& input, const std::vector<AskedQuestion>& questions,
                        const std::vector<std::string>& answers) {
    JSONValue::Object answered;
    for (std::size_t i = 0; i < questions.size() && i < answers.size(); ++i)
        answered.emplace_back(questions[i].question, answers[i]);
    JSONValue result = input.isObject() ? input : JSONValue(JSONValue::Object{});
    result.set("answers", std::move(answered));
    return result;
}

std::optional<std::string> describeAnswers(const JSONValue& answeredInput) {
    const JSONValue* answers = answeredInput.get("answers");
    if (!answers || !answers->objectPairs() || answers->objectPairs()->empty())
        return std::nullopt;
    std::string text;
    for (const auto& [question, answer] : *answers->objectPairs()) {
        if (!text.empty())
            text += "\n";
        const std::string* words = answer.stringValue();
        text += question + " \xE2\x86\x92 " + (words ? *words : answer.compact());
    }
    return text;
}

} // namespace AskedQuestions

void writeJSON(JSONWriter& out, const QuestionOption& option) {
    out.beginObject();
    out.member("label", option.label);
    out.member("description", option.description);
    out.endObject();
}

bool readJSON(JSONReader& in, QuestionOption& out) {
    return readObject(in, JSONMember::required("label", out.label),
                      JSONMember::optional("description", out.description));
}

void writeJSON(JSONWriter& out, const AskedQuestion& question) {
    out.beginObject();
    out.member("question", question.question);
    out.member("header", question.header);
    out.member("options", question.options);
    out.member("multiSelect", question.multiSelect);
    out.endObject();
}

bool readJSON(JSONReader& in, AskedQuestion& out) {
    return readObject(in, JSONMember::required("question", out.question),
                      JSONMember::optional("header", out.header),
                      JSONMember::optional("options", out.options),
                      JSONMember::optional("multiSelect", out.multiSelect));
}

} // namespace tidewick
