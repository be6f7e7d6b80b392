#include "events/PermissionUpdates.h"

namespace tidewick::PermissionUpdates {

namespace {

std::string stringUnder(const JSONValue& object, std::string_view key) {
    const JSONValue* value = object.get(key);
    const std::string* text = value ? value->stringValue() : nullptr;
    return text ? *text : std::string();
}

std::string whereKept(std::string_view destination) {
    if (destination == "session")
        return ", for this session";
    if (destination == "localSettings")
        return ", kept in this project's local settings";
    if (destination == "projectSettings")
        return ", kept in this project's shared settings";
    if (destination == "userSettings")
        return ", kept in your own settings";
    return destination.empty() ? "" : ", kept in " + std::string(destination);
}

// "Bash(npm test:*)", or the tool alone when the rule has no content.
std::string ruleText(const JSONValue& rule) {
    const std::string content = stringUnder(rule, "ruleContent");
    const std::string tool = stringUnder(rule, "toolName");
    return content.empty() ? tool : tool + "(" + content + ")";
}

std::string joined(const JSONValue* list, std::string (*each)(const JSONValue&)) {
    std::string text;
    if (!list || !list->arrayValue())
        return text;
    for (const JSONValue& element : *list->arrayValue())
        text += (text.empty() ? "" : ", ") + each(element);
    return text;
}

std::string plainString(const JSONValue& value) {
    const std::string* text = value.stringValue();
    return text ? *text : value.compact();
}

std::string describeOne(const JSONValue& update) {
    const std::string type = stringUnder(update, "type");
    const std::string where = whereKept(stringUnder(update, "destination"));
    if (type == "addRules" || type == "replaceRules") {
        const std::string behavior = stringUnder(update, "behavior");
        const std::string verb = behavior == "deny" ? "Deny " : behavior == "ask" ? "Ask for " : "Allow ";
        return verb + joined(update.get("rules"), ruleText) + where;
    }
    if (type == "addDirectories")
        return "Allow access to " + joined(update.get("directories"), plainString) + where;
    if (type == "setMode")
        return "Switch to " + stringUnder(update, "mode") + " mode" + where;
    return update.compact();
}

} // namespace

JSONValue allowRule(std::string_view tool, std::string_view rule) {
    JSONValue::Object entry{{"toolName", tool}};
    if (!rule.empty())
        entry.emplace_back("ruleContent", rule);
    return JSONValue::Object{{"type", "addRules"},
                             {"rules", JSONValue::Array{JSONValue(std::move(entry))}},
                             {"behavior", "allow"},
                             {"destination", "localSettings"}};
}

std::string describe(const JSONValue::Array& updates) {
    std::string text;
    for (const JSONValue& update : updates)
        text += (text.empty() ? "" : "\n") + describeOne(update);
    return text;
}

} // namespace tidewick::PermissionUpdates
