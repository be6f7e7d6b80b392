// The transcript screen: one line per entry with each tool call's outcome,
// lines opened up, moving, searching, what is new since the last reading, and
// the keys that open it and write a handoff from the session list.
#include "TranscriptView.h"
#include "TranscriptAccess.h"
#include "UITestSupport.h"
#include "transcripts/Handoff.h"
#include "transcripts/TranscriptUnavailable.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

using namespace tidewick::testing;

TranscriptEntry entry(TranscriptRole role, std::string text, std::int64_t position) {
    TranscriptEntry made;
    made.role = role;
    made.text = std::move(text);
    made.position = position;
    return made;
}

TranscriptEntry call(std::string summary, std::optional<std::string> result, bool failed,
                     std::int64_t position) {
    TranscriptEntry made = entry(TranscriptRole::tool, "", position);
    made.tool.emplace();
    made.tool->id = made.tool->summary = std::move(summary);
    made.tool->input = "make -j2 install";
    made.tool->result = std::move(result);
    made.tool->failed = failed;
    return made;
}

Transcript sample() {
    Transcript transcript;
    transcript.sessionId = "bc2ae821-aea9";
    transcript.projectPath = "/home/dev/proj";
    transcript.entries = {entry(TranscriptRole::user, "build it", 0),
                          call("Run make", "make: *** No rule\nsecond line", true, 100),
                          entry(TranscriptRole::agent, "Fixed the Makefile.\nAll done.", 200),
                          call("Run make install", std::nullopt, false, 300)};
    transcript.userMessages = 1;
    transcript.toolCalls = 2;
    transcript.failedToolCalls = 1;
    transcript.subagents = {{"a5709cbc8bc982a96",
                             "Sub task",
                             std::nullopt,
                             {entry(TranscriptRole::agent, "Listed the files.", 0)},
                             {}}};
    return transcript;
}

std::vector<std::string> texts(const std::vector<FrameLine>& lines) {
    std::vector<std::string> out;
    for (const FrameLine& line : lines) {
        std::string text;
        for (const Segment& segment : line)
            text += segment.text;
        // Without the time column (no times here) and the padding at the end.
        if (text.starts_with(std::string(10, ' ')))
            text.erase(0, 10);
        out.push_back(text.substr(0, text.find_last_not_of(' ') + 1));
    }
    return out;
}

TEST(TranscriptView, OneLinePerEntryEachFillingTheWidth) {
    const TranscriptView view(sample(), std::nullopt);
    EXPECT_EQ(view.selected(), 3u) << "the latest entry of the main thread";
    EXPECT_EQ(view.title(),
              "Claude Code session bc2ae821 · /home/dev/proj · 1 prompt · 2 tool calls (1 failed)");
    EXPECT_THAT(texts(view.lines(60, 20)),
                ElementsAre("You      build it", "Tool     ✗ Run make  make: *** No rule",
                            "Agent    Fixed the Makefile.", "Tool     … Run make install",
                            "System   Sub-agent a5709cbc — Sub task",
                            "Agent    Listed the files."));
    Frame frame;
    frame.lines = view.lines(60, 20);
    expectExactSize(frame, 60, 6);
}

/// Presses each of `keys` in `view`, each leaving it open.
void type(TranscriptView& view, const std::u32string& keys) {
    for (char32_t key : keys)
        EXPECT_EQ(view.handleKey(keyOf(key)), TranscriptView::Outcome::stay);
}

TEST(TranscriptView, KeysMoveSearchOpenLinesAndClose) {
    TranscriptView view(sample(), std::nullopt);
    const auto find = [](std::u32string_view text) { return keys(U'/', text, enter); };
    struct Step {
        std::u32string keys;
        std::size_t selected;
        std::string notice;
    };
    const Step steps[] = {
        {{up, U'k'}, 1, ""},
        {{home}, 0, ""},
        {find(U"MAKEFILE"), 2, ""},
        {find(U"no rule"), 1, ""}, // found in a result
        {U"n", 1, ""},             // the only match: found again
        {find(U"listed"), 5, ""},  // in a sub-agent
        {U"N", 5, ""},
        {find(U"nowhere"), 5, "No match for “nowhere”."},
        {{pageUp}, 0, "No match for “nowhere”."},
        {{end, U'j'}, 5, "No match for “nowhere”."},
    };
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        SCOPED_TRACE(i);
        type(view, steps[i].keys);
        EXPECT_EQ(view.selected(), steps[i].selected);
        EXPECT_EQ(view.notice(), steps[i].notice);
    }

    // Enter opens the selected line: the whole command and result under it.
    type(view, {home, U'j', enter});
    EXPECT_TRUE(view.isExpanded(1));
    const std::vector<std::string> opened = texts(view.lines(60, 20));
    ASSERT_GE(opened.size(), 5u);
    EXPECT_EQ(opened[1], "Tool     ✗ Run make");
    EXPECT_THAT(opened[2], HasSubstr("make -j2 install"));
    EXPECT_THAT(opened[3], HasSubstr("make: *** No rule"));
    EXPECT_THAT(opened[4], HasSubstr("second line"));
    type(view, U" ");
    EXPECT_FALSE(view.isExpanded(1));

    // Typing a search takes every key, Esc included, until it ends.
    type(view, U"/");
    EXPECT_TRUE(view.isSearching());
    type(view, {U'q', escape});
    EXPECT_FALSE(view.isSearching());
    for (Key close : {Key::of('t'), Key::of('q'), Key::special(Key::Kind::escape)})
        EXPECT_EQ(view.handleKey(close), TranscriptView::Outcome::close);
}

TEST(TranscriptView, WhatIsNewSinceTheLastReadingIsMarkedAndSelected) {
    const TranscriptView view(sample(), 200);
    EXPECT_EQ(view.firstNew(), 2u);
    EXPECT_EQ(view.selected(), 2u);
    EXPECT_THAT(texts(view.lines(60, 20))[2], HasSubstr("new since you last looked"));
    EXPECT_EQ(TranscriptView(sample(), 10000).firstNew(), std::nullopt);
    EXPECT_EQ(TranscriptView(Transcript{}, std::nullopt).lines(40, 5).size(), 1u);
}

class FakeTranscripts final : public TranscriptAccess {
public:
    Transcript read(const Session& session) override {
        if (!available)
            throw TranscriptUnavailable("Tidewick couldn't find it.");
        Transcript transcript = sample();
        transcript.sessionId = session.key.sessionId;
        transcript.position = 4242;
        return transcript;
    }
    std::string writeHandoff(const Session& session, Date) override {
        if (!available)
            throw Handoff::Failure("Tidewick couldn't write the handoff.");
        return "Handoff written to /h/" + session.key.sessionId + ".md";
    }
    void markRead(const SessionKey& key, std::int64_t position) override {
        marked.emplace_back(key.sessionId, position);
    }
    bool available = true;
    std::vector<std::pair<std::string, std::int64_t>> marked;
};

using TranscriptViewTest = UITest;

TEST_F(TranscriptViewTest, TheSessionListOpensTheTranscriptAndWritesHandoffs) {
    // Without access the keys say so.
    type(U"t");
    EXPECT_EQ(message(), "No session is selected.");
    controller.setSessions({makeSession("bc2ae821-aea9")});
    type(U"t");
    EXPECT_EQ(message(), "Transcripts are not available here.");

    FakeTranscripts transcripts;
    controller.setTranscriptAccess(&transcripts);
    type(U"t");
    ASSERT_EQ(controller.mode(), ScreenController::Mode::transcript);
    EXPECT_EQ(transcripts.marked,
              (std::vector<std::pair<std::string, std::int64_t>>{{"bc2ae821-aea9", 4242}}));
    const Frame frame = screen(80, 16);
    EXPECT_THAT(frame.text(1), HasSubstr("Transcript · Claude Code session bc2ae821"));
    EXPECT_THAT(frame.text(), HasSubstr("✗ Run make"));
    EXPECT_THAT(frame.text(15), HasSubstr("/ search"));

    // h writes the handoff of the session shown, from the transcript or the list.
    type(U"h");
    EXPECT_EQ(message(), "Handoff written to /h/bc2ae821-aea9.md");
    EXPECT_EQ(controller.message(t0)->tone, ScreenController::Tone::success);
    type(U"t");
    EXPECT_EQ(controller.mode(), ScreenController::Mode::browse);
    EXPECT_EQ(controller.transcript(), nullptr);
    transcripts.available = false;
    type(U"h");
    EXPECT_EQ(message(), "Tidewick couldn't write the handoff.");
    type(U"t");
    EXPECT_EQ(controller.mode(), ScreenController::Mode::browse);
    EXPECT_EQ(message(), "Tidewick couldn't find it.");
    EXPECT_EQ(controller.message(t0)->tone, ScreenController::Tone::warning);
}

} // namespace
} // namespace tidewick
