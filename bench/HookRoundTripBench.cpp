// What one agent event costs: the real tidewick-hook program started as a
// process against a HookServer running in this process, next to the same
// exchange done by a minimal python3 client and to a program that only
// starts and exits (the floor). Also the fail-safe path with no application,
// and an exchange while the server holds 500 connections.
//
// Each benchmark reports the median, 90th percentile and maximum of single
// runs (counters median_us, p90_us, max_us). Building this target builds both
// programs beside it; use a Release build without sanitizers:
//   cmake -S . -B build/hook-release -G Ninja -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/hook-release --target HookRoundTripBench
//   build/hook-release/bin/HookRoundTripBench
#include "foundation/File.h"
#include "foundation/Subprocess.h"
#include "foundation/TidewickPaths.h"
#include "wire/HookServer.h"
#include "wire/Socket.h"
#include "wire/Wire.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace {

using namespace tidewick;

const std::string hookProgram = TIDEWICK_BINARY_DIR "/bin/tidewick-hook";
const std::string noopProgram = TIDEWICK_BINARY_DIR "/bin/tidewick-noop";
const std::string python = "/usr/bin/python3";
const std::string fireAndForgetInput =
    R"({"session_id":"5f3c","hook_event_name":"SessionEnd","reason":"exit","cwd":"/work"})";
const std::string answer = R"({"ok":true})";

// The python3 client: the same exchange as tidewick-hook, minus everything else.
const char* pythonClient = R"(import json, os, socket, sys
home = os.environ["TIDEWICK_HOME"]
app = os.path.join(home, "Library/Application Support/Tidewick")
secret = open(os.path.join(app, "secret")).read().strip()
payload = json.loads(sys.stdin.read())
request = {"v": 1, "secret": secret, "agent": sys.argv[2], "event": sys.argv[4],
           "pid": os.getpid(), "payload": payload}
s = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
s.settimeout(1.0)
s.connect(os.path.join(app, "tidewick.sock"))
s.sendall((json.dumps(request, separators=(",", ":")) + "\n").encode())
data = b""
while not data.endswith(b"\n"):
    chunk = s.recv(65536)
    if not chunk:
        break
    data += chunk
reply = json.loads(data)
if reply["stdout"]:
    sys.stdout.write(reply["stdout"] + "\n")
sys.exit(0 if reply["exit"] == 2 else reply["exit"])
)";

// Starts `argv` with `environment`, feeds `input`, and waits for it to end.
Subprocess::Result spawnAndWait(const std::vector<std::string>& argv,
                                const std::vector<std::string>& environment,
                                const std::string& input) {
    return Subprocess::run({argv, environment, {}, input}, Subprocess::Group::shared,
                           std::nullopt);
}

// One Tidewick home with its secret, optionally with a running server whose
// handler answers fire-and-forget events at once and holds the others until
// released.
class Application {
public:
    explicit Application(bool running) {
        char pattern[] = "/tmp/tw-bench-XXXXXX";
        home_ = ::mkdtemp(pattern);
        TidewickPaths paths(home_);
        secret_ = paths.loadOrCreateSecret();
        socketPath_ = paths.socketPath();
        if (!running)
            return;
        server_ = std::make_unique<HookServer>(
            socketPath_, secret_, [this](const HookRequest& request, const ClientProbe& probe) {
                if (request.event != "PermissionRequest")
                    return HookResponse{HookOutput{answer, 0}};
                std::unique_lock guard(mutex_);
                ++holding_;
                changed_.notify_all();
                while (!released_ && !probe.isDisconnected())
                    changed_.wait_for(guard, std::chrono::milliseconds(250));
                --holding_;
                return HookResponse{HookOutput{}};
            });
        server_->start();
    }
    ~Application() {
        release();
        server_.reset();
        std::filesystem::remove_all(home_);
    }

    std::vector<std::string> environment() const {
        return {"TIDEWICK_HOME=" + home_, "PATH=/usr/bin:/bin"};
    }
    const std::string& home() const { return home_; }

    // Opens `count` connections whose held requests the handler keeps waiting.
    bool hold(int count) {
        HookRequest request;
        request.agent = "claude";
        request.event = "PermissionRequest";
        request.payload = JSONValue::parse(R"({"session_id":"held","tool_name":"Bash"})");
        const std::string line = Wire::encode(request, secret_);
        auto address = *Wire::makeAddress(socketPath_);
        for (int i = 0; i < count; ++i) {
            const int fd = held_.emplace_back(Socket::openStream()).get();
            if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
                !Wire::writeAll(fd, line))
                return false;
        }
        std::unique_lock guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(60),
                                 [&] { return holding_ == count; });
    }

    void release() {
        {
            std::lock_guard guard(mutex_);
            released_ = true;
        }
        changed_.notify_all();
        held_.clear();
    }

private:
    std::string home_;
    std::string secret_;
    std::string socketPath_;
    std::mutex mutex_;
    std::condition_variable changed_;
    int holding_ = 0;
    bool released_ = false;
    std::vector<FileDescriptor> held_;
    std::unique_ptr<HookServer> server_;
};

// Times each run separately and reports their median and 90th percentile.
template <typename Body> void measure(benchmark::State& state, Body&& body) {
    std::vector<double> samples;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        if (!body()) {
            state.SkipWithError("wrong output");
            return;
        }
        samples.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
    }
    std::sort(samples.begin(), samples.end());
    state.counters["median_us"] = samples[samples.size() / 2];
    state.counters["p90_us"] = samples[samples.size() * 9 / 10];
    state.counters["max_us"] = samples.back();
}

void BM_HookFireAndForget(benchmark::State& state) {
    Application app(true);
    const std::vector<std::string> argv{hookProgram, "--agent", "claude", "--event", "SessionEnd"};
    measure(state, [&] {
        return spawnAndWait(argv, app.environment(), fireAndForgetInput).out == answer + "\n";
    });
}

void BM_PythonFireAndForget(benchmark::State& state) {
    Application app(true);
    const std::string script = app.home() + "/client.py";
    File::writeAtomically(script, pythonClient, 0600);
    const std::vector<std::string> argv{python,   script,    "--agent",
                                        "claude", "--event", "SessionEnd"};
    measure(state, [&] {
        return spawnAndWait(argv, app.environment(), fireAndForgetInput).out == answer + "\n";
    });
}

void BM_NoopProcess(benchmark::State& state) {
    measure(state, [&] { return spawnAndWait({noopProgram}, {}, "").status == 0; });
}

void BM_HookFailSafeNoApplication(benchmark::State& state) {
    Application app(false);
    const std::vector<std::string> argv{hookProgram, "--agent", "cursor", "--event",
                                        "beforeShellExecution"};
    const std::string input = R"({"conversation_id":"c","command":"npm test"})";
    measure(state, [&] {
        return spawnAndWait(argv, app.environment(), input).out == "{\"permission\":\"ask\"}\n";
    });
}

void BM_HookWhile500Held(benchmark::State& state) {
    Application app(true);
    if (!app.hold(500)) {
        state.SkipWithError("could not hold 500 connections");
        return;
    }
    const std::vector<std::string> argv{hookProgram, "--agent", "claude", "--event", "SessionEnd"};
    measure(state, [&] {
        return spawnAndWait(argv, app.environment(), fireAndForgetInput).out == answer + "\n";
    });
}

BENCHMARK(BM_HookFireAndForget)->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(400);
BENCHMARK(BM_PythonFireAndForget)->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(40);
BENCHMARK(BM_NoopProcess)->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(400);
BENCHMARK(BM_HookFailSafeNoApplication)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->Iterations(400);
BENCHMARK(BM_HookWhile500Held)->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(200);

} // namespace

BENCHMARK_MAIN();
