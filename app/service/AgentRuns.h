// The agent programs Tidewick starts to continue sessions: each runs in a
// process group of its own with its output in a log file, and is reaped when
// it ends so that none is left behind as a zombie.
#pragma once

#include "foundation/Subprocess.h"
#include "sessions/Session.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tidewick {

class AgentRuns {
public:
    /// Told, on the runs' own thread, that the program started for `session` ended with
    /// `status` (as Subprocess::Result has it); `log` holds its output.
    using Ended = std::function<void(const SessionKey& session, int status, const std::string& log)>;

    /// Log files go into `logFolder` (made with mode 0700 when needed).
    AgentRuns(std::string logFolder, Ended ended);
    /// Stops watching; programs still running go on by themselves.
    ~AgentRuns();
    AgentRuns(const AgentRuns&) = delete;
    AgentRuns& operator=(const AgentRuns&) = delete;

    /// The log file of the program continuing `session`.
    [[nodiscard]] std::string logPath(const SessionKey& session) const;
    /// Starts `command` for `session`, its output (both streams) replacing the session's
    /// log. Throws SystemError naming the call that failed.
    void start(const SessionKey& session, const Subprocess::Command& command);
    /// How many started programs still run (or are not yet reaped).
    [[nodiscard]] std::size_t running() const;

private:
    struct Run {
        SessionKey session;
        Subprocess process;
    };
    void watch();

    std::string logFolder_;
    Ended ended_;
    mutable std::mutex lock_;
    std::condition_variable wake_;
    std::vector<Run> runs_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace tidewick
