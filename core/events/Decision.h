// The user's answer to a held event.
#pragma once

#include <optional>
#include <string>

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
    [[nodiscard]] static Decision allow() { return Decision(Type::allow, std::nullopt); }
    /// The user lets the agent stop without a reply.
    [[nodiscard]] static Decision letStop() { return Decision(Type::letStop, std::nullopt); }
    /// Nobody answered in time.
    [[nodiscard]] static Decision timeout() { return Decision(Type::timeout, std::nullopt); }

    [[nodiscard]] Type type() const { return type_; }
    /// The deny message (deny) or the reply text (reply); nothing otherwise.
    [[nodiscard]] const std::optional<std::string>& text() const { return text_; }

    friend bool operator==(const Decision&, const Decision&) = default;

private:
    Decision(Type type, std::optional<std::string> text) : type_(type), text_(std::move(text)) {}

    Type type_;
    std::optional<std::string> text_;
};

} // namespace tidewick
