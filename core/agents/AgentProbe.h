// Which agents still run: finds the sessions whose agent process went away
// without ending them, and those shown as working whose record says the turn
// is over. Meant to run every few seconds, not per event.
#pragma once

#include "agents/ProcessAccess.h"
#include "foundation/Clock.h"
#include "sessions/Session.h"
#include "transcripts/TranscriptLocations.h"

#include <cstdint>
#include <map>
#include <vector>

namespace tidewick {

class AgentProbe {
public:
    /// Something a check found that the session does not show yet.
    struct Finding {
        enum class Kind {
            /// The agent process `pid` is gone, or its pid now belongs to another program.
            exited,
            /// The agent's record shows its turn finished.
            turnFinished,
        };
        Kind kind = Kind::exited;
        SessionKey key;
        std::int32_t pid = 0;

        friend bool operator==(const Finding&, const Finding&) = default;
    };

    /// A session's record is read only when it has been quiet this long: an event on its
    /// way tells more than the record.
    static constexpr double quietSeconds = 5;

    /// Checks processes through `processes` and finds records under `locations`; both
    /// must outlive the probe.
    AgentProbe(const ProcessAccess& processes, TranscriptLocations locations);

    /// Looks at `sessions` at `now`: one small process read per session not yet ended
    /// whose agent process is known, and a read of the record of a quiet session shown
    /// as working with nothing held, only when the record has grown since it was last
    /// read. Not thread-safe: one caller at a time.
    [[nodiscard]] std::vector<Finding> check(const std::vector<Session>& sessions, Date now);

private:
    [[nodiscard]] bool turnFinished(const Session& session);

    const ProcessAccess& processes_;
    TranscriptLocations locations_;
    /// The size of each session's record when it was last read.
    std::map<SessionKey, std::int64_t> sizeRead_;
};

} // namespace tidewick
