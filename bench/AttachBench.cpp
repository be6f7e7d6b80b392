// How fast an attached interface hears of a change: the release-built
// `tidewick app --headless` holds 1,000 sessions (20 events each, so every one
// has a timeline), an interface attaches over the control socket as
// `tidewick app` does (AttachedApplication), and each of 500 hook events, sent
// with the hook command's own client to a session picked at random, is timed
// from just before it is sent until the interface's watcher is told the change.
// The time therefore includes the hook round trip itself; it is a bound on
// what the stream adds. Prints the attach (snapshot) time and the percentiles.
//
//   cmake --preset release && cmake --build --preset release --target AttachBench tidewick
//   build/release/bin/AttachBench [sessions] [changes]
//
// A plain program: one run is the measurement. Exit status 0 when every change
// arrived (the latency is reported, not checked).
#include "control/AttachedApplication.h"
#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/Subprocess.h"
#include "foundation/TidewickPaths.h"
#include "wire/HookClient.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace tidewick;
using Steady = std::chrono::steady_clock;

const std::string binaries = TIDEWICK_BINARY_DIR "/bin/";

HookRequest event(int session, int index) {
    HookRequest request;
    request.agent = "claude";
    request.event = "PostToolUse";
    request.pid = 4242;
    request.payload = JSONValue::parse(
        R"({"session_id":"attach-)" + std::to_string(session) +
        R"(","cwd":"/work/project-)" + std::to_string(session % 50) +
        R"(","hook_event_name":"PostToolUse","tool_name":"Bash","tool_input":{"command":"make test-)" +
        std::to_string(index) + R"("},"tool_response":{"stdout":"ok"}})");
    return request;
}

double percentile(std::vector<double> values, double fraction) {
    std::sort(values.begin(), values.end());
    const auto index =
        static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(values.size()))) - 1;
    return values[std::min(index, values.size() - 1)];
}

} // namespace

int main(int argc, char** argv) {
    const int sessions = argc > 1 ? std::atoi(argv[1]) : 1000;
    const int changes = argc > 2 ? std::atoi(argv[2]) : 500;
    constexpr int eventsPerSession = 20;
    if (!File::isExecutableFile(binaries + "tidewick")) {
        std::fprintf(stderr, "%stidewick is missing: build it first.\n", binaries.c_str());
        return 2;
    }
    char pattern[] = "/tmp/tw-attach-XXXXXX";
    const std::string home = ::mkdtemp(pattern);
    const TidewickPaths paths(home);
    const std::string output = home + "/app.out";
    Subprocess app = Subprocess::start(
        {{binaries + "tidewick", "app", "--headless"},
         std::vector<std::string>{"TIDEWICK_HOME=" + home, "HOME=" + home, "PATH=/usr/bin:/bin"}},
        output, output);
    for (int i = 0; i < 1000 && (!File::exists(output) ||
                                 File::read(output).find("Tidewick is running.") == std::string::npos);
         ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const std::string secret = paths.readSecret();
    auto send = [&](const HookRequest& request) {
        return HookClient::attempt(request, paths.socketPath(), secret, 0.4, 5.0).response.has_value();
    };

    std::printf("filling %d sessions with %d events each...\n", sessions, eventsPerSession);
    for (int i = 0; i < eventsPerSession; ++i)
        for (int s = 0; s < sessions; ++s)
            (void)send(event(s, i));

    AttachedApplication view(paths);
    const auto attachStart = Steady::now();
    if (!view.attach()) {
        std::fprintf(stderr, "the interface could not attach\n");
        return 1;
    }
    const double attachMs =
        std::chrono::duration<double, std::milli>(Steady::now() - attachStart).count();
    std::printf("attached with %zu sessions in %.1f ms\n", view.sessions().size(), attachMs);

    std::mutex lock;
    std::condition_variable told;
    std::string changed;
    Steady::time_point toldAt;
    const auto watch = view.watch({.changed = [&](const StoreChange& change) {
        std::lock_guard guard(lock);
        changed = change.key.sessionId;
        toldAt = Steady::now();
        told.notify_all();
    }});

    std::mt19937 random(13);
    std::vector<double> milliseconds, roundTrips, afterAnswer;
    int lost = 0;
    for (int i = 0; i < changes; ++i) {
        const int session = static_cast<int>(random() % static_cast<unsigned>(sessions));
        const std::string id = "attach-" + std::to_string(session);
        {
            std::lock_guard guard(lock);
            changed.clear();
        }
        const auto start = Steady::now();
        (void)send(event(session, eventsPerSession + i));
        const auto answered = Steady::now();
        std::unique_lock guard(lock);
        if (!told.wait_for(guard, std::chrono::seconds(5), [&] { return changed == id; })) {
            ++lost;
            continue;
        }
        using Milliseconds = std::chrono::duration<double, std::milli>;
        milliseconds.push_back(Milliseconds(toldAt - start).count());
        roundTrips.push_back(Milliseconds(answered - start).count());
        afterAnswer.push_back(Milliseconds(toldAt - answered).count());
    }
    view.unwatch(watch.id);
    app.signal(SIGTERM);
    (void)app.wait(std::chrono::seconds(30));
    std::filesystem::remove_all(home);

    std::printf("%zu changes told, %d lost\n", milliseconds.size(), lost);
    auto print = [](const char* what, const std::vector<double>& values) {
        std::printf("%-40s p50 %6.2f  p90 %6.2f  p99 %6.2f  max %6.2f ms\n", what,
                    percentile(values, 0.5), percentile(values, 0.9), percentile(values, 0.99),
                    percentile(values, 1.0));
    };
    print("hook event sent -> interface told", milliseconds);
    print("  of which the hook's round trip", roundTrips);
    print("  hook answered -> interface told", afterAnswer);
    return lost == 0 ? 0 : 1;
}
