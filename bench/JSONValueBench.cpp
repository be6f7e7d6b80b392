// Parse + compact of agent-sized JSON documents, side by side with
// nlohmann::json parsing and dumping the same bytes.
#include "foundation/JSONValue.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <random>
#include <string>

namespace {

// About 1 MiB shaped like a busy agent settings file: many hook groups,
// permission lists, environment maps and numbers written in several ways.
const std::string& settingsDocument() {
    static const std::string text = [] {
        std::string out = "{\"$schema\":\"https://example.invalid/settings.json\",\"env\":{";
        for (int i = 0; i < 200; ++i)
            out += (i ? "," : "") + std::string("\"VAR_") + std::to_string(i) + "\":\"value " +
                   std::to_string(i) + "\"";
        out += "},\"permissions\":{\"allow\":[";
        for (int i = 0; i < 2000; ++i)
            out += (i ? "," : "") + std::string("\"Bash(npm run script-") + std::to_string(i) +
                   ":*)\"";
        out += "],\"deny\":[\"Read(./.env)\",\"Read(./secrets/**)\"]},\"hooks\":{";
        for (int e = 0; out.size() < (1u << 20) - 400; ++e) {
            out += (e ? "," : "") + std::string("\"Event") + std::to_string(e) + "\":[";
            for (int g = 0; g < 8; ++g) {
                out += (g ? "," : "") +
                       std::string(
                           "{\"matcher\":\"Edit|Write|Bash\",\"hooks\":[{\"type\":\"command\",") +
                       "\"command\":\"'/home/dev/Library/Application "
                       "Support/Tidewick/bin/tidewick-hook' --agent claude --event Event" +
                       std::to_string(e) + "\",\"timeout\":" + std::to_string(10 + g) +
                       ",\"ratio\":1.50,\"big\":1e3,\"off\":false,\"x\":null}]}";
            }
            out += "]";
        }
        out += "},\"statusLine\":{\"type\":\"command\",\"command\":\"status\"}}";
        return out;
    }();
    return text;
}

// About 10 MiB dominated by long strings (tool outputs), with escapes and non-ASCII text.
const std::string& longStringDocument() {
    static const std::string text = [] {
        std::mt19937 random(7);
        std::string out = "{\"session_id\":\"abc\",\"outputs\":[";
        int i = 0;
        while (out.size() < 10u * (1u << 20)) {
            out += (i++ ? "," : "") + std::string("{\"tool_response\":\"");
            for (int k = 0; k < 64 * 1024; ++k) {
                int r = static_cast<int>(random() % 100);
                if (r == 0)
                    out += "\\n";
                else if (r == 1)
                    out += "\\\"";
                else if (r == 2)
                    out += "\xC3\xA9";
                else
                    out.push_back(static_cast<char>('a' + r % 26));
            }
            out += "\",\"exit\":0}";
        }
        out += "]}";
        return out;
    }();
    return text;
}

void tidewickParseCompact(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        auto value = tidewick::JSONValue::parse(text);
        std::string out = value.compact();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
    state.counters["MiB"] = static_cast<double>(text.size()) / (1 << 20);
}

template <typename Json> void nlohmannParseDump(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        auto value = Json::parse(text);
        std::string out = value.dump();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
    state.counters["MiB"] = static_cast<double>(text.size()) / (1 << 20);
}

void BM_Tidewick_Settings1MiB(benchmark::State& s) {
    tidewickParseCompact(s, settingsDocument());
}
void BM_Nlohmann_Settings1MiB(benchmark::State& s) {
    nlohmannParseDump<nlohmann::json>(s, settingsDocument());
}
// ordered_json keeps key order as JSONValue does: the like-for-like comparison.
void BM_NlohmannOrdered_Settings1MiB(benchmark::State& s) {
    nlohmannParseDump<nlohmann::ordered_json>(s, settingsDocument());
}
void BM_Tidewick_LongStrings10MiB(benchmark::State& s) {
    tidewickParseCompact(s, longStringDocument());
}
void BM_Nlohmann_LongStrings10MiB(benchmark::State& s) {
    nlohmannParseDump<nlohmann::json>(s, longStringDocument());
}
void BM_NlohmannOrdered_LongStrings10MiB(benchmark::State& s) {
    nlohmannParseDump<nlohmann::ordered_json>(s, longStringDocument());
}

BENCHMARK(BM_Tidewick_Settings1MiB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Nlohmann_Settings1MiB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NlohmannOrdered_Settings1MiB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tidewick_LongStrings10MiB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Nlohmann_LongStrings10MiB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NlohmannOrdered_LongStrings10MiB)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
