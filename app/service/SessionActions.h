// What the user can see of the sessions and decide about them: the operations
// the control socket and the terminal interface share, behind an interface so
// that each can be tested against a fake instead of a running service.
#pragma once

#include "sessions/PendingRequest.h"
#include "sessions/Session.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tidewick {

/// A held request with the session holding it.
using HeldRequest = std::pair<SessionKey, PendingRequest>;

class SessionActions {
public:
    enum class Answer { allow, deny };

    /// How an answer beyond yes or no went.
    struct Delivery {
        enum class Kind {
            /// It reached the waiting agent; `sentence` says what it did.
            delivered,
            /// Nothing of the kind is held in the session (or it ended meanwhile).
            nothingHeld,
            /// The request cannot be answered so; `sentence` says why.
            refused,
            /// The answer itself does not fit the request; `sentence` says why.
            badAnswer,
        };
        Kind kind = Kind::nothingHeld;
        std::string sentence;

        friend bool operator==(const Delivery&, const Delivery&) = default;
    };

    virtual ~SessionActions() = default;

    /// Every session, those needing the user first.
    [[nodiscard]] virtual std::vector<Session> sessions() const = 0;
    /// Every held request with its session, oldest first.
    [[nodiscard]] virtual std::vector<HeldRequest> pendingRequests() const = 0;
    /// Answers the first permission request held in `session`. True only when the
    /// decision reached the waiting agent (the first decision wins). A request that asks
    /// questions is answered by answerQuestions, never allowed plainly: allowing it is false.
    virtual bool answerPermission(const SessionKey& session, Answer answer,
                                  std::optional<std::string> message = std::nullopt) = 0;
    /// Allows the first permission request held in `session` (questions aside) and tells the
    /// agent to keep allowing such calls: with `rule` when given (for Claude Code a rule
    /// such as "npm test:*" for the held tool, or "Tool(rule)"; for Cursor and Antigravity a
    /// command prefix), else with what the request offers. Refused for Codex and where
    /// nothing is offered and no rule given; an empty rule is a bad answer.
    virtual Delivery allowAlways(const SessionKey& session, std::optional<std::string> rule) = 0;
    /// Answers the questions of the first question request held in `session`, one answer per
    /// question in order; an answer naming an option (AskedQuestion::answerFor) chooses it.
    /// A bad answer when the count differs or an answer is empty.
    virtual Delivery answerQuestions(const SessionKey& session,
                                     std::vector<std::string> answers) = 0;
    /// Sends `text` as the reply to the turn held in `session`. True when delivered.
    virtual bool reply(const SessionKey& session, std::string text) = 0;
    /// Lets the agent held at the end of its turn in `session` stop. True when delivered.
    virtual bool letStop(const SessionKey& session) = 0;

    /// How an action on a session went, with a sentence for the user either way.
    struct Result {
        bool done = false;
        std::string sentence;

        friend bool operator==(const Result&, const Result&) = default;
    };

    /// Continues `session`, which holds nothing, with `text` as its next prompt: runs the
    /// agent's own program in the background. Done when the program started; the sentence
    /// says where its output goes, or why nothing was started. Views that cannot do this
    /// say so.
    virtual Result continueSession(const SessionKey& session, std::string text);
    /// Ends `session` from Tidewick: interrupts its agent and marks it ended by you. The
    /// sentence tells what was done, or why nothing was.
    virtual Result endSession(const SessionKey& session);
};

} // namespace tidewick
