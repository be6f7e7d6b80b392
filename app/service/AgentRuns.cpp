#include "service/AgentRuns.h"

#include "foundation/File.h"

#include <chrono>

namespace tidewick {

namespace {

// How often running programs are looked at: the first status soon after they end.
constexpr auto reapInterval = std::chrono::milliseconds(100);

// A file name from a session identifier, whatever it holds.
std::string fileSafe(std::string_view text) {
    std::string name;
    for (char c : text)
        name += (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.') ? c : '_';
    return name;
}

} // namespace

AgentRuns::AgentRuns(std::string logFolder, Ended ended)
    : logFolder_(std::move(logFolder)), ended_(std::move(ended)),
      thread_([this] { watch(); }) {}

AgentRuns::~AgentRuns() {
    {
        std::lock_guard guard(lock_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

std::string AgentRuns::logPath(const SessionKey& session) const {
    return File::join(logFolder_, "continue-" + std::string(rawValue(session.agent)) + "-" +
                                      fileSafe(session.sessionId) + ".log");
}

void AgentRuns::start(const SessionKey& session, const Subprocess::Command& command) {
    File::makeDirectories(logFolder_, 0700);
    const std::string log = logPath(session);
    Subprocess process = Subprocess::start(command, log, log);
    {
        std::lock_guard guard(lock_);
        runs_.push_back({session, std::move(process)});
    }
    wake_.notify_all();
}

std::size_t AgentRuns::running() const {
    std::lock_guard guard(lock_);
    return runs_.size();
}

void AgentRuns::watch() {
    std::unique_lock guard(lock_);
    for (;;) {
        wake_.wait(guard, [this] { return stopping_ || !runs_.empty(); });
        if (stopping_)
            return;
        std::vector<std::pair<SessionKey, int>> ended;
        std::erase_if(runs_, [&ended](Run& run) {
            std::optional<int> status;
            try {
                status = run.process.wait(std::chrono::milliseconds(0));
            } catch (const std::exception&) {
                status = -1; // Cannot be waited for: nothing more to learn about it.
            }
            if (status)
                ended.emplace_back(run.session, *status);
            return status.has_value();
        });
        guard.unlock();
        for (const auto& [session, status] : ended)
            ended_(session, status, logPath(session));
        guard.lock();
        wake_.wait_for(guard, reapInterval, [this] { return stopping_; });
    }
}

} // namespace tidewick
