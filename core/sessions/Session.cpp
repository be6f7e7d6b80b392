#include "sessions/Session.h"

#include "foundation/JSONCoding.h"

namespace tidewick {

void writeJSON(JSONWriter& out, const SessionKey& key) {
    out.beginObject();
    out.member("agent", key.agent);
    out.member("sessionId", key.sessionId);
    out.endObject();
}

bool readJSON(JSONReader& in, SessionKey& out) {
    return readObject(in, JSONMember::required("agent", out.agent),
                      JSONMember::required("sessionId", out.sessionId));
}

void writeJSON(JSONWriter& out, const Session& s) {
    out.beginObject();
    out.member("key", s.key);
    out.member("projectPath", s.projectPath);
    out.member("title", s.title);
    out.member("status", s.status);
    out.member("startedAt", s.startedAt);
    out.member("lastActivityAt", s.lastActivityAt);
    out.member("endedAt", s.endedAt);
    out.member("currentAction", s.currentAction);
    out.member("lastMessage", s.lastMessage);
    out.member("transcriptPath", s.transcriptPath);
    out.member("model", s.model);
    out.member("hostApp", s.hostApp);
    out.member("agentPid", s.agentPid);
    out.member("agentStartTime", s.agentStartTime);
    out.member("tmuxPane", s.tmuxPane);
    out.member("tmuxSocket", s.tmuxSocket);
    out.member("interruptedAt", s.interruptedAt);
    out.member("endedByYouAt", s.endedByYouAt);
    out.member("userMessagesAtEnd", s.userMessagesAtEnd);
    out.member("sentBeforeEnd", s.sentBeforeEnd);
    out.member("transcriptStep", s.transcriptStep);
    out.member("pending", s.pending);
    out.member("timeline", s.timeline);
    out.endObject();
}

bool readJSON(JSONReader& in, Session& out) {
    using M = JSONMember;
    return readObject(
        in, M::required("key", out.key), M::optional("projectPath", out.projectPath),
        M::optional("title", out.title), M::required("status", out.status),
        M::required("startedAt", out.startedAt), M::required("lastActivityAt", out.lastActivityAt),
        M::optional("endedAt", out.endedAt), M::optional("currentAction", out.currentAction),
        M::optional("lastMessage", out.lastMessage),
        M::optional("transcriptPath", out.transcriptPath), M::optional("model", out.model),
        M::optional("hostApp", out.hostApp), M::optional("agentPid", out.agentPid),
        M::optional("agentStartTime", out.agentStartTime), M::optional("tmuxPane", out.tmuxPane),
        M::optional("tmuxSocket", out.tmuxSocket),
        M::optional("interruptedAt", out.interruptedAt),
        M::optional("endedByYouAt", out.endedByYouAt),
        M::optional("userMessagesAtEnd", out.userMessagesAtEnd),
        M::optional("sentBeforeEnd", out.sentBeforeEnd),
        M::optional("transcriptStep", out.transcriptStep), M::required("pending", out.pending),
        M::required("timeline", out.timeline));
}

} // namespace tidewick
