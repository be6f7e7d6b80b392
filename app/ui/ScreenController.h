// The terminal UI's state and key handling: which session is selected, which
// line is being typed, what was last said to the user, and which decisions a
// key sends. No curses here, so every key path is tested directly.
#pragma once

#include "Key.h"
#include "SettingsView.h"
#include "QuestionForm.h"
#include "foundation/Clock.h"
#include "service/SessionActions.h"
#include "service/TidewickSettings.h"
#include "sessions/Session.h"
#include "usage/UsageReport.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tidewick {

class TranscriptAccess;
class UsageAccess;
class TranscriptView;

class ScreenController {
public:
    enum class Mode {
        /// Moving through the sessions.
        browse,
        /// Typing the optional message of a denial.
        denyMessage,
        /// Typing a reply, or picking a quick reply by number.
        reply,
        /// The list of keys.
        help,
        /// Asked whether to quit although requests are held.
        confirmQuit,
        /// Typing (or keeping) the rule an "always allow" leaves with the agent.
        alwaysRule,
        /// Answering the questions an agent asks (questionForm()).
        question,
        /// The selected session's transcript (see transcript()).
        transcript,
        /// The settings (see settingsView()).
        settings,
        /// Asked whether to forget the selected session (forgetTarget()).
        confirmForget,
        /// Asked to confirm starting an agent or ending a session (see question()).
        confirmAction,
        /// Every usage-limit window and the sessions' token use (see usageReport()).
        usage,
    };
    enum class Outcome { stay, quit };
    enum class Tone { info, success, warning };
    /// What quitting the interface does to the requests held.
    enum class Quitting {
        /// The application stops with it and answers them with their time-out: ask first.
        endsHeldRequests,
        /// The application keeps running and holding them: quit at once.
        leavesRequestsHeld,
    };

    /// A short message on the status line, shown until `until`.
    struct Message {
        std::string text;
        Tone tone = Tone::info;
        Date until;
    };

    /// How long a status message stays.
    static constexpr double messageSeconds = 6;

    /// A held request the user has not seen, announced on the top line.
    struct Banner {
        SessionKey session;
        /// "Claude Code · webshop needs permission — Tab to go there".
        std::string text;
    };

    /// Decisions go to `actions`, which must outlive the controller.
    explicit ScreenController(SessionActions& actions,
                              Quitting quitting = Quitting::endsHeldRequests);
    ~ScreenController();

    /// Switches the terminal to tmux pane `pane` of the server at `socket`; false when it
    /// cannot (Tidewick runs elsewhere). Without one, `g` only says where the agent runs.
    using PaneSwitch = std::function<bool(const std::string& socket, const std::string& pane)>;
    void setPaneSwitch(PaneSwitch paneSwitch) { paneSwitch_ = std::move(paneSwitch); }
    /// The question asked in Mode::confirmAction.
    [[nodiscard]] const std::string& question() const { return question_; }

    /// Where `t` reads the selected session's transcript and `h` writes its handoff;
    /// without one those keys say they are not available. `access` must outlive the
    /// controller.
    void setTranscriptAccess(TranscriptAccess* access) { transcripts_ = access; }
    /// Where `p` pauses and resumes, `x` forgets a session and the settings view changes
    /// settings; without one those keys say they are not available. `controls` must
    /// outlive the controller.
    void setControls(ApplicationControls* controls) { controls_ = controls; }
    /// The settings view shown in Mode::settings; null otherwise.
    [[nodiscard]] const SettingsView* settingsView() const {
        return settingsView_ ? &*settingsView_ : nullptr;
    }
    /// The settings last given to setSettings().
    [[nodiscard]] const TidewickSettings& settings() const { return settings_; }
    /// The session Mode::confirmForget asks about.
    [[nodiscard]] const std::optional<SessionKey>& forgetTarget() const { return forgetKey_; }
    /// The transcript shown in Mode::transcript; null otherwise.
    [[nodiscard]] const TranscriptView* transcript() const { return transcriptView_.get(); }

    /// Where `u` reads the usage report; without one the key says it is not available.
    /// `access` must outlive the controller.
    void setUsageAccess(UsageAccess* access) { usageAccess_ = access; }
    /// The agents' windows the header shows; replaced as they are read again.
    void setUsage(std::vector<AgentUsage> usage) { usage_ = std::move(usage); }
    [[nodiscard]] const std::vector<AgentUsage>& usage() const { return usage_; }
    /// The report shown in Mode::usage; null otherwise.
    [[nodiscard]] const UsageReport* usageReport() const {
        return usageReport_ ? &*usageReport_ : nullptr;
    }
    /// The first line of the usage report shown.
    [[nodiscard]] std::size_t usageScroll() const { return usageScroll_; }

    /// Replaces the sessions (any order; they are put in screen order). The selection
    /// stays on the same session once the user has moved it; before that, and again after
    /// each answer delivered, it stays on the first row, where the longest-waiting request
    /// is.
    /// With `now`, a permission request that left the list at its deadline is reported on
    /// the status line ("No answer in Tidewick — asking in Codex"): the agent now asks in
    /// its own window.
    void setSessions(std::vector<Session> sessions, std::optional<Date> now = std::nullopt);
    /// Takes the allow and deny keys, the quick replies and whether Tidewick is paused. A key setting that is not
    /// exactly one character keeps the default ("y", "n").
    void setSettings(const TidewickSettings& settings);

    /// Handles one key at `now`; Outcome::quit when the UI should end. Tab goes to the
    /// session of the banner, whatever the mode; a line being typed is kept for when that
    /// request is answered again.
    [[nodiscard]] Outcome handleKey(const Key& key, Date now);

    /// Shows `text` on the status line for messageSeconds.
    void showMessage(std::string text, Tone tone, Date now);
    /// Shows `notice` on the status line until it is replaced or cleared (nothing), ahead
    /// of messages: a state the user must know about, such as the application gone.
    void setNotice(std::optional<std::string> notice) { notice_ = std::move(notice); }
    [[nodiscard]] const std::optional<std::string>& notice() const { return notice_; }
    [[nodiscard]] Quitting quitting() const { return quitting_; }
    /// Marks the frame as glowing until the request `id` is no longer held.
    void glowFor(const UUID& id);
    /// Whether any request that made the frame glow is still held.
    [[nodiscard]] bool isGlowing() const { return !glowing_.empty(); }

    [[nodiscard]] const std::vector<Session>& sessions() const { return sessions_; }
    /// The selected row; nothing when there are no sessions.
    [[nodiscard]] std::optional<std::size_t> selectedIndex() const;
    [[nodiscard]] const Session* selected() const;
    [[nodiscard]] Mode mode() const { return mode_; }
    /// The line being typed (deny message, reply or the rule to always allow).
    [[nodiscard]] const std::string& input() const { return input_; }
    /// While answering questions, the form; null otherwise.
    [[nodiscard]] const QuestionForm* questionForm() const { return form_ ? &*form_ : nullptr; }
    /// While typing the rule to always allow, what the request offered (nothing when it
    /// offered no rule).
    [[nodiscard]] const std::optional<AlwaysAllowOffer>& alwaysOffer() const { return offer_; }
    /// The agent of the session the line or form is for.
    [[nodiscard]] std::optional<AgentKind> targetAgent() const;
    /// The status message still showing at `now`.
    [[nodiscard]] std::optional<Message> message(Date now) const;
    /// Held requests over all sessions.
    [[nodiscard]] std::size_t heldCount() const { return heldCount_; }
    [[nodiscard]] const std::vector<std::string>& quickReplies() const { return quickReplies_; }
    [[nodiscard]] const std::string& allowKey() const { return allowKey_; }
    [[nodiscard]] const std::string& denyKey() const { return denyKey_; }
    /// The newest request held while the user was reading another session (one they moved
    /// to), typing or reading the keys, until they go there (Tab, or selecting its session)
    /// or it is no longer held. Requests already held when the interface starts, or while
    /// the selection follows the top row, take their turn in the list: no banner.
    [[nodiscard]] std::optional<Banner> banner() const;
    /// When the user last pressed a key; nothing before the first.
    [[nodiscard]] std::optional<Date> lastKeyAt() const { return lastKeyAt_; }

private:
    /// A line being typed when the user left it with Tab.
    struct Draft {
        SessionKey session;
        Mode mode = Mode::reply;
        std::string text;
    };

    Outcome dispatch(const Key& key, Date now);
    /// Keeps the selection on the same session once the user has moved it (see setSessions).
    void keepSelection();
    void noteNewRequests(const std::vector<Session>& previous);
    /// Drops banners for requests no longer held or for the session now in view.
    void forgetSeen();
    void goToBanner(Date now);
    /// Opens the line of `mode` for the selected session, with its draft when there is one.
    void openLine(Mode mode);
    Outcome browse(const Key& key, Date now);
    void togglePause(Date now);
    void startForget(Date now);
    void openSettings(Date now);
    /// Shows what a control did: a success or, refused, a warning.
    void showResult(const ControlResult& result, Date now);
    void reportTimeOuts(const std::vector<Session>& previous, Date now);
    void typeInto(const Key& key, Date now);
    void move(long rows);
    /// After an answer the top row is shown again: the next longest-waiting request is there.
    void returnToTop();
    void allow(Date now);
    void startDeny(Date now);
    void sendDeny(Date now);
    void startReply(Date now);
    void sendReply(std::string text, Date now);
    void letStop(Date now);
    void startAlways(Date now);
    void sendAlways(Date now);
    /// Opens the question form of the selected session's question; false when none is held.
    bool startQuestion();
    void answerKey(const Key& key, Date now);
    void openTranscript(Date now);
    void askToEnd(Date now);
    void confirmed(const Key& key, Date now);
    void goToAgent(Date now);
    void writeHandoff(Date now);
    void openUsage(Date now);
    void usageKey(const Key& key);
    void scrollUsageDown();
    [[nodiscard]] const PendingRequest* held(PendingKind kind) const;
    /// Like held(), but when nothing of `kind` is held tells the user why and gives null.
    const PendingRequest* heldOrExplain(PendingKind kind, Date now);

    SessionActions& actions_;
    Quitting quitting_;
    std::optional<std::string> notice_;
    std::vector<Session> sessions_;
    std::size_t selected_ = 0;
    /// Set once the user moves the selection: from then on it follows the session.
    std::optional<SessionKey> pinned_;
    /// The session a deny or reply line was opened for.
    std::optional<SessionKey> target_;
    Mode mode_ = Mode::browse;
    std::string input_;
    std::optional<QuestionForm> form_;
    std::optional<AlwaysAllowOffer> offer_;
    std::optional<Message> message_;
    std::set<UUID> glowing_;
    std::size_t heldCount_ = 0;
    /// Requests not yet seen, oldest first, with their sessions.
    std::vector<std::pair<SessionKey, UUID>> unseen_;
    /// Whether sessions have been set once: what is held then is not news.
    bool hasSessions_ = false;
    std::optional<Draft> draft_;
    std::optional<Date> lastKeyAt_;
    std::vector<std::string> quickReplies_ = TidewickSettings::defaultQuickReplies();
    std::string allowKey_ = "y";
    std::string denyKey_ = "n";
    TranscriptAccess* transcripts_ = nullptr;
    ApplicationControls* controls_ = nullptr;
    TidewickSettings settings_;
    std::optional<SettingsView> settingsView_;
    std::optional<SessionKey> forgetKey_;
    std::unique_ptr<TranscriptView> transcriptView_;
    /// The session whose transcript is shown.
    std::optional<SessionKey> transcriptKey_;
    /// What a confirmed question does: continue the target with `continueText_`, or end it.
    enum class Confirming { continueSession, end };
    Confirming confirming_ = Confirming::end;
    /// The reply line was opened to continue a session that holds nothing.
    bool continuing_ = false;
    std::string continueText_;
    std::string question_;
    PaneSwitch paneSwitch_;
    UsageAccess* usageAccess_ = nullptr;
    std::vector<AgentUsage> usage_;
    std::optional<UsageReport> usageReport_;
    std::size_t usageScroll_ = 0;
};

} // namespace tidewick
