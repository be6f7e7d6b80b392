// The control protocol: any line decodes or not without misbehaving; a request that
// decodes survives a round trip and the server's reply to it is a line clients can read;
// a reply or subscription event that decodes is written again the same after one round.
#include "FuzzCheck.h"
#include "control/ControlProtocol.h"
#include "control/ControlServer.h"
#include "foundation/JSONCoding.h"
#include "wire/Wire.h"

using namespace tidewick;

namespace {

constexpr std::string_view secret = "fuzz-secret";

// Two sessions, one of them holding a permission request; decisions are refused, and of
// the other requests some are done, some refused.
class Application final : public ApplicationView {
public:
    Application() : paths_("/nonexistent/fuzz-home") {
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
    Delivery allowAlways(const SessionKey&, std::optional<std::string>) override {
        return {Delivery::Kind::refused, "Not here."};
    }
    Delivery answerQuestions(const SessionKey&, std::vector<std::string>) override { return {}; }
    bool reply(const SessionKey&, std::string) override { return false; }
    bool letStop(const SessionKey&) override { return false; }
    ControlResult pause(std::optional<Date>) override { return ControlResult::done("Paused."); }
    ControlResult resume() override { return ControlResult::done("Resumed."); }
    ControlResult changeSetting(const std::string&, const std::string&,
                                SettingCatalog::Change) override {
        return ControlResult::refused("Not here.");
    }
    ControlResult forget(const SessionKey&) override { return ControlResult::refused("Held."); }
    ControlResult forgetAll() override { return ControlResult::done("Forgotten."); }
    [[nodiscard]] Watch watch(Watcher) override { return {1, sessions_}; }
    void unwatch(WatchId) override {}
    [[nodiscard]] TidewickSettings settings() override { return {}; }
    void setTranscriptStep(const SessionKey&, std::int64_t) override {}
    [[nodiscard]] const TidewickPaths& paths() const override { return paths_; }
    [[nodiscard]] Location location() const override { return Location::inProcess; }

private:
    TidewickPaths paths_;
    std::vector<Session> sessions_;
    std::vector<HeldRequest> held_;
};

// `line` without its line feed.
std::string unterminated(std::string line) {
    line.pop_back();
    return line;
}

// What the server writes for a request line, as far as it is one answer: nothing for a
// line it drops, the version sentence for another version, else the reply.
void checkServerAnswer(std::string_view line) {
    const auto envelope = ControlProtocol::decodeEnvelope(line);
    if (!envelope || !envelope->secret || !Wire::secretsMatch(secret, *envelope->secret))
        return;
    if (envelope->version != ControlProtocol::version) {
        if (envelope->version >= 1)
            (void)ControlProtocol::encodeVersionMismatch(envelope->version);
        return;
    }
    const auto decoded = ControlProtocol::decodeRequest(line);
    if (!decoded)
        return;
    static Application target;
    const std::string reply =
        unterminated(ControlProtocol::encode(ControlServer::respond(decoded->second, target)));
    fuzz::check(ControlProtocol::decodeReply(reply).has_value(), "replies can be read");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view line = fuzz::text(data, size);
    if (auto decoded = ControlProtocol::decodeRequest(line)) {
        const std::string again =
            unterminated(ControlProtocol::encode(decoded->second, decoded->first));
        fuzz::check(ControlProtocol::decodeRequest(again) == decoded,
                    "a request survives a round trip");
    }
    checkServerAnswer(line);
    if (const std::optional<ControlReply> reply = ControlProtocol::decodeReply(line)) {
        const std::string once = unterminated(ControlProtocol::encode(*reply));
        const std::optional<ControlReply> reread = ControlProtocol::decodeReply(once);
        fuzz::check(reread.has_value(), "a written reply can be read");
        fuzz::check(unterminated(ControlProtocol::encode(*reread)) == once,
                    "a reply written, read and written again is the same");
    }
    if (const std::optional<ControlEvent> event = ControlProtocol::decodeEvent(line)) {
        const std::string once = unterminated(ControlProtocol::encode(*event));
        const std::optional<ControlEvent> reread = ControlProtocol::decodeEvent(once);
        fuzz::check(reread.has_value(), "a written event can be read");
        fuzz::check(unterminated(ControlProtocol::encode(*reread)) == once,
                    "an event written, read and written again is the same");
    }
    return 0;
}
