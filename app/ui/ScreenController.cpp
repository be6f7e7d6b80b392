#include "ScreenController.h"

#include "Screen.h"
#include "TranscriptAccess.h"
#include "TranscriptView.h"
#include "UsageAccess.h"
#include "foundation/UTF8.h"
#include "sessions/SessionText.h"
#include "transcripts/Handoff.h"
#include "transcripts/TranscriptUnavailable.h"

#include <algorithm>
#include <utf8proc.h>

namespace tidewick {

namespace {

// Typed characters become UTF-8; anything beyond Unicode is dropped.
void appendUTF8(std::string& text, char32_t character) {
    if (character <= 0x10FFFF)
        UTF8::append(text, static_cast<std::uint32_t>(character));
}

std::string utf8(char32_t character) {
    std::string text;
    appendUTF8(text, character);
    return text;
}

/// `setting` when it is exactly one printable character, else `fallback`.
std::string singleKey(const std::string& setting, const char* fallback) {
    utf8proc_int32_t codePoint = 0;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(setting.data());
    const auto size = static_cast<utf8proc_ssize_t>(setting.size());
    if (size == 0 || utf8proc_iterate(bytes, size, &codePoint) != size)
        return fallback;
    if (utf8proc_category(codePoint) == UTF8PROC_CATEGORY_CC || codePoint == ' ')
        return fallback;
    return setting;
}

std::string agentName(const Session& session) {
    return std::string(displayName(session.key.agent));
}

} // namespace

ScreenController::ScreenController(SessionActions& actions, Quitting quitting)
    : actions_(actions), quitting_(quitting) {}

ScreenController::~ScreenController() = default;

void ScreenController::setSessions(std::vector<Session> sessions, std::optional<Date> now) {
    std::vector<Session> previous = std::move(sessions_);
    sessions_ = Screen::ordered(std::move(sessions));
    if (now)
        reportTimeOuts(previous, *now);
    heldCount_ = 0;
    std::set<UUID> stillHeld;
    for (const Session& session : sessions_) {
        heldCount_ += session.pending.size();
        for (const PendingRequest& request : session.pending)
            if (glowing_.count(request.id))
                stillHeld.insert(request.id);
    }
    glowing_ = std::move(stillHeld);
    keepSelection();
    noteNewRequests(previous);
    forgetSeen();
}

void ScreenController::keepSelection() {
    if (pinned_) {
        auto found = std::find_if(sessions_.begin(), sessions_.end(),
                                  [&](const Session& s) { return s.key == *pinned_; });
        if (found != sessions_.end()) {
            selected_ = static_cast<std::size_t>(found - sessions_.begin());
            return;
        }
        // The session is gone: stay at the same height in the list.
        pinned_.reset();
    }
    if (sessions_.empty())
        selected_ = 0;
    else
        selected_ = std::min(selected_, sessions_.size() - 1);
}

void ScreenController::reportTimeOuts(const std::vector<Session>& previous, Date now) {
    std::set<UUID> held;
    for (const Session& session : sessions_)
        for (const PendingRequest& request : session.pending)
            held.insert(request.id);
    for (const Session& session : previous)
        for (const PendingRequest& request : session.pending) {
            // The service lets go of a request within a quarter second of its deadline.
            if (request.kind != PendingKind::permission || held.count(request.id) ||
                addSeconds(request.deadline, -0.5) > now)
                continue;
            const std::string agent = agentName(session);
            showMessage(agent + ": No answer in Tidewick — asking in " + agent, Tone::warning, now);
        }
}

void ScreenController::setSettings(const TidewickSettings& settings) {
    allowKey_ = singleKey(settings.allowKey, "y");
    denyKey_ = singleKey(settings.denyKey, "n");
    if (denyKey_ == allowKey_) {
        // One key cannot mean both: keep the defaults rather than guess.
        allowKey_ = "y";
        denyKey_ = "n";
    }
    quickReplies_ = settings.quickReplies;
    settings_ = settings;
}

std::optional<std::size_t> ScreenController::selectedIndex() const {
    if (sessions_.empty())
        return std::nullopt;
    return selected_;
}

const Session* ScreenController::selected() const {
    return sessions_.empty() ? nullptr : &sessions_[selected_];
}

std::optional<ScreenController::Message> ScreenController::message(Date now) const {
    if (!message_ || now >= message_->until)
        return std::nullopt;
    return message_;
}

void ScreenController::showMessage(std::string text, Tone tone, Date now) {
    message_ = Message{std::move(text), tone, addSeconds(now, messageSeconds)};
}

void ScreenController::glowFor(const UUID& id) {
    for (const Session& session : sessions_)
        for (const PendingRequest& request : session.pending)
            if (request.id == id) {
                glowing_.insert(id);
                return;
            }
}

void ScreenController::noteNewRequests(const std::vector<Session>& previous) {
    const bool first = !hasSessions_;
    hasSessions_ = true;
    if (first)
        return;
    std::set<UUID> known;
    for (const Session& session : previous)
        for (const PendingRequest& request : session.pending)
            known.insert(request.id);
    // Left to itself the selection shows the longest-waiting request, so a new one takes
    // its turn in the list; once the user has chosen a session, or is typing or reading
    // the keys, it is announced instead.
    const Session* inView = pinned_ && mode_ == Mode::browse ? selected() : nullptr;
    const bool elsewhere = pinned_ || mode_ != Mode::browse;
    for (const Session& session : sessions_)
        for (const PendingRequest& request : session.pending)
            if (!known.count(request.id) && elsewhere && (!inView || inView->key != session.key))
                unseen_.emplace_back(session.key, request.id);
}

void ScreenController::forgetSeen() {
    std::set<UUID> held;
    for (const Session& session : sessions_)
        for (const PendingRequest& request : session.pending)
            held.insert(request.id);
    const Session* inView = mode_ == Mode::browse ? selected() : nullptr;
    std::erase_if(unseen_, [&](const std::pair<SessionKey, UUID>& entry) {
        return !held.count(entry.second) || (inView && inView->key == entry.first);
    });
}

std::optional<ScreenController::Banner> ScreenController::banner() const {
    if (unseen_.empty())
        return std::nullopt;
    const auto& [key, id] = unseen_.back();
    for (const Session& session : sessions_) {
        if (session.key != key)
            continue;
        for (const PendingRequest& request : session.pending) {
            if (request.id != id)
                continue;
            std::string text = SessionText::asksFor(Screen::who(session), request.kind);
            if (unseen_.size() > 1)
                text += " (+" + std::to_string(unseen_.size() - 1) + " more)";
            return Banner{key, text + " — Tab to go there"};
        }
    }
    return std::nullopt;
}

void ScreenController::goToBanner(Date now) {
    const std::optional<Banner> shown = banner();
    if (!shown)
        return;
    if ((mode_ == Mode::denyMessage || mode_ == Mode::reply) && target_) {
        if (!input_.empty()) {
            draft_ = Draft{*target_, mode_, input_};
            showMessage("What you typed for " + std::string(displayName(target_->agent)) +
                            " is kept until you answer it.",
                        Tone::info, now);
        }
        input_.clear();
    }
    transcriptView_.reset();
    transcriptKey_.reset();
    usageReport_.reset();
    mode_ = Mode::browse;
    for (std::size_t i = 0; i < sessions_.size(); ++i)
        if (sessions_[i].key == shown->session) {
            selected_ = i;
            pinned_ = shown->session;
        }
    forgetSeen();
}

ScreenController::Outcome ScreenController::handleKey(const Key& key, Date now) {
    lastKeyAt_ = now;
    if (key.kind == Key::Kind::tab) {
        goToBanner(now);
        return Outcome::stay;
    }
    const Outcome outcome = dispatch(key, now);
    forgetSeen();
    return outcome;
}

ScreenController::Outcome ScreenController::dispatch(const Key& key, Date now) {
    switch (mode_) {
    case Mode::browse:
        return browse(key, now);
    case Mode::help:
        mode_ = Mode::browse;
        return Outcome::stay;
    case Mode::settings: {
        std::optional<ControlResult> said;
        if (settingsView_->handleKey(key, settings_, *controls_, said) ==
            SettingsView::Outcome::close) {
            mode_ = Mode::browse;
            settingsView_.reset();
        }
        if (said)
            showResult(*said, now);
        return Outcome::stay;
    }
    case Mode::confirmForget:
        mode_ = Mode::browse;
        if (key.kind == Key::Kind::character && (key.character == 'y' || key.character == 'Y'))
            showResult(controls_->forget(*forgetKey_), now);
        else
            showMessage("Kept.", Tone::info, now);
        forgetKey_.reset();
        return Outcome::stay;
    case Mode::confirmQuit:
        mode_ = Mode::browse;
        if (key.kind == Key::Kind::character && (key.character == 'y' || key.character == 'Y'))
            return Outcome::quit;
        showMessage("Still running.", Tone::info, now);
        return Outcome::stay;
    case Mode::denyMessage:
    case Mode::reply:
    case Mode::alwaysRule:
        typeInto(key, now);
        return Outcome::stay;
    case Mode::confirmAction:
        confirmed(key, now);
        return Outcome::stay;
    case Mode::usage:
        usageKey(key);
        return Outcome::stay;
    case Mode::question:
        answerKey(key, now);
        return Outcome::stay;
    case Mode::transcript:
        if (key.kind == Key::Kind::character && key.character == 'h' &&
            !transcriptView_->isSearching()) {
            writeHandoff(now);
        } else if (transcriptView_->handleKey(key) == TranscriptView::Outcome::close) {
            mode_ = Mode::browse;
            transcriptView_.reset();
            transcriptKey_.reset();
        }
        return Outcome::stay;
    }
    return Outcome::stay;
}

void ScreenController::openUsage(Date now) {
    if (!usageAccess_) {
        showMessage("Usage figures are not available here.", Tone::warning, now);
        return;
    }
    usageReport_ = usageAccess_->report(sessions_, now);
    usage_ = usageReport_->agents;
    usageScroll_ = 0;
    mode_ = Mode::usage;
}

void ScreenController::usageKey(const Key& key) {
    switch (key.kind) {
    case Key::Kind::up:
        usageScroll_ -= usageScroll_ > 0 ? 1 : 0;
        return;
    case Key::Kind::down:
        scrollUsageDown();
        return;
    case Key::Kind::home:
        usageScroll_ = 0;
        return;
    case Key::Kind::character:
        if (key.character == 'k') {
            usageScroll_ -= usageScroll_ > 0 ? 1 : 0;
            return;
        }
        if (key.character == 'j') {
            scrollUsageDown();
            return;
        }
        if (key.character != 'u' && key.character != 'q')
            return;
        break;
    case Key::Kind::escape:
        break;
    default:
        return;
    }
    mode_ = Mode::browse;
    usageReport_.reset();
}

void ScreenController::scrollUsageDown() {
    // Past the last line there is nothing to see: stop at it.
    // The report's lines: a blank and a heading, then a line per session (or one saying none).
    std::size_t lines = 2 + std::max<std::size_t>(usageReport_->sessions.size(), 1);
    for (const AgentUsage& agent : usageReport_->agents)
        lines += 1 + std::max<std::size_t>(agent.windows.size(), 1);
    usageScroll_ = std::min(usageScroll_ + 1, lines - 1);
}

void ScreenController::openTranscript(Date now) {
    const Session* session = selected();
    if (!session) {
        showMessage("No session is selected.", Tone::warning, now);
        return;
    }
    if (!transcripts_) {
        showMessage("Transcripts are not available here.", Tone::warning, now);
        return;
    }
    try {
        Transcript transcript = transcripts_->read(*session);
        const std::int64_t position = transcript.position;
        transcriptView_ =
            std::make_unique<TranscriptView>(std::move(transcript), session->transcriptStep);
        transcriptKey_ = session->key;
        mode_ = Mode::transcript;
        message_.reset();
        transcripts_->markRead(session->key, position);
    } catch (const TranscriptUnavailable& error) {
        showMessage(error.what(), Tone::warning, now);
    }
}

void ScreenController::writeHandoff(Date now) {
    const Session* session = selected();
    if (transcriptKey_) {
        auto found = std::find_if(sessions_.begin(), sessions_.end(),
                                  [&](const Session& s) { return s.key == *transcriptKey_; });
        session = found == sessions_.end() ? nullptr : &*found;
    }
    if (!session) {
        showMessage("No session is selected.", Tone::warning, now);
        return;
    }
    if (!transcripts_) {
        showMessage("Handoffs are not available here.", Tone::warning, now);
        return;
    }
    try {
        showMessage(transcripts_->writeHandoff(*session, now), Tone::success, now);
    } catch (const TranscriptUnavailable& error) {
        showMessage(error.what(), Tone::warning, now);
    } catch (const Handoff::Failure& failure) {
        showMessage(failure.what(), Tone::warning, now);
    }
}

ScreenController::Outcome ScreenController::browse(const Key& key, Date now) {
    switch (key.kind) {
    case Key::Kind::up:
        move(-1);
        return Outcome::stay;
    case Key::Kind::down:
        move(1);
        return Outcome::stay;
    case Key::Kind::pageUp:
        move(-10);
        return Outcome::stay;
    case Key::Kind::pageDown:
        move(10);
        return Outcome::stay;
    case Key::Kind::home:
        move(-static_cast<long>(sessions_.size()));
        return Outcome::stay;
    case Key::Kind::end:
        move(static_cast<long>(sessions_.size()));
        return Outcome::stay;
    case Key::Kind::character:
        break;
    default:
        return Outcome::stay;
    }
    const std::string typed = utf8(key.character);
    // The configured keys come first, so they may take over a built-in letter.
    if (typed == allowKey_) {
        if (!startQuestion())
            allow(now);
        return Outcome::stay;
    }
    // A number starts answering a question with that option.
    if (key.character >= '1' && key.character <= '9' && startQuestion()) {
        answerKey(key, now);
        return Outcome::stay;
    }
    if (typed == denyKey_) {
        startDeny(now);
        return Outcome::stay;
    }
    switch (key.character) {
    case 'j':
        move(1);
        break;
    case 'k':
        move(-1);
        break;
    case 'r':
        startReply(now);
        break;
    case 's':
        letStop(now);
        break;
    case 'a':
        startAlways(now);
        break;
    case 't':
        openTranscript(now);
        break;
    case 'h':
        writeHandoff(now);
        break;
    case 'p':
        togglePause(now);
        break;
    case 'x':
        startForget(now);
        break;
    case ',':
        openSettings(now);
        break;
    case 'e':
        askToEnd(now);
        break;
    case 'g':
        goToAgent(now);
        break;
    case 'u':
        openUsage(now);
        break;
    case '?':
        mode_ = Mode::help;
        break;
    case 'q':
        if (heldCount_ == 0 || quitting_ == Quitting::leavesRequestsHeld)
            return Outcome::quit;
        mode_ = Mode::confirmQuit;
        break;
    default:
        break;
    }
    return Outcome::stay;
}

void ScreenController::showResult(const ControlResult& result, Date now) {
    showMessage(result.sentence, result.isDone() ? Tone::success : Tone::warning, now);
}

void ScreenController::togglePause(Date now) {
    if (!controls_) {
        showMessage("Pausing is not available here.", Tone::warning, now);
        return;
    }
    const ControlResult result =
        settings_.gating.paused ? controls_->resume() : controls_->pause(std::nullopt);
    // Shown at once, before the settings file is read again.
    if (result.isDone()) {
        settings_.gating.paused = !settings_.gating.paused;
        settings_.gating.pausedUntil.reset();
    }
    showResult(result, now);
}

void ScreenController::startForget(Date now) {
    const Session* session = selected();
    if (!session) {
        showMessage("No session is selected.", Tone::warning, now);
        return;
    }
    if (!controls_) {
        showMessage("Forgetting sessions is not available here.", Tone::warning, now);
        return;
    }
    forgetKey_ = session->key;
    mode_ = Mode::confirmForget;
}

void ScreenController::openSettings(Date now) {
    if (!controls_) {
        showMessage("Settings are not available here.", Tone::warning, now);
        return;
    }
    settingsView_.emplace();
    mode_ = Mode::settings;
}

void ScreenController::returnToTop() {
    pinned_.reset();
    selected_ = 0;
}

void ScreenController::move(long rows) {
    if (sessions_.empty())
        return;
    const long last = static_cast<long>(sessions_.size()) - 1;
    selected_ = static_cast<std::size_t>(std::clamp(static_cast<long>(selected_) + rows, 0L, last));
    pinned_ = sessions_[selected_].key;
}

const PendingRequest* ScreenController::held(PendingKind kind) const {
    const Session* session = selected();
    if (!session)
        return nullptr;
    for (const PendingRequest& request : session->pending)
        if (request.kind == kind)
            return &request;
    return nullptr;
}

const PendingRequest* ScreenController::heldOrExplain(PendingKind kind, Date now) {
    if (const PendingRequest* request = held(kind))
        return request;
    const Session* session = selected();
    if (!session)
        showMessage("No session is selected.", Tone::warning, now);
    else if (kind == PendingKind::permission)
        showMessage(SessionText::noPermissionRequest(agentName(*session)), Tone::warning, now);
    else
        showMessage(SessionText::noReplyWaiting(agentName(*session)), Tone::warning, now);
    return nullptr;
}

void ScreenController::allow(Date now) {
    const PendingRequest* request = heldOrExplain(PendingKind::permission, now);
    if (!request)
        return;
    const std::string title = request->title;
    if (actions_.answerPermission(selected()->key, SessionActions::Answer::allow, std::nullopt)) {
        showMessage("Allowed: " + title, Tone::success, now);
        returnToTop();
    } else
        showMessage(std::string(SessionText::alreadyEnded), Tone::warning, now);
}

void ScreenController::openLine(Mode mode) {
    target_ = selected()->key;
    input_.clear();
    mode_ = mode;
    if (draft_ && draft_->session == *target_ && draft_->mode == mode) {
        input_ = std::move(draft_->text);
        draft_.reset();
    }
}

void ScreenController::startDeny(Date now) {
    if (heldOrExplain(PendingKind::permission, now))
        openLine(Mode::denyMessage);
}

void ScreenController::startReply(Date now) {
    const Session* session = selected();
    if (!session) {
        showMessage("No session is selected.", Tone::warning, now);
        return;
    }
    // A session holding nothing is continued with the agent's own program instead,
    // once the user agrees; one in the middle of a turn is left alone.
    continuing_ = !held(PendingKind::reply);
    if (continuing_) {
        const bool permission = held(PendingKind::permission) != nullptr;
        if (permission || session->status == SessionStatus::working) {
            showMessage(SessionText::busyNow(session->key.agent, permission), Tone::warning, now);
            return;
        }
    }
    openLine(Mode::reply);
}

void ScreenController::askToEnd(Date now) {
    const Session* session = selected();
    if (!session) {
        showMessage("No session is selected.", Tone::warning, now);
        return;
    }
    if (session->status == SessionStatus::ended) {
        showMessage(SessionText::alreadyOver(session->key.agent), Tone::warning, now);
        return;
    }
    target_ = session->key;
    confirming_ = Confirming::end;
    question_ = "End this " + agentName(*session) + " session? Its agent is interrupted.";
    mode_ = Mode::confirmAction;
}

void ScreenController::confirmed(const Key& key, Date now) {
    mode_ = Mode::browse;
    const bool yes =
        key.kind == Key::Kind::character && (key.character == 'y' || key.character == 'Y');
    if (!yes || !target_) {
        showMessage("Nothing was started or ended.", Tone::info, now);
        return;
    }
    const SessionActions::Result result = confirming_ == Confirming::end
                                              ? actions_.endSession(*target_)
                                              : actions_.continueSession(*target_, continueText_);
    showMessage(result.sentence, result.done ? Tone::success : Tone::warning, now);
}

void ScreenController::goToAgent(Date now) {
    const Session* session = selected();
    if (!session) {
        showMessage("No session is selected.", Tone::warning, now);
        return;
    }
    if (session->tmuxPane && session->tmuxSocket && paneSwitch_ &&
        paneSwitch_(*session->tmuxSocket, *session->tmuxPane))
        return;
    showMessage(SessionText::runsIn(session->key.agent, session->tmuxPane, session->hostApp),
                Tone::info, now);
}

void ScreenController::letStop(Date now) {
    if (!heldOrExplain(PendingKind::reply, now))
        return;
    const Session* session = selected();
    if (actions_.letStop(session->key)) {
        showMessage("Let " + agentName(*session) + " stop.", Tone::success, now);
        returnToTop();
    } else
        showMessage(std::string(SessionText::alreadyEnded), Tone::warning, now);
}

void ScreenController::typeInto(const Key& key, Date now) {
    switch (key.kind) {
    case Key::Kind::escape:
        mode_ = Mode::browse;
        input_.clear();
        offer_.reset();
        return;
    case Key::Kind::backspace:
        UTF8::removeLast(input_);
        return;
    case Key::Kind::enter:
        if (mode_ == Mode::alwaysRule)
            sendAlways(now);
        else if (mode_ == Mode::denyMessage)
            sendDeny(now);
        else if (!input_.empty())
            sendReply(input_, now);
        return;
    case Key::Kind::character:
        break;
    default:
        return;
    }
    // On an empty reply line a number picks that quick reply and sends it at once.
    if (mode_ == Mode::reply && input_.empty() && key.character >= '1' && key.character <= '9') {
        const std::size_t index = key.character - '1';
        if (index < quickReplies_.size())
            sendReply(quickReplies_[index], now);
        return;
    }
    if (key.character < ' ' || key.character == 0x7F)
        return;
    appendUTF8(input_, key.character);
}

void ScreenController::sendDeny(Date now) {
    mode_ = Mode::browse;
    std::optional<std::string> message;
    if (!input_.empty())
        message = input_;
    input_.clear();
    if (!target_)
        return;
    if (actions_.answerPermission(*target_, SessionActions::Answer::deny, std::move(message))) {
        showMessage("Denied.", Tone::success, now);
        returnToTop();
    } else
        showMessage(std::string(SessionText::alreadyEnded), Tone::warning, now);
}

void ScreenController::sendReply(std::string text, Date now) {
    mode_ = Mode::browse;
    input_.clear();
    if (!target_)
        return;
    const std::string agent(displayName(target_->agent));
    if (continuing_) {
        continueText_ = std::move(text);
        confirming_ = Confirming::continueSession;
        question_ = "Start " + agent + " to continue this session with your reply?";
        const Session* session = selected();
        // An agent still open in its own window would not see the turn started here.
        if (session && session->key == *target_ && session->status != SessionStatus::ended &&
            session->agentPid)
            question_ += " " + SessionText::openElsewhere(target_->agent);
        mode_ = Mode::confirmAction;
        return;
    }
    if (actions_.reply(*target_, text)) {
        showMessage("Sent to " + agent + ": " + text, Tone::success, now);
        returnToTop();
    } else
        showMessage(std::string(SessionText::alreadyEnded), Tone::warning, now);
}

std::optional<AgentKind> ScreenController::targetAgent() const {
    return target_ ? std::optional(target_->agent) : std::nullopt;
}

void ScreenController::startAlways(Date now) {
    const PendingRequest* request = heldOrExplain(PendingKind::permission, now);
    if (!request)
        return;
    if (request->isQuestion()) {
        showMessage("A question is answered, not always allowed: press a number, or " + allowKey_ +
                        " to answer.",
                    Tone::warning, now);
        return;
    }
    if (selected()->key.agent == AgentKind::codex) {
        showMessage(std::string(SessionText::codexKeepsNoRule), Tone::warning, now);
        return;
    }
    target_ = selected()->key;
    offer_ = request->alwaysAllow;
    input_ = offer_ && offer_->isEditable() ? offer_->text : "";
    mode_ = Mode::alwaysRule;
}

void ScreenController::sendAlways(Date now) {
    mode_ = Mode::browse;
    // An editable offer sends the line as it stands (emptied, it is refused); otherwise an
    // empty line keeps what the agent suggested.
    std::optional<std::string> rule;
    if (!input_.empty() || (offer_ && offer_->isEditable()))
        rule = input_;
    input_.clear();
    offer_.reset();
    if (!target_)
        return;
    const SessionActions::Delivery delivery = actions_.allowAlways(*target_, rule);
    switch (delivery.kind) {
    case SessionActions::Delivery::Kind::delivered:
        showMessage("Always allowed: " + delivery.sentence, Tone::success, now);
        returnToTop();
        return;
    case SessionActions::Delivery::Kind::nothingHeld:
        showMessage(std::string(SessionText::alreadyEnded), Tone::warning, now);
        return;
    case SessionActions::Delivery::Kind::refused:
    case SessionActions::Delivery::Kind::badAnswer:
        showMessage(delivery.sentence, Tone::warning, now);
        return;
    }
}

bool ScreenController::startQuestion() {
    const PendingRequest* request = held(PendingKind::permission);
    if (!request || !request->isQuestion())
        return false;
    target_ = selected()->key;
    form_.emplace(request->questions);
    mode_ = Mode::question;
    return true;
}

void ScreenController::answerKey(const Key& key, Date now) {
    const QuestionForm::Step step = form_->handle(key);
    if (step == QuestionForm::Step::editing)
        return;
    const std::vector<std::string> answers = form_->answers();
    form_.reset();
    mode_ = Mode::browse;
    if (step == QuestionForm::Step::cancelled || !target_)
        return;
    const SessionActions::Delivery delivery = actions_.answerQuestions(*target_, answers);
    switch (delivery.kind) {
    case SessionActions::Delivery::Kind::delivered:
        showMessage("Answered: " + delivery.sentence, Tone::success, now);
        returnToTop();
        return;
    case SessionActions::Delivery::Kind::nothingHeld:
        showMessage(std::string(SessionText::alreadyEnded), Tone::warning, now);
        return;
    case SessionActions::Delivery::Kind::refused:
    case SessionActions::Delivery::Kind::badAnswer:
        showMessage(delivery.sentence, Tone::warning, now);
        return;
    }
}

} // namespace tidewick
