#include "sessions/ShortIds.h"

#include <gtest/gtest.h>

using namespace tidewick;

TEST(ShortIds, ShortestUniquePrefixOfAtLeastEightCharacters) {
    // Codex hands out time-ordered identifiers: sessions of the same minute share a long start.
    const ShortIds ids({"01a20b30-7fe1-70d0-aad1-88fe95216210", "01a20b30-7fe1-70d0-aad1-88fe95216211",
                        "01a20b30-8000-7000-a000-000000000000", "01a20b31-0000-7000-a000-000000000000",
                        "d4e23369-5ad0-4e3d-a0a4-6ef2b1e2d3c4", "g-1", "abcdefghij", "abcdefghijk",
                        "g-1", "ünïcödé-ïd"});
    const std::pair<std::string, std::string> rows[] = {
        {"01a20b30-7fe1-70d0-aad1-88fe95216210", "01a20b30-7fe1-70d0-aad1-88fe95216210"},
        {"01a20b30-8000-7000-a000-000000000000", "01a20b30-8"},
        {"01a20b31-0000-7000-a000-000000000000", "01a20b31"},
        {"d4e23369-5ad0-4e3d-a0a4-6ef2b1e2d3c4", "d4e23369"},
        {"g-1", "g-1"},
        // One identifier is the start of another: only the whole of it names it.
        {"abcdefghij", "abcdefghij"},
        {"abcdefghijk", "abcdefghijk"},
        {"ünïcödé-ïd", "ünïcödé-"},
        {"not-known-at-all", "not-know"},
    };
    for (const auto& [id, expected] : rows) {
        SCOPED_TRACE(id);
        EXPECT_EQ(ids.of(id), expected);
    }
}
