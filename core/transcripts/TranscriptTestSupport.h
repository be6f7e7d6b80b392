// Helpers shared by the transcript tests: where the recorded fixtures are,
// and an entry summed up in one comparable line.
#pragma once

#include "foundation/File.h"
#include "testing/TestFiles.h"
#include "transcripts/Transcript.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace tidewick::testing {

inline const std::string recorded = TIDEWICK_SOURCE_DIR "/../shared/fixtures";

/// The one rollout file of a recorded Codex run.
inline std::string codexRollout(const std::string& run) {
    for (const auto& entry :
         std::filesystem::directory_iterator(recorded + "/codex/sessions/" + run))
        return entry.path().string();
    return {};
}

/// "role: text", "tool: summary -> result [failed]", "tool: summary (no result)".
inline std::string describe(const TranscriptEntry& entry) {
    std::string line = std::string(rawValue(entry.role)) + ": ";
    if (!entry.tool)
        return line + (entry.thinking ? "(thinking) " : "") + entry.text;
    line += entry.tool->summary;
    if (!entry.tool->finished())
        return line + " (no result)";
    const std::string& result = *entry.tool->result;
    return line + " -> " + result.substr(0, result.find('\n')) +
           (entry.tool->failed ? " [failed]" : "");
}

inline std::vector<std::string> describe(const std::vector<TranscriptEntry>& entries) {
    std::vector<std::string> lines;
    for (const TranscriptEntry& entry : entries)
        lines.push_back(describe(entry));
    return lines;
}

} // namespace tidewick::testing
