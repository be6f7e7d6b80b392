// Turns a burst of changes into one save, made a short while after the first
// change of the burst.
#pragma once

#include "foundation/Scheduler.h"

#include <functional>
#include <memory>
#include <mutex>

namespace tidewick {

/// Thread-safe. Saves never overlap: a flush waits for a scheduled save that is running.
/// The scheduler must outlive the saver; a save scheduled when the saver is destroyed
/// is dropped (call flush() first to keep it).
class DebouncedSaver {
public:
    /// The delay between the first change of a burst and its save.
    static constexpr double defaultDelay = 1.5;

    /// Calls `save` on `scheduler`'s thread `delaySeconds` after the first noted change.
    DebouncedSaver(std::function<void()> save, Scheduler& scheduler,
                   double delaySeconds = defaultDelay);
    ~DebouncedSaver();
    DebouncedSaver(const DebouncedSaver&) = delete;
    DebouncedSaver& operator=(const DebouncedSaver&) = delete;

    /// Notes that something changed: schedules a save unless one is already scheduled.
    void noteChange();
    /// Saves at once on the calling thread (stopping, erasing the history); a save already
    /// scheduled is then skipped, since this one covers its changes.
    void flush();
    /// Whether a save is scheduled and has not yet run.
    [[nodiscard]] bool isScheduled() const;

private:
    // Shared with the scheduled task, which may outlive the saver in the scheduler's queue.
    struct State {
        std::function<void()> save;
        std::mutex mutex;
        bool scheduled = false;
        /// Incremented by flush() so that a task scheduled before it does nothing.
        unsigned long generation = 0;
        bool alive = true;
        /// Held while saving, so two saves never overlap.
        std::mutex saving;
    };

    static void runScheduled(const std::shared_ptr<State>& state, unsigned long generation);

    std::shared_ptr<State> state_;
    Scheduler& scheduler_;
    double delay_;
};

} // namespace tidewick
