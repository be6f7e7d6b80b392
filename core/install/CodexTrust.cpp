#include "install/CodexTrust.h"

#include "foundation/Hex.h"
#include "foundation/SHA256.h"
#include "install/HookCatalog.h"
#include "install/TOMLProbe.h"

#include <algorithm>
#include <array>

namespace tidewick::CodexTrust {

namespace {

// Events whose matcher Codex leaves out of the hash: it never matches on them.
constexpr std::array<std::string_view, 3> unmatchedEvents = {"user_prompt_submit", "stop",
                                                            "interrupt"};

// Codex reads a missing time-out as 600 s, raises one below a second to one, and caps
// the events that run while it shuts down at three; it hashes the value it will use.
JSONValue normalisedTimeout(const JSONValue* timeout, std::string_view snakeEvent) {
    std::int64_t seconds = 600;
    if (timeout)
        if (std::optional<double> given = timeout->doubleValue())
            seconds = std::max<std::int64_t>(1, static_cast<std::int64_t>(std::min(*given, 1e9)));
    if (snakeEvent == "session_end" || snakeEvent == "interrupt")
        seconds = std::min<std::int64_t>(seconds, 3);
    return JSONValue::integer(seconds);
}

std::string hashOf(std::string_view snakeEvent, const JSONValue& group, const JSONValue& handler) {
    JSONValue hashed(JSONValue::Object{});
    const JSONValue* async = handler.get("async");
    hashed.set("async", JSONValue::boolean(async && async->boolValue() == true));
    const JSONValue* command = handler.get("command");
    hashed.set("command", command ? *command : JSONValue(""));
    if (const JSONValue* status = handler.get("statusMessage"); status && status->isString())
        hashed.set("statusMessage", *status);
    hashed.set("timeout", normalisedTimeout(handler.get("timeout"), snakeEvent));
    hashed.set("type", "command");

    JSONValue entry(JSONValue::Object{});
    entry.set("event_name", std::string(snakeEvent));
    entry.set("hooks", JSONValue(JSONValue::Array{std::move(hashed)}));
    const JSONValue* matcher = group.get("matcher");
    if (matcher && matcher->isString() &&
        std::find(unmatchedEvents.begin(), unmatchedEvents.end(), snakeEvent) ==
            unmatchedEvents.end())
        entry.set("matcher", *matcher);

    std::string out = "sha256:";
    Hex::append(out, SHA256::of(JSONValue::from(entry).compact()));
    return out;
}

// The user's hooks (not Tidewick's), in order, for one event.
std::vector<const Hook*> usersOf(const std::vector<Hook>& all, const std::string& event) {
    std::vector<const Hook*> found;
    for (const Hook& hook : all)
        if (!hook.ours && hook.place.event == event)
            found.push_back(&hook);
    return found;
}

} // namespace

std::string snakeCase(std::string_view event) {
    std::string out;
    for (std::size_t i = 0; i < event.size(); ++i) {
        const char c = event[i];
        if (c >= 'A' && c <= 'Z') {
            if (i > 0)
                out.push_back('_');
            out.push_back(static_cast<char>(c - 'A' + 'a'));
        } else {
            out.push_back(c);
        }
    }
    return out;
}

std::string key(std::string_view hooksFile, const Place& place) {
    return std::string(hooksFile) + ":" + snakeCase(place.event) + ":" +
           std::to_string(place.group) + ":" + std::to_string(place.handler);
}

std::vector<Hook> hooks(const JSONValue& document) {
    std::vector<Hook> found;
    const JSONValue* section = document.get("hooks");
    if (!section || !section->isObject())
        return found;
    for (const auto& [event, groups] : *section->objectPairs()) {
        const JSONValue::Array* list = groups.arrayValue();
        if (!list)
            continue;
        const std::string snake = snakeCase(event);
        for (std::size_t g = 0; g < list->size(); ++g) {
            const JSONValue* handlers = (*list)[g].get("hooks");
            if (!handlers || !handlers->isArray())
                continue;
            for (std::size_t h = 0; h < handlers->arrayValue()->size(); ++h) {
                const JSONValue& handler = (*handlers->arrayValue())[h];
                if (!handler.isObject())
                    continue;
                const JSONValue* command = handler.get("command");
                found.push_back(Hook{Place{event, g, h}, hashOf(snake, (*list)[g], handler),
                                     command && command->isString() ? *command->stringValue() : "",
                                     isOurs(handler)});
            }
        }
    }
    return found;
}

std::map<std::string, std::string> approvals(std::string_view configToml) {
    return TOMLProbe::stringsInTables({"hooks", "state"}, "trusted_hash", configToml);
}

bool isApproved(const Hook& hook, std::string_view hooksFile,
                const std::map<std::string, std::string>& approvals) {
    const auto found = approvals.find(key(hooksFile, hook.place));
    return found != approvals.end() && found->second == hook.hash;
}

std::vector<std::string> movedApprovedHooks(const JSONValue& before, const JSONValue& after,
                                            std::string_view hooksFile,
                                            const std::map<std::string, std::string>& approvals) {
    const std::vector<Hook> old = hooks(before), now = hooks(after);
    std::vector<std::string> moved;
    std::vector<std::string> events;
    for (const Hook& hook : old)
        if (!hook.ours && std::find(events.begin(), events.end(), hook.place.event) == events.end())
            events.push_back(hook.place.event);
    // Tidewick never reorders the user's handlers, so the n-th of an event stays the n-th.
    for (const std::string& event : events) {
        const auto was = usersOf(old, event), is = usersOf(now, event);
        for (std::size_t i = 0; i < was.size() && i < is.size(); ++i)
            if (was[i]->place != is[i]->place && isApproved(*was[i], hooksFile, approvals))
                moved.push_back(event + ": " + was[i]->command);
    }
    return moved;
}

} // namespace tidewick::CodexTrust
