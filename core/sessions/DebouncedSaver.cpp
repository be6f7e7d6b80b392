#include "sessions/DebouncedSaver.h"

namespace tidewick {

DebouncedSaver::DebouncedSaver(std::function<void()> save, Scheduler& scheduler,
                               double delaySeconds)
    : state_(std::make_shared<State>()), scheduler_(scheduler), delay_(delaySeconds) {
    state_->save = std::move(save);
}

DebouncedSaver::~DebouncedSaver() {
    // Wait for a save that is running, then make sure a queued one never starts.
    std::lock_guard saving(state_->saving);
    std::lock_guard guard(state_->mutex);
    state_->alive = false;
}

void DebouncedSaver::noteChange() {
    unsigned long generation;
    {
        std::lock_guard guard(state_->mutex);
        if (state_->scheduled)
            return;
        state_->scheduled = true;
        generation = state_->generation;
    }
    std::weak_ptr<State> weak = state_;
    scheduler_.schedule(delay_, [weak, generation] {
        if (std::shared_ptr<State> state = weak.lock())
            runScheduled(state, generation);
    });
}

void DebouncedSaver::runScheduled(const std::shared_ptr<State>& state, unsigned long generation) {
    std::lock_guard saving(state->saving);
    {
        std::lock_guard guard(state->mutex);
        if (!state->alive || state->generation != generation)
            return;
        // Cleared before saving: a change during the save schedules the next one.
        state->scheduled = false;
    }
    state->save();
}

void DebouncedSaver::flush() {
    std::lock_guard saving(state_->saving);
    {
        std::lock_guard guard(state_->mutex);
        state_->scheduled = false;
        ++state_->generation;
    }
    state_->save();
}

bool DebouncedSaver::isScheduled() const {
    std::lock_guard guard(state_->mutex);
    return state_->scheduled;
}

} // namespace tidewick
