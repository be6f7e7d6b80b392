// The refusal of a configuration editor to touch a file whose shape it does not recognise.
#pragma once

#include <stdexcept>
#include <string>

namespace tidewick {

/// Thrown by the editors before anything is written; what() is the sentence shown to the user.
class HookConfigError : public std::runtime_error {
public:
    /// The only case: the document, or a part of it, is not an object.
    enum class Case { notAnObject };

    /// The subject used when the "hooks" member exists but is not an object.
    static constexpr const char* hooksSection = "The \"hooks\" section";

    /// `subject` + " is not the shape Tidewick expects, so it was left untouched."
    [[nodiscard]] static HookConfigError notAnObject(std::string subject) {
        return HookConfigError(Case::notAnObject, std::move(subject));
    }

    [[nodiscard]] Case errorCase() const { return case_; }
    /// The file name (for example settings.json) or the hooks-section phrase.
    [[nodiscard]] const std::string& subject() const { return subject_; }

private:
    HookConfigError(Case errorCase, std::string subject)
        : std::runtime_error(subject +
                             " is not the shape Tidewick expects, so it was left untouched."),
          case_(errorCase), subject_(std::move(subject)) {}

    Case case_;
    std::string subject_;
};

} // namespace tidewick
