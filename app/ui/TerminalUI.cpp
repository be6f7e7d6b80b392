#include "TerminalUI.h"

#include "Alerts.h"
#include "FileTranscriptAccess.h"
#include "Layout.h"
#include "ScreenController.h"
#include "agents/AgentCommand.h"
#include "UsageAccess.h"
#include "foundation/FileDescriptor.h"
#include "foundation/Subprocess.h"
#include "presentation/Avatar.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <curses.h>
#include <langinfo.h>
#include <memory>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

namespace tidewick {

namespace {

using Milliseconds = std::chrono::milliseconds;

// Shows tmux pane `pane` in this terminal, when the interface runs inside that same tmux
// server; false otherwise or when tmux refuses.
bool switchToTmuxPane(const std::string& socket, const std::string& pane) {
    const char* tmux = std::getenv("TMUX");
    const char* path = std::getenv("PATH");
    if (!tmux || std::string_view(tmux).substr(0, std::string_view(tmux).find(',')) != socket)
        return false;
    const std::optional<std::string> program = AgentCommand::findOnPath("tmux", path ? path : "");
    if (!program)
        return false;
    try {
        return Subprocess::run({{*program, "-S", socket, "switch-client", "-t", pane}},
                               Subprocess::Group::shared, std::chrono::seconds(3))
                   .status == 0;
    } catch (const std::exception&) {
        return false;
    }
}

/// Redraws caused by a burst of changes are spaced at least this far apart; keys are
/// answered at once.
constexpr Milliseconds minimumRedrawInterval{40};
/// How often the header's usage figures are read again from the agents' files.
constexpr std::chrono::seconds usageInterval{10};

/// What other threads hand the UI loop: the application's changes, alerts and connection.
/// Shared with the watcher, so it is reference-counted and goes quiet once closed.
class Mailbox {
public:
    Mailbox() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!fd_)
            throw std::runtime_error(
                std::string("Tidewick couldn't start its interface: eventfd: ") +
                std::strerror(errno));
    }

    int fd() const { return fd_.get(); }

    void markChanged() {
        std::lock_guard guard(lock_);
        if (closed_)
            return;
        changed_ = true;
        ring();
    }
    void post(Alert alert) {
        std::lock_guard guard(lock_);
        if (closed_)
            return;
        alerts_.push_back(std::move(alert));
        ring();
    }
    void connection(ApplicationView::Connection connection, std::string sentence) {
        std::lock_guard guard(lock_);
        if (closed_)
            return;
        connections_.emplace_back(connection, std::move(sentence));
        changed_ = true;
        ring();
    }
    void close() {
        std::lock_guard guard(lock_);
        closed_ = true;
    }

    struct Contents {
        bool changed = false;
        std::vector<Alert> alerts;
        std::vector<std::pair<ApplicationView::Connection, std::string>> connections;
    };
    Contents take() {
        std::uint64_t count = 0;
        (void)!::read(fd_.get(), &count, sizeof count);
        std::lock_guard guard(lock_);
        Contents contents{changed_, std::move(alerts_), std::move(connections_)};
        changed_ = false;
        alerts_.clear();
        connections_.clear();
        return contents;
    }

private:
    void ring() {
        const std::uint64_t one = 1;
        (void)!::write(fd_.get(), &one, sizeof one);
    }

    const FileDescriptor fd_;
    std::mutex lock_;
    bool closed_ = false;
    bool changed_ = true;
    std::vector<Alert> alerts_;
    std::vector<std::pair<ApplicationView::Connection, std::string>> connections_;
};

/// Curses on standard input and output for the lifetime of the object.
class CursesScreen {
public:
    explicit CursesScreen(Palette::ColourRequest colours) {
        useUTF8();
        screen_ = ::newterm(nullptr, stdout, stdin);
        if (!screen_)
            throw std::runtime_error("Tidewick couldn't use this terminal (is TERM set?).");
        ::set_term(screen_);
        ::cbreak();
        ::noecho();
        ::nonl();
        ::keypad(stdscr, TRUE);
        ::nodelay(stdscr, TRUE);
        ::set_escdelay(25);
        ::curs_set(0);
        // Colours are started only when wanted: asked for none, the terminal keeps its own.
        const char* noColor = std::getenv("NO_COLOR");
        if (::has_colors() && Palette::depthFor(256, colours, noColor) != Palette::Depth::none) {
            ::start_color();
            ::use_default_colors();
            palette_ = Palette(Palette::depthFor(COLORS, colours, noColor));
            if (palette_.depth() != Palette::Depth::none)
                definePairs();
        }
    }
    ~CursesScreen() {
        ::endwin();
        ::delscreen(screen_);
    }
    CursesScreen(const CursesScreen&) = delete;
    CursesScreen& operator=(const CursesScreen&) = delete;

    int width() const { return COLS; }
    int height() const { return LINES; }

    /// Draws `frame` over the previous one. erase() only clears curses' picture of the
    /// screen; refresh() then sends just the cells that differ, so nothing flickers.
    void draw(const Frame& frame) {
        ::erase();
        for (int row = 0; row < frame.height && row < static_cast<int>(frame.lines.size()); ++row) {
            ::move(row, 0);
            for (const Segment& segment : frame.lines[static_cast<std::size_t>(row)]) {
                ::attrset(attributes(segment.style) | (segment.reverse ? A_REVERSE : A_NORMAL));
                // The bottom-right cell makes addstr report an error after writing it.
                (void)::addstr(segment.text.c_str());
            }
        }
        ::attrset(A_NORMAL);
        cursor_ = frame.cursor;
        placeCursor();
        ::refresh();
    }

    /// Draws only `cells` over what is on screen: an animation step costs a few cells.
    void draw(const AvatarCells& cells) {
        for (std::size_t row = 0; row < cells.lines.size(); ++row) {
            ::move(cells.row + static_cast<int>(row), cells.column);
            for (const Segment& segment : cells.lines[row]) {
                ::attrset(attributes(segment.style) | (segment.reverse ? A_REVERSE : A_NORMAL));
                (void)::addstr(segment.text.c_str());
            }
        }
        ::attrset(A_NORMAL);
        placeCursor();
        ::refresh();
    }

    void bell() { ::beep(); }

private:
    static void useUTF8() {
        std::setlocale(LC_ALL, "");
        const char* codeset = ::nl_langinfo(CODESET);
        if (!codeset || std::strcmp(codeset, "UTF-8") != 0)
            std::setlocale(LC_CTYPE, "C.UTF-8");
    }

    void placeCursor() {
        if (cursor_) {
            ::curs_set(1);
            ::move(cursor_->first, cursor_->second);
        } else {
            ::curs_set(0);
        }
    }

    // One pair per status colour (the tints, from 1 on), then the others.
    static constexpr short firstTintPair = 1;
    enum Pair : short {
        cyan = firstTintPair + static_cast<short>(allTints.size()),
        chip,
        risk,
        banner
    };

    void definePairs() {
        for (Tint tint : allTints)
            ::init_pair(tintPair(tint), palette_.look(tint).colour.value_or(-1), -1);
        const short amber = palette_.look(Tint::needsYou).colour.value_or(COLOR_YELLOW);
        ::init_pair(cyan, COLOR_CYAN, -1);
        ::init_pair(chip, COLOR_BLACK, amber);
        ::init_pair(risk, COLOR_WHITE, palette_.look(Tint::error).colour.value_or(COLOR_RED));
        ::init_pair(banner, COLOR_BLACK, amber);
    }

    static short tintPair(Tint tint) {
        return static_cast<short>(firstTintPair + static_cast<short>(tint));
    }

    bool hasColours() const { return palette_.depth() != Palette::Depth::none; }
    attr_t colour(short pair) const { return hasColours() ? COLOR_PAIR(pair) : A_NORMAL; }

    /// A status colour with its weight, as the palette gives it for this terminal.
    attr_t tint(Tint tint) const {
        const Palette::Look look = palette_.look(tint);
        attr_t attributes = look.colour ? colour(tintPair(tint)) : A_NORMAL;
        if (look.bold)
            attributes |= A_BOLD;
        if (look.dim)
            attributes |= A_DIM;
        return attributes;
    }

    /// A coloured block, or reverse video without colours.
    attr_t block(short pair) const { return (hasColours() ? colour(pair) : A_REVERSE) | A_BOLD; }

    attr_t attributes(Style style) const {
        switch (style) {
        case Style::plain:
            return A_NORMAL;
        case Style::dim:
        case Style::frame:
            return A_DIM;
        case Style::bold:
        case Style::heading:
            return A_BOLD;
        case Style::glow:
            return tint(Tint::needsYou) | A_BOLD;
        case Style::chip:
            return block(chip);
        case Style::risk:
            return block(risk);
        case Style::banner:
            return block(banner);
        case Style::waiting:
        case Style::needsPermission:
        case Style::waitingReply:
        case Style::warning:
            return tint(Tint::needsYou);
        case Style::expired:
        case Style::error:
            return tint(Tint::error);
        case Style::success:
        case Style::working:
            return tint(Tint::working);
        case Style::finished:
            return tint(Tint::finished);
        case Style::idle:
            return tint(Tint::idle);
        case Style::ended:
            return tint(Tint::ended);
        case Style::key:
            return colour(cyan) | A_BOLD;
        }
        return A_NORMAL;
    }

    SCREEN* screen_ = nullptr;
    Palette palette_{Palette::Depth::none};
    std::optional<std::pair<int, int>> cursor_;
};

std::optional<Key> translate(int kind, wint_t code) {
    if (kind == KEY_CODE_YES) {
        static constexpr std::pair<wint_t, Key::Kind> functionKeys[] = {
            {KEY_UP, Key::Kind::up},        {KEY_DOWN, Key::Kind::down},
            {KEY_PPAGE, Key::Kind::pageUp}, {KEY_NPAGE, Key::Kind::pageDown},
            {KEY_HOME, Key::Kind::home},    {KEY_END, Key::Kind::end},
            {KEY_ENTER, Key::Kind::enter},  {KEY_BACKSPACE, Key::Kind::backspace}};
        for (const auto& [curses, key] : functionKeys)
            if (code == curses)
                return Key::special(key);
        return std::nullopt;
    }
    switch (code) {
    case 27:
        return Key::special(Key::Kind::escape);
    case '\t':
        return Key::special(Key::Kind::tab);
    case '\n':
    case '\r':
        return Key::special(Key::Kind::enter);
    case 8:
    case 127:
        return Key::special(Key::Kind::backspace);
    default:
        return Key::of(static_cast<char32_t>(code));
    }
}

FileDescriptor signalDescriptor(const std::vector<int>& signals) {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : signals)
        sigaddset(&set, signal);
    // Already blocked process-wide by the caller; blocking here too keeps this thread safe.
    (void)::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return FileDescriptor(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

/// When the avatar's next frame is due, for the figure drawn last. Sleeping and single
/// frames are never due: an idle interface then wakes no more often than without it.
class AvatarAnimation {
public:
    explicit AvatarAnimation(const AvatarDefinition& avatar) : avatar_(avatar) {}

    /// What was just drawn at `now`: the figure, or nothing when none shows.
    void drawn(const std::optional<AvatarCells>& cells, Date now) {
        // Plain members rather than optionals: GCC 12 at -O2 misreads those as uninitialised.
        showing_ = cells.has_value();
        pose_ = cells ? cells->pose : AvatarPose::idle;
        const std::optional<Date> next = cells ? avatar_.nextFrameAt(pose_, now) : std::nullopt;
        animating_ = next.has_value();
        due_ = next.value_or(now);
    }
    [[nodiscard]] bool isDue(Date now) const { return animating_ && now >= due_; }
    /// Whether `cells` can be drawn alone over the figure drawn last.
    [[nodiscard]] bool canStep(const std::optional<AvatarCells>& cells) const {
        return showing_ && cells && pose_ == cells->pose;
    }
    /// How long to sleep at most before the next frame (a day when none is due).
    [[nodiscard]] Milliseconds wait(Date now) const {
        if (!animating_)
            return std::chrono::hours(24);
        return std::max(Milliseconds(1), std::chrono::ceil<Milliseconds>(due_ - now));
    }

private:
    const AvatarDefinition& avatar_;
    bool showing_ = false;
    AvatarPose pose_ = AvatarPose::idle;
    bool animating_ = false;
    Date due_{};
};

Milliseconds untilNextSecond(Date now) {
    const auto sinceEpoch = now.time_since_epoch();
    const auto intoSecond = std::chrono::duration_cast<Milliseconds>(
        sinceEpoch - std::chrono::floor<std::chrono::seconds>(sinceEpoch));
    return std::max(Milliseconds(10), Milliseconds(1000) - intoSecond);
}

} // namespace

int runTerminalUI(ApplicationView& application, TerminalUIOptions options) {
    auto mailbox = std::make_shared<Mailbox>();
    const ApplicationView::WatchId watch =
        application
            .watch({.changed = [mailbox](const StoreChange&) { mailbox->markChanged(); },
                    .alerted = [mailbox](const Alert& alert) { mailbox->post(alert); },
                    .connection =
                        [mailbox](ApplicationView::Connection connection,
                                  const std::string& sentence) {
                            mailbox->connection(connection, sentence);
                        }})
            .id;
    struct Cleanup {
        ApplicationView& application;
        ApplicationView::WatchId watch;
        Mailbox& mailbox;
        ~Cleanup() {
            application.unwatch(watch);
            mailbox.close();
        }
    } cleanup{application, watch, *mailbox};

    const FileDescriptor signalsFile = signalDescriptor(options.stopSignals);
    const int signals = signalsFile.get();

    ScreenController controller(application,
                                application.location() == ApplicationView::Location::attached
                                    ? ScreenController::Quitting::leavesRequestsHeld
                                    : ScreenController::Quitting::endsHeldRequests);
    // The records are read here, in the interface's process, wherever the application runs.
    FileTranscriptAccess transcripts(application.paths(),
                                     TranscriptLocations::forHome(application.paths().home()),
                                     [&application](const SessionKey& key, std::int64_t step) {
                                         application.setTranscriptStep(key, step);
                                     });
    controller.setTranscriptAccess(&transcripts);
    controller.setControls(&application);
    controller.setPaneSwitch(switchToTmuxPane);
    FileUsageAccess usage(UsageSources{application.paths().claudeLimitsFile(),
                                       TranscriptLocations::forHome(application.paths().home())});
    controller.setUsageAccess(&usage);
    auto usageReadAt = std::chrono::steady_clock::now() - usageInterval;
    CursesScreen screen(options.colours);
    auto warn = [&controller](const std::string& sentence) {
        controller.showMessage(sentence, ScreenController::Tone::warning, tidewick::now());
    };
    const AvatarDefinition avatar = loadAvatar(application.paths().avatarFile(), warn);
    const Date started = tidewick::now();
    AvatarAnimation animation(avatar);

    auto lastDraw = std::chrono::steady_clock::now() - minimumRedrawInterval;
    bool dirty = true;
    for (;;) {
        Mailbox::Contents mail = mailbox->take();
        const TidewickSettings settings = application.settings();
        controller.setSettings(settings);
        const Date now = tidewick::now();
        if (mail.changed || !mail.alerts.empty()) {
            controller.setSessions(application.sessions(), now);
            dirty = true;
        }
        if (std::chrono::steady_clock::now() - usageReadAt >= usageInterval) {
            controller.setUsage(usage.agents(controller.sessions()));
            usageReadAt = std::chrono::steady_clock::now();
            dirty = true;
        }
        for (auto& [connection, sentence] : mail.connections) {
            if (connection == ApplicationView::Connection::lost) {
                controller.setNotice(std::move(sentence));
            } else {
                controller.setNotice(std::nullopt);
                controller.showMessage(std::move(sentence), ScreenController::Tone::success, now);
            }
        }
        for (const Alert& alert : mail.alerts) {
            // Desktop notifications are the application's own, shown once for every interface.
            AlertEffects effects = alertEffects(alert, settings);
            // Sounds are the application's own, played once for every interface; only
            // where it has none to play does each terminal ring its bell.
            if (effects.bell)
                screen.bell();
            if (effects.glow && alert.requestId)
                controller.glowFor(*alert.requestId);
            if (effects.message)
                controller.showMessage(*effects.message, ScreenController::Tone::warning, now);
            if (alert.kind == Alert::Kind::usageLimit)
                usageReadAt -= usageInterval; // the header shows the new figures at once
            dirty = true;
        }

        wint_t code = 0;
        int kind = 0;
        bool quit = false;
        while (!quit && (kind = ::get_wch(&code)) != ERR) {
            dirty = true;
            if (kind == KEY_CODE_YES && code == KEY_RESIZE)
                continue; // the next draw takes the new size
            if (auto key = translate(kind, code))
                quit =
                    controller.handleKey(*key, tidewick::now()) == ScreenController::Outcome::quit;
        }
        if (quit)
            return 0;

        // After the keys: a key wakes the avatar.
        LayoutOptions layout;
        layout.alertChip = settings.alertChip;
        layout.avatar = settings.avatarEnabled ? &avatar : nullptr;
        layout.awakeSince = std::max(started, controller.lastKeyAt().value_or(started));

        const auto sinceDraw = std::chrono::steady_clock::now() - lastDraw;
        Milliseconds wait = untilNextSecond(tidewick::now());
        if (dirty && sinceDraw < minimumRedrawInterval) {
            wait = std::min(
                wait, std::chrono::duration_cast<Milliseconds>(minimumRedrawInterval - sinceDraw) +
                          Milliseconds(1));
        } else if (dirty) {
            const Date drawnAt = tidewick::now();
            screen.draw(layoutScreen(controller, drawnAt, screen.width(), screen.height(), layout));
            animation.drawn(
                layoutAvatar(controller, drawnAt, screen.width(), screen.height(), layout),
                drawnAt);
            lastDraw = std::chrono::steady_clock::now();
            dirty = false;
            wait = untilNextSecond(tidewick::now());
        }
        const Date secondDue =
            addSeconds(tidewick::now(), static_cast<double>(wait.count()) / 1000);
        wait = std::min(wait, animation.wait(tidewick::now()));

        pollfd fds[3] = {
            {STDIN_FILENO, POLLIN, 0}, {mailbox->fd(), POLLIN, 0}, {signals, POLLIN, 0}};
        const int ready = ::poll(fds, signals >= 0 ? 3 : 2, static_cast<int>(wait.count()));
        if (ready < 0 && errno != EINTR)
            throw std::runtime_error(std::string("Tidewick's interface stopped: poll: ") +
                                     std::strerror(errno));
        if (signals >= 0 && (fds[2].revents & POLLIN))
            return 0;
        if (fds[0].revents & (POLLHUP | POLLERR))
            return 0; // the terminal went away
        if (ready < 0) {
            dirty = true; // the window changed size
        } else if (ready == 0) {
            const Date woke = tidewick::now();
            if (woke >= secondDue) {
                dirty = true; // a second passed: countdowns and ages move on
            } else if (animation.isDue(woke)) {
                // Only the figure changes, unless the pose did (its words change with it).
                const std::optional<AvatarCells> cells =
                    layoutAvatar(controller, woke, screen.width(), screen.height(), layout);
                if (animation.canStep(cells))
                    screen.draw(*cells);
                else
                    dirty = true;
                animation.drawn(cells, woke);
            }
        }
    }
}

} // namespace tidewick
