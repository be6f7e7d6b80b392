#include "control/SessionMatcher.h"

#include "foundation/Text.h"
#include "sessions/ShortIds.h"

namespace tidewick {

std::map<std::string, std::string> shortIdsOf(const std::vector<Session>& known,
                                              const std::vector<std::string>& named) {
    std::vector<std::string_view> ids;
    ids.reserve(known.size());
    for (const Session& session : known)
        ids.push_back(session.key.sessionId);
    const ShortIds shortIds(std::move(ids));
    std::map<std::string, std::string> out;
    for (const std::string& id : named)
        out.emplace(id, shortIds.of(id));
    return out;
}

std::string describeSession(const SessionKey& key,
                            const std::map<std::string, std::string>& shortIds) {
    const auto found = shortIds.find(key.sessionId);
    return std::string(displayName(key.agent)) + " session " +
           (found != shortIds.end() ? found->second : ShortIds({}).of(key.sessionId));
}

SessionMatch matchSession(const std::vector<Session>& sessions, std::string_view query,
                          std::optional<AgentKind> agent) {
    if (query.empty())
        return {std::nullopt, ControlOutcome::badRequest,
                "Name a session: its identifier or the start of it."};
    std::vector<SessionKey> candidates;
    for (const Session& session : sessions) {
        if (agent && session.key.agent != *agent)
            continue;
        // A whole identifier is never ambiguous, even when it starts another one.
        if (session.key.sessionId == query)
            return {session.key, ControlOutcome::done, {}};
        if (Text::startsWith(session.key.sessionId, query))
            candidates.push_back(session.key);
    }
    if (candidates.size() == 1)
        return {candidates.front(), ControlOutcome::done, {}};
    const std::string quoted = "\"" + std::string(query) + "\"";
    const std::string scope =
        agent ? " among " + std::string(displayName(*agent)) + " sessions" : "";
    if (candidates.empty())
        return {std::nullopt, ControlOutcome::noMatch,
                "No session matches " + quoted + scope + "."};
    std::string list;
    for (const SessionKey& key : candidates)
        list +=
            (list.empty() ? "" : ", ") + std::string(displayName(key.agent)) + " " + key.sessionId;
    return {std::nullopt, ControlOutcome::ambiguous,
            quoted + " matches " + std::to_string(candidates.size()) + " sessions" + scope + ": " +
                list + ". Give more of the identifier" + (agent ? "." : " or --agent.")};
}

} // namespace tidewick
