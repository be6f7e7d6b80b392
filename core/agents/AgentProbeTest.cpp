#include "agents/AgentProbe.h"
#include "agents/FakeProcesses.h"

#include "foundation/File.h"
#include "testing/TemporaryDirectory.h"

#include <gtest/gtest.h>

using namespace tidewick;
using tidewick::testing::FakeProcesses;
using Kind = AgentProbe::Finding::Kind;

namespace {

const std::string userLine =
    R"({"type":"user","message":{"role":"user","content":"run the tests"}})"
    "\n";
const std::string toolLine =
    R"({"type":"assistant","message":{"stop_reason":"tool_use","content":[{"type":"tool_use","id":"t1","name":"Bash","input":{"command":"sleep 60"}}]}})"
    "\n";
const std::string doneLine =
    R"({"type":"assistant","message":{"stop_reason":"end_turn","content":[{"type":"text","text":"Done."}]}})"
    "\n";

Session session(const std::string& id, SessionStatus status, std::optional<std::int32_t> pid,
                Date lastActivity) {
    Session s;
    s.key = SessionKey{AgentKind::claude, id};
    s.status = status;
    s.agentPid = pid;
    s.agentStartTime = 7;
    s.startedAt = s.lastActivityAt = lastActivity;
    return s;
}

} // namespace

TEST(AgentProbeTest, FindsAgentsGoneAndTurnsOverThatNoEventTold) {
    TemporaryDirectory home;
    FakeProcesses processes;
    for (std::int32_t pid : {1, 2, 3, 4, 5})
        processes.add(pid, {7, "/bin/claude", {"claude"}});
    processes.add(6, {8, "/bin/vim", {"vim"}}); // pid 6 was reused after the agent ended
    AgentProbe probe(processes, TranscriptLocations(home.path()));
    const Date now = dateFromSeconds(1'800'000'000);
    const Date quiet = addSeconds(now, -AgentProbe::quietSeconds);

    const std::string record = home.path() + "/w.jsonl";
    File::writeAtomically(record, userLine + toolLine, 0600);
    Session working = session("working", SessionStatus::working, 1, quiet);
    working.transcriptPath = record;
    Session busy = working; // the same record, but an event came just now
    busy.key.sessionId = "busy";
    busy.lastActivityAt = now;
    std::vector<Session> sessions = {
        working,
        busy,
        session("idle", SessionStatus::idle, 2, quiet),
        session("gone", SessionStatus::waitingReply, 9, quiet),
        session("reused", SessionStatus::finished, 6, quiet),
        session("ended", SessionStatus::ended, 9, quiet),
        session("unknown", SessionStatus::working, std::nullopt, quiet),
    };
    using F = AgentProbe::Finding;
    EXPECT_EQ(probe.check(sessions, now),
              (std::vector<F>{{Kind::exited, {AgentKind::claude, "gone"}, 9},
                              {Kind::exited, {AgentKind::claude, "reused"}, 6}}))
        << "the long tool call still runs";

    // The turn ends in the record without a Stop event reaching Tidewick.
    File::writeAtomically(record, userLine + toolLine + doneLine, 0600);
    sessions.resize(2);
    EXPECT_EQ(probe.check(sessions, now),
              (std::vector<F>{{Kind::turnFinished, working.key, 1}}));
    EXPECT_TRUE(probe.check(sessions, now).empty())
        << "a record that has not grown is not read again";

    // The agent dies during the turn: gone wins over the record.
    File::writeAtomically(record, userLine + toolLine + doneLine + userLine, 0600);
    processes.remove(1);
    EXPECT_EQ(probe.check(sessions, now),
              (std::vector<F>{{Kind::exited, working.key, 1}, {Kind::exited, busy.key, 1}}));
}
