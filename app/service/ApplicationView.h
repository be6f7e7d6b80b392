// The running application as an interface sees it: its sessions and held
// requests, the settings, the user's decisions, and word of every change and
// alert. The terminal interface works on it alike whether the application
// runs in its own process or in another one it is attached to.
#pragma once

#include "foundation/TidewickPaths.h"
#include "service/Alert.h"
#include "service/ApplicationControls.h"
#include "service/SessionActions.h"
#include "service/TidewickSettings.h"
#include "sessions/SessionStore.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tidewick {

class ApplicationView : public SessionActions, public ApplicationControls {
public:
    /// Where the application runs, seen from the interface.
    enum class Location {
        /// In the interface's own process: quitting the interface stops it, and every
        /// request it holds gets its time-out answer.
        inProcess,
        /// In another process: interfaces come and go, held requests stay held.
        attached,
    };

    /// Whether an attached view is in touch with the application.
    enum class Connection {
        /// The application went away; the view lists nothing until it is back.
        lost,
        /// The application is there again; its sessions may differ entirely.
        restored,
    };

    /// What a watcher is told; any of them may be empty. They are called on the view's own
    /// threads and must neither block nor call watch() or unwatch().
    struct Watcher {
        /// A change of the sessions, in the order they changed.
        std::function<void(const StoreChange&)> changed = {};
        /// Something the user should notice, told after the change that lists its request.
        std::function<void(const Alert&)> alerted = {};
        /// Attached views only: the connection was lost or restored, with a sentence for
        /// the user saying so.
        std::function<void(Connection, const std::string& sentence)> connection = {};
    };

    using WatchId = std::uint64_t;

    struct Watch {
        /// What unwatch() takes.
        WatchId id = 0;
        /// The sessions as they stood just before the first change the watcher is told.
        std::vector<Session> sessions;
    };

    /// Starts telling `watcher` about every change and alert from now on, and returns the
    /// sessions it starts from. Thread-safe.
    [[nodiscard]] virtual Watch watch(Watcher watcher) = 0;
    /// Stops telling the watcher `id`: once this returns, no call to it is running or will
    /// begin. An unknown id is ignored.
    virtual void unwatch(WatchId id) = 0;
    /// The settings in force now.
    [[nodiscard]] virtual TidewickSettings settings() = 0;
    /// Records how far the session's transcript has been read (its transcriptStep).
    /// Nothing happens for an unknown session, or when it cannot be recorded.
    virtual void setTranscriptStep(const SessionKey& session, std::int64_t step) = 0;
    /// Where the application's files are: the same for every interface of one user.
    [[nodiscard]] virtual const TidewickPaths& paths() const = 0;
    [[nodiscard]] virtual Location location() const = 0;
};

} // namespace tidewick
