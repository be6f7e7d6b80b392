// Test helper: a temporary Tidewick home with a real HookServer that records
// every request and answers through a function the test chooses.
#pragma once

#include "foundation/TidewickPaths.h"
#include "testing/TemporaryDirectory.h"
#include "wire/HookServer.h"

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace tidewick::testing {

class RecordingServer {
public:
    using Answer = std::function<HookOutput(const HookRequest&, const ClientProbe&)>;

    /// Stops the server first: its handler uses the members below.
    ~RecordingServer() { stop(); }

    /// Starts a server at the home's socket answering with `answer` (null:
    /// "answer to <event>", exit 0) and accepting the home's secret. Throws
    /// what HookServer::start throws.
    void start(Answer answer = nullptr) {
        answer_ = std::move(answer);
        server_ = std::make_unique<HookServer>(
            paths.socketPath(), secret,
            [this](const HookRequest& request, const ClientProbe& probe) {
                {
                    std::lock_guard guard(mutex_);
                    requests_.push_back(request);
                }
                return HookResponse{answer_ ? answer_(request, probe)
                                            : HookOutput{"answer to " + request.event, 0}};
            });
        server_->start();
    }
    /// Stops the server and waits for its connections to finish.
    void stop() { server_.reset(); }

    /// Every request the server has received, in order.
    [[nodiscard]] std::vector<HookRequest> requests() {
        std::lock_guard guard(mutex_);
        return requests_;
    }

    /// An environment pointing TIDEWICK_HOME at the home, plus `extra`.
    [[nodiscard]] std::vector<std::string>
    environment(const std::vector<std::string>& extra = {}) const {
        std::vector<std::string> env{"TIDEWICK_HOME=" + home.path(), "PATH=/usr/bin:/bin"};
        env.insert(env.end(), extra.begin(), extra.end());
        return env;
    }

    TemporaryDirectory home;
    TidewickPaths paths{home.path()};
    std::string secret = paths.loadOrCreateSecret();

private:
    Answer answer_; // set before the server starts
    std::mutex mutex_;
    std::vector<HookRequest> requests_;
    std::unique_ptr<HookServer> server_;
};

} // namespace tidewick::testing
