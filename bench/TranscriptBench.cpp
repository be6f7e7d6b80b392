// Reading a session's record for display, and writing a handoff:
// - the transcript of a 1 GiB Claude Code record (the recorded session repeated),
//   read by its head and tail and formatted as `tidewick transcript` prints it, with
//   the peak resident memory so far; then the same record read whole, for contrast;
// - a handoff (read and render) from the largest recorded transcript.
//
//   cmake --preset release && cmake --build build/release --target TranscriptBench
//   build/release/bin/TranscriptBench
//
// The 1 GiB file is written once beside the build (bench-transcript-1g.jsonl) and
// reused by later runs.
#include "TranscriptCommands.h"
#include "foundation/File.h"
#include "foundation/FileDescriptor.h"
#include "foundation/IO.h"
#include "transcripts/ClaudeTranscriptReader.h"
#include "transcripts/Handoff.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using namespace tidewick;

const std::string fixtures = TIDEWICK_SOURCE_DIR "/../shared/fixtures/claude-transcripts/";
const std::string bigFile = TIDEWICK_BINARY_DIR "/bench-transcript-1g.jsonl";
constexpr std::int64_t gibibyte = 1LL << 30;

// The 1 GiB record: the recorded session's lines over and over.
const std::string& bigRecord() {
    static const bool made = [] {
        if (File::exists(bigFile) && std::filesystem::file_size(bigFile) >= gibibyte)
            return true;
        const std::string session = File::read(fixtures + "perm-allow.jsonl");
        FileDescriptor file = FileDescriptor::open(bigFile, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        std::string chunk;
        while (chunk.size() < (8 << 20))
            chunk += session;
        for (std::int64_t written = 0; written < gibibyte; written += chunk.size())
            IO::writeAll(file.get(), chunk, bigFile);
        return true;
    }();
    (void)made;
    return bigFile;
}

// The process's peak resident memory in MiB (VmHWM).
double peakResidentMiB() {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word)
        if (word == "VmHWM:") {
            double kib = 0;
            status >> kib;
            return kib / 1024;
        }
    return 0;
}

void shown(benchmark::State& state, HeadTailLimits limits) {
    const std::string& path = bigRecord();
    std::size_t entries = 0;
    for (auto _ : state) {
        const Transcript transcript = ClaudeTranscriptReader::read(path, "bench", limits);
        const std::string text = formatTranscript(transcript);
        benchmark::DoNotOptimize(text.data());
        entries = transcript.entries.size();
    }
    state.counters["entries"] = static_cast<double>(entries);
    state.counters["fileMiB"] = static_cast<double>(std::filesystem::file_size(path)) / (1 << 20);
    state.counters["peakRSSMiB"] = peakResidentMiB();
}

void BM_TranscriptHeadAndTail1GiB(benchmark::State& state) {
    shown(state, {});
}
// The same record read whole: what the head and tail spare.
void BM_TranscriptWhole1GiB(benchmark::State& state) {
    shown(state, {INT64_MAX, INT64_MAX, INT64_MAX});
}

void BM_HandoffLargestFixture(benchmark::State& state) {
    std::string largest;
    for (const auto& entry : std::filesystem::directory_iterator(fixtures))
        if (largest.empty() || entry.file_size() > std::filesystem::file_size(largest))
            largest = entry.path().string();
    Session session;
    session.key = {AgentKind::claude, "1948e0f2-1c32-4774-a21d-7446ccd76656"};
    for (auto _ : state) {
        const Transcript transcript = ClaudeTranscriptReader::read(largest, session.key.sessionId);
        const std::string document =
            Handoff::render(session, transcript, now(), std::string(64, 'f'));
        benchmark::DoNotOptimize(document.data());
    }
    state.counters["fixtureKiB"] = static_cast<double>(std::filesystem::file_size(largest)) / 1024;
}

BENCHMARK(BM_TranscriptHeadAndTail1GiB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TranscriptWhole1GiB)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_HandoffLargestFixture)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
