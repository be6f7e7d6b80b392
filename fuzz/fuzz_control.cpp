// The control protocol: any request line decodes or not without misbehaving, what
// decodes survives a round trip, the server's answer to it is a reply line clients can
// read, and any reply line that decodes is written again the same.
#include "FuzzCheck.h"
#include "control/ControlProtocol.h"
#include "control/ControlServer.h"
#include "foundation/JSONCoding.h"

#include <stdexcept>

using namespace tidewick;

namespace {

// Two sessions, one of them holding a permission request; decisions are refused.
class Sessions final : public SessionActions {
public:
    Sessions() {
        for (const char* id : {"d4e23369-98ea-4e04-8cd7-5fb639c89c36", "d4e2-second"}) {
            Session session;
            session.key = SessionKey{AgentKind::claude, id};
            session.status = SessionStatus::needsPermission;
            session.projectPath = "/home/dev/proj";
            sessions_.push_back(session);
        }
        PendingRequest request;
        request.kind = PendingKind::permission;
        request.title = "Run rm -rf build";
        held_.emplace_back(sessions_[0].key, request);
    }
    [[nodiscard]] std::vector<Session> sessions() const override { return sessions_; }
    [[nodiscard]] std::vector<HeldRequest> pendingRequests() const override { return held_; }
    bool answerPermission(const SessionKey&, Answer, std::optional<std::string>) override {
        return false;
    }
    bool reply(const SessionKey&, std::string) override { return false; }
    bool letStop(const SessionKey&) override { return false; }

private:
    std::vector<Session> sessions_;
    std::vector<HeldRequest> held_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view line = fuzz::text(data, size);
    constexpr std::string_view secret = "fuzz-secret";
    if (auto decoded = ControlProtocol::decodeRequest(line)) {
        std::string again = ControlProtocol::encode(decoded->second, decoded->first);
        again.pop_back();
        fuzz::check(ControlProtocol::decodeRequest(again) == decoded,
                    "a request survives a round trip");
    }
    static Sessions target;
    if (std::optional<std::string> answer = ControlServer::answer(line, secret, target)) {
        answer->pop_back();
        fuzz::check(ControlProtocol::decodeReply(*answer).has_value(), "replies can be read");
    }
    if (const std::optional<ControlReply> reply = ControlProtocol::decodeReply(line)) {
        std::string once = ControlProtocol::encode(*reply);
        once.pop_back();
        const std::optional<ControlReply> reread = ControlProtocol::decodeReply(once);
        fuzz::check(reread.has_value(), "a written reply can be read");
        std::string twice = ControlProtocol::encode(*reread);
        twice.pop_back();
        fuzz::check(twice == once, "a reply written, read and written again is the same");
    }
    return 0;
}
