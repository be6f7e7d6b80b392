// LineDiff::diff on two texts of 2,000 lines each with a few changes: the
// largest comparison the size guard still allows, as a connection preview of
// a very long settings file would need.
#include "install/LineDiff.h"

#include <benchmark/benchmark.h>
#include <string>
#include <sys/resource.h>

namespace {

// Pretty-printed JSON: many distinct lines plus the repeated brackets real files have.
std::string settingsLike(int lines, int changeEvery) {
    std::string text;
    for (int i = 0; i < lines; ++i) {
        if (i % 10 == 9)
            text += "    },";
        else if (changeEvery > 0 && i % changeEvery == changeEvery / 2)
            text += "      \"entry" + std::to_string(i) + "\": \"changed value\",";
        else
            text += "      \"entry" + std::to_string(i) + "\": \"value " + std::to_string(i * 7) +
                    "\",";
        if (i + 1 < lines)
            text += '\n';
    }
    return text;
}

double peakResidentMiB() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0; // ru_maxrss is in KiB on Linux
}

void BM_LineDiff2000x2000FewChanges(benchmark::State& state) {
    const std::string before = settingsLike(2000, 0);
    const std::string after = settingsLike(2000, 400); // five changed lines
    size_t changed = 0;
    for (auto _ : state) {
        auto lines = tidewick::LineDiff::diff(before, after);
        benchmark::DoNotOptimize(lines.data());
        changed = 0;
        for (const auto& line : lines)
            changed += line.kind != tidewick::DiffLine::Kind::same;
    }
    state.counters["changedLines"] = static_cast<double>(changed);
    state.counters["peakRSS_MiB"] = peakResidentMiB();
}
BENCHMARK(BM_LineDiff2000x2000FewChanges)->Unit(benchmark::kMillisecond);

// Everything differs: the walk cannot skip a shared head and the table is full size.
void BM_LineDiff2000x2000AllDifferent(benchmark::State& state) {
    std::string before;
    std::string after;
    for (int i = 0; i < 2000; ++i) {
        before += "old " + std::to_string(i) + "\n";
        after += "new " + std::to_string(i) + "\n";
    }
    before.pop_back();
    after.pop_back();
    for (auto _ : state)
        benchmark::DoNotOptimize(tidewick::LineDiff::diff(before, after).data());
    state.counters["peakRSS_MiB"] = peakResidentMiB();
}
BENCHMARK(BM_LineDiff2000x2000AllDifferent)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
