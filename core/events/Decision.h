// The user's answer to a held event.
#pragma once

#include "foundation/JSONValue.h"

#include <optional>
#include <string>
#include <utility>

namespace tidewick {

class Decision {
public:
    enum class Type { deny, reply, allow, letStop, timeout };

    /// The user refused; the message, when present, is passed to the agent.
    [[nodiscard]] static Decision deny(std::optional<std::string> message = std::nullopt) {
        return Decision(Type::deny, std::move(message));
    }
    /// The user wrote a reply the agent should act on.
    [[nodiscard]] static Decision reply(std::string text) { return Decision(Type::reply, std::move(text)); }
    /// The user approved, once and as the agent asked.
    [[nodiscard]] static Decision allow() { return Decision(Type::allow, std::nullopt); }
    /// The user approved with more than a yes: the tool runs with `updatedInput` instead of
    /// its own input (a question's answers travel this way) when one is given, and the agent
    /// applies `permissionUpdates` (its own permission-update objects, such as a rule it
    /// keeps allowing) when the list is not empty.
    [[nodiscard]] static Decision allow(std::optional<JSONValue> updatedInput,
                                        JSONValue::Array permissionUpdates) {
        Decision decision(Type::allow, std::nullopt);
        decision.updatedInput_ = std::move(updatedInput);
        decision.permissionUpdates_ = std::move(permissionUpdates);
        return decision;
    }
    /// The user lets the agent stop without a reply.
    [[nodiscard]] static Decision letStop() { return Decision(Type::letStop, std::nullopt); }
    /// Nobody answered in time.
    [[nodiscard]] static Decision timeout() { return Decision(Type::timeout, std::nullopt); }

    [[nodiscard]] Type type() const { return type_; }
    /// The deny message (deny) or the reply text (reply); nothing otherwise.
    [[nodiscard]] const std::optional<std::string>& text() const { return text_; }
    /// allow: the input the tool runs with instead of its own; nothing otherwise.
    [[nodiscard]] const std::optional<JSONValue>& updatedInput() const { return updatedInput_; }
    /// allow: what the agent changes in its own permissions; empty otherwise.
    [[nodiscard]] const JSONValue::Array& permissionUpdates() const { return permissionUpdates_; }

    friend bool operator==(const Decision&, const Decision&) = default;

private:
    Decision(Type type, std::optional<std::string> text) : type_(type), text_(std::move(text)) {}

    Type type_;
    std::optional<std::string> text_;
    std::optional<JSONValue> updatedInput_;
    JSONValue::Array permissionUpdates_;
};

} // namespace tidewick
