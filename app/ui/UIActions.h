// The decisions the terminal UI hands on: the same service operations the
// control commands use, behind an interface so that key handling is tested
// without a running service.
#pragma once

#include "service/TidewickService.h"

#include <optional>
#include <string>

namespace tidewick {

class UIActions {
public:
    virtual ~UIActions() = default;
    /// Answers the session's first held permission request; true when the agent got it.
    virtual bool answerPermission(const SessionKey& session, TidewickService::Answer answer,
                                  std::optional<std::string> message) = 0;
    /// Sends `text` as the reply to the session's held turn; true when the agent got it.
    virtual bool reply(const SessionKey& session, std::string text) = 0;
    /// Lets the session's held turn end; true when the agent got it.
    virtual bool letStop(const SessionKey& session) = 0;
};

} // namespace tidewick
