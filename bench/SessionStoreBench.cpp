// The session store under a busy day's load: 1,000 sessions of 200 timeline
// items each. How fast events are applied, and how long the sessions file
// takes to write and read back.
#include "foundation/JSONValue.h"
#include "sessions/SessionPersistence.h"
#include "sessions/SessionStore.h"
#include "testing/TemporaryDirectory.h"

#include <benchmark/benchmark.h>

#include <string>
#include <sys/stat.h>
#include <vector>

using namespace tidewick;

namespace {

constexpr int sessionCount = 1000;
constexpr int itemsPerSession = 200;

AgentEvent toolEvent(int session, int step) {
    AgentEvent e;
    e.agent = allAgentKinds[session % 4];
    e.sessionId = "session-" + std::to_string(session) + "-4f1c2a9e-8d7b";
    e.projectPath = "/Users/dev/Projects/app-" + std::to_string(session % 17);
    e.kind = EventKind::toolStarted;
    e.title = "Run npm test -- --filter unit-" + std::to_string(step % 50);
    e.detail = "npm test -- --filter unit-" + std::to_string(step % 50) + " --reporter dot";
    e.toolName = "Bash";
    e.hookEvent = "PreToolUse";
    e.model = "claude-opus";
    return e;
}

// A store already at the cap: every further event also drops the oldest item.
void fill(SessionStore& store) {
    for (int s = 0; s < sessionCount; ++s)
        for (int i = 0; i < itemsPerSession; ++i)
            store.apply(toolEvent(s, i));
}

// The sessions of a full store, in the order a save writes them.
std::vector<Session> fullSnapshot() {
    SessionStore store;
    fill(store);
    return store.snapshot();
}

void BM_ApplyToFullStore(benchmark::State& state) {
    SessionStore store;
    fill(store);
    // A change handler as the application installs one (it only notes that a save is due).
    long notices = 0;
    store.setOnChange([&notices](const StoreChange&) { ++notices; });
    std::vector<AgentEvent> events;
    for (int i = 0; i < 4096; ++i)
        events.push_back(toolEvent((i * 7919) % sessionCount, i));
    std::size_t next = 0;
    for (auto _ : state) {
        Session after = store.apply(events[next]);
        benchmark::DoNotOptimize(after);
        next = (next + 1) % events.size();
    }
    state.SetItemsProcessed(state.iterations());
    benchmark::DoNotOptimize(notices);
}
BENCHMARK(BM_ApplyToFullStore);

void BM_SaveFullStore(benchmark::State& state) {
    SessionStore store;
    fill(store);
    TemporaryDirectory folder;
    SessionPersistence persistence(folder.path() + "/sessions.json");
    for (auto _ : state) {
        // What the delayed save does: an ordered copy, then the file.
        std::vector<Session> sessions = store.snapshot();
        if (!persistence.save(sessions))
            state.SkipWithError("save failed");
    }
    struct stat info {};
    ::stat(persistence.url().c_str(), &info);
    state.counters["fileMB"] = static_cast<double>(info.st_size) / 1e6;
}
BENCHMARK(BM_SaveFullStore)->Unit(benchmark::kMillisecond);

void BM_LoadFullStore(benchmark::State& state) {
    TemporaryDirectory folder;
    SessionPersistence persistence(folder.path() + "/sessions.json");
    if (!persistence.save(fullSnapshot()))
        state.SkipWithError("save failed");
    std::size_t loaded = 0;
    for (auto _ : state) {
        std::vector<Session> sessions = persistence.load();
        loaded = sessions.size();
        benchmark::DoNotOptimize(sessions);
    }
    if (loaded != sessionCount)
        state.SkipWithError("load lost sessions");
}
BENCHMARK(BM_LoadFullStore)->Unit(benchmark::kMillisecond);

// The two halves of a save and a load without the file system, to see where time goes.
void BM_EncodeFullStore(benchmark::State& state) {
    const std::vector<Session> sessions = fullSnapshot();
    for (auto _ : state)
        SessionPersistence::encode(
            sessions, [](std::string_view piece) { benchmark::DoNotOptimize(piece.data()); });
}
BENCHMARK(BM_EncodeFullStore)->Unit(benchmark::kMillisecond);

// Decoding the file, and parsing it alone (the part decoding cannot avoid).
template <typename Read> void readFullStore(benchmark::State& state, Read read) {
    const std::string bytes = SessionPersistence::encode(fullSnapshot());
    for (auto _ : state)
        benchmark::DoNotOptimize(read(bytes));
}
BENCHMARK_CAPTURE(readFullStore, decode, SessionPersistence::decode)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(readFullStore, parseOnly, [](const std::string& bytes) {
    return JSONValue::parse(bytes);
})->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
