// The application under load: the release-built `tidewick app --headless`
// holds 200 permission requests (200 real tidewick-hook processes waiting)
// while 50 concurrent hook processes send 10,000 events that are never held,
// each with the hook command's own client and time-outs. Afterwards the
// sessions must hold exactly the events sent (none lost) and every held
// request must still be answerable. Prints the round-trip percentiles.
//
//   cmake -S . -B build/control-release -G Ninja -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/control-release --target ServiceLoadBench tidewick tidewick-hook
//   build/control-release/bin/ServiceLoadBench [--programs] [workers] [events] [held]
//
// With --programs each event is a run of the real tidewick-hook program, and
// the time includes starting it.
//
// A plain program rather than a Google Benchmark loop: one run is the
// measurement (a few thousand processes and connections), not a repeatable
// micro-operation. Exit status 0 only when every check passed (the latency is
// reported, not checked).
#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/Subprocess.h"
#include "foundation/SystemError.h"
#include "foundation/TidewickPaths.h"
#include "wire/HookClient.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace tidewick;
using Clock = std::chrono::steady_clock;

const std::string binaries = TIDEWICK_BINARY_DIR "/bin/";

// The hook command's time-outs for an event that is not held.
constexpr double connectSeconds = 0.4;
constexpr double responseSeconds = 1.0;

// Starts `argv` with `environment`, standard input from `input`, output and errors to `output`.
Subprocess spawn(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
                 const std::string& input, const std::string& output) {
    return Subprocess::start({argv, environment, {}, input}, output, output);
}

std::string readIfAny(const std::string& path) {
    return File::exists(path) ? File::read(path) : std::string();
}

// The status of a forked worker, once it has ended.
int waitFor(pid_t pid) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs `tidewick ARGS` to completion; its output, or nothing when it failed.
std::optional<std::string> runTidewick(const std::vector<std::string>& arguments,
                                       const std::vector<std::string>& environment) {
    std::vector<std::string> argv = {binaries + "tidewick"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    Subprocess::Result result =
        Subprocess::run({argv, environment, {}, {}}, Subprocess::Group::shared, std::nullopt);
    if (result.status != 0)
        return std::nullopt;
    return std::move(result.out);
}

std::string permissionPayload(int index) {
    char id[32];
    std::snprintf(id, sizeof id, "held-%03d", index);
    return std::string(R"({"session_id":")") + id +
           R"(","cwd":"/work/load","hook_event_name":"PermissionRequest","tool_name":"Bash",)"
           R"("tool_input":{"command":"rm -rf build-)" +
           std::to_string(index) + R"("}})";
}

std::string loadSession(int worker, int session) {
    return "load-" + std::to_string(worker) + "-" + std::to_string(session);
}

std::string loadPayload(int worker, int session, int index) {
    return R"({"session_id":")" + loadSession(worker, session) +
           R"(","cwd":"/work/load","hook_event_name":"PostToolUse","tool_name":"Bash",)"
           R"("tool_input":{"command":"echo )" +
           std::to_string(index) + R"("},"tool_response":{"stdout":"ok"}})";
}

// How the load's events are sent.
enum class Sender {
    /// Each worker process sends its events itself with the hook command's client.
    client,
    /// Each worker runs the real tidewick-hook program once per event (process
    /// start included in the time).
    program,
};

// Runs tidewick-hook for one event, its payload on standard input; true when
// it exited 0 (it also does when the application did not answer: the
// store's counts tell).
bool runHook(const std::string& payload, const std::vector<std::string>& environment) {
    const std::vector<std::string> argv = {binaries + "tidewick-hook", "--agent", "claude",
                                           "--event", "PostToolUse"};
    try {
        return Subprocess::run({argv, environment, {}, payload}, Subprocess::Group::shared,
                               std::nullopt)
                   .status == 0;
    } catch (const SystemError&) {
        return false;
    }
}

// One hook process's share of the load: `count` events spread over
// `sessions` sessions, each round trip timed. Writes the times (seconds, one
// per line, "fail" for a failed exchange) to `report`.
[[noreturn]] void runWorker(Sender sender, int worker, int count, int sessions,
                            const TidewickPaths& paths, const std::string& secret,
                            const std::vector<std::string>& environment,
                            const std::string& report) {
    std::string lines;
    const std::string socket = paths.socketPath();
    for (int i = 0; i < count; ++i) {
        const std::string payload = loadPayload(worker, i % sessions, i);
        bool answered = false;
        const auto start = Clock::now();
        if (sender == Sender::program) {
            answered = runHook(payload, environment);
        } else {
            HookRequest request;
            request.agent = "claude";
            request.event = "PostToolUse";
            request.pid = static_cast<std::int32_t>(::getpid());
            request.payload = JSONValue::parse(payload);
            answered = HookClient::attempt(request, socket, secret, connectSeconds, responseSeconds)
                           .response.has_value();
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        lines += answered ? std::to_string(seconds) + "\n" : "fail\n";
    }
    File::writeAtomically(report, lines, 0600);
    ::_exit(0);
}

double percentile(const std::vector<double>& sorted, double fraction) {
    if (sorted.empty())
        return 0;
    auto index =
        static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(sorted.size()))) - 1;
    return sorted[std::min(index, sorted.size() - 1)];
}

bool check(bool condition, const std::string& what) {
    std::printf("%s %s\n", condition ? "ok:  " : "FAIL:", what.c_str());
    return condition;
}

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // progress lines as they happen, even into a file
    std::vector<std::string> arguments(argv + 1, argv + argc);
    Sender sender = Sender::client;
    if (!arguments.empty() && arguments.front() == "--programs") {
        sender = Sender::program;
        arguments.erase(arguments.begin());
    }
    const int workers = arguments.size() > 0 ? std::atoi(arguments[0].c_str()) : 50;
    const int events = arguments.size() > 1 ? std::atoi(arguments[1].c_str()) : 10000;
    const int held = arguments.size() > 2 ? std::atoi(arguments[2].c_str()) : 200;
    const int perWorker = events / workers;
    // Few enough events per session that no timeline drops any (it keeps 200).
    const int sessionsPerWorker = std::max(1, (perWorker + 99) / 100);
    for (const char* program : {"tidewick", "tidewick-hook"})
        if (!File::isExecutableFile(binaries + program)) {
            std::fprintf(stderr, "%s%s is missing: build it first.\n", binaries.c_str(), program);
            return 2;
        }

    char pattern[] = "/tmp/tw-load-XXXXXX";
    const std::string home = ::mkdtemp(pattern);
    const TidewickPaths paths(home);
    const std::vector<std::string> environment = {"TIDEWICK_HOME=" + home, "HOME=" + home,
                                                  "PATH=/usr/bin:/bin"};
    bool passed = true;

    const std::string appOutput = home + "/app.out";
    Subprocess app =
        spawn({binaries + "tidewick", "app", "--headless"}, environment, "", appOutput);
    for (int i = 0;
         i < 1000 && readIfAny(appOutput).find("Tidewick is running.") == std::string::npos; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const std::string secret = paths.readSecret();

    std::printf("holding %d permission requests...\n", held);
    std::vector<Subprocess> holders;
    auto holderOutput = [&](int i) { return home + "/held-" + std::to_string(i); };
    for (int i = 0; i < held; ++i)
        holders.push_back(
            spawn({binaries + "tidewick-hook", "--agent", "claude", "--event", "PermissionRequest"},
                  environment, permissionPayload(i), holderOutput(i)));
    std::size_t heldNow = 0;
    for (int i = 0; i < 300 && heldNow < static_cast<std::size_t>(held); ++i) {
        if (auto listing = runTidewick({"pending", "--json"}, environment))
            heldNow = JSONValue::parse(*listing).arrayValue()->size();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    passed &= check(heldNow == static_cast<std::size_t>(held),
                    std::to_string(heldNow) + " requests held before the load");

    std::printf("sending %d events from %d hook processes (%d sessions each)%s...\n",
                perWorker * workers, workers, sessionsPerWorker,
                sender == Sender::program ? ", one tidewick-hook run per event" : "");
    const auto loadStart = Clock::now();
    std::vector<pid_t> loaders;
    for (int w = 0; w < workers; ++w) {
        pid_t pid = ::fork();
        if (pid == 0)
            runWorker(sender, w, perWorker, sessionsPerWorker, paths, secret, environment,
                      home + "/worker-" + std::to_string(w));
        loaders.push_back(pid);
    }
    for (pid_t pid : loaders)
        (void)waitFor(pid);
    const double loadSeconds = std::chrono::duration<double>(Clock::now() - loadStart).count();

    std::vector<double> times;
    int failures = 0;
    for (int w = 0; w < workers; ++w) {
        const std::string report = home + "/worker-" + std::to_string(w);
        if (!File::exists(report)) {
            failures += perWorker;
            continue;
        }
        std::istringstream lines(File::read(report));
        for (std::string line; std::getline(lines, line);) {
            if (line == "fail")
                ++failures;
            else
                times.push_back(std::stod(line));
        }
    }
    std::sort(times.begin(), times.end());
    std::printf("round trips: %zu in %.2f s (%.0f per second), failed %d\n", times.size(),
                loadSeconds, static_cast<double>(times.size()) / loadSeconds, failures);
    std::printf("latency ms: p50 %.2f  p90 %.2f  p99 %.2f  max %.2f\n",
                percentile(times, 0.50) * 1e3, percentile(times, 0.90) * 1e3,
                percentile(times, 0.99) * 1e3, (times.empty() ? 0 : times.back()) * 1e3);
    passed &= check(failures == 0, "every event answered");
    // A figure to watch rather than a check: it depends on what else the machine runs.
    std::printf("%s p99 %s 20 ms\n", percentile(times, 0.99) < 0.020 ? "note:" : "NOTE:",
                percentile(times, 0.99) < 0.020 ? "under" : "above the expected");

    // The store's counts: every event is one timeline item of its session.
    std::map<std::string, std::size_t> items;
    std::size_t heldSessions = 0;
    if (auto listing = runTidewick({"sessions", "--json"}, environment)) {
        const JSONValue sessions = JSONValue::parse(*listing);
        for (const JSONValue& session : *sessions.arrayValue()) {
            const std::string id = *session.get("key")->get("sessionId")->stringValue();
            if (id.rfind("load-", 0) == 0)
                items[id] = session.get("timeline")->arrayValue()->size();
            else if (!session.get("pending")->arrayValue()->empty())
                ++heldSessions;
        }
    }
    std::size_t recorded = 0;
    bool everySessionExact = items.size() == static_cast<std::size_t>(workers * sessionsPerWorker);
    for (int w = 0; w < workers; ++w)
        for (int s = 0; s < sessionsPerWorker; ++s) {
            const int expected =
                perWorker / sessionsPerWorker + (s < perWorker % sessionsPerWorker);
            const std::size_t got = items[loadSession(w, s)];
            recorded += got;
            everySessionExact &= got == static_cast<std::size_t>(expected);
        }
    passed &=
        check(recorded == static_cast<std::size_t>(perWorker * workers) && everySessionExact,
              std::to_string(recorded) + " events in the sessions' timelines, each session exact");
    passed &= check(heldSessions == static_cast<std::size_t>(held),
                    std::to_string(heldSessions) + " sessions still holding their request");

    std::printf("answering the held requests...\n");
    int delivered = 0, allowedOutputs = 0;
    for (int i = 0; i < held; ++i) {
        char id[32];
        std::snprintf(id, sizeof id, "held-%03d", i);
        delivered += runTidewick({"allow", id}, environment) ? 1 : 0;
    }
    for (int i = 0; i < held; ++i) {
        const int status = holders[static_cast<std::size_t>(i)].wait();
        allowedOutputs += status == 0 && File::read(holderOutput(i)).find(R"("behavior":"allow")") !=
                                             std::string::npos;
    }
    passed &= check(delivered == held, std::to_string(delivered) + " allow decisions delivered");
    passed &= check(allowedOutputs == held,
                    std::to_string(allowedOutputs) + " hook processes printed the allow answer");

    app.signal(SIGTERM);
    passed &= check(app.wait() == 0, "the application stopped cleanly");
    std::filesystem::remove_all(home);
    return passed ? 0 : 1;
}
