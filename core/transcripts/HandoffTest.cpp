// The handoff document: compared whole with a reviewed copy for a recorded
// session, never carrying the shared secret, written owner-only.
#include "transcripts/Handoff.h"
#include "transcripts/ClaudeTranscriptReader.h"
#include "transcripts/CodexTranscriptReader.h"
#include "transcripts/TranscriptTestSupport.h"
#include "transcripts/TranscriptText.h"

#include "foundation/Text.h"
#include "testing/TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;

const std::string golden = TIDEWICK_SOURCE_DIR "/core/transcripts/testdata/";

Session sessionFor(AgentKind agent, std::string id, const Transcript& transcript) {
    Session session;
    session.key = {agent, std::move(id)};
    session.projectPath = transcript.projectPath;
    session.status = SessionStatus::finished;
    return session;
}

TEST(Handoff, RecordedSessionsGiveTheReviewedDocuments) {
    const Date written = dateFromSeconds(1795236900); // 2026-11-21 04:55 UTC
    struct Row {
        std::string goldenFile;
        Session session;
        Transcript transcript;
    };
    const std::string claudeId = "bc2ae821-aea9-4d2a-bb46-238b514a9108";
    const Transcript claude =
        ClaudeTranscriptReader::read(recorded + "/claude-transcripts/perm-allow.jsonl", claudeId);
    const std::string codexId = "01a1fc51-dae9-73a1-81c5-cba9de8fb100";
    const Transcript codex = CodexTranscriptReader::read(codexRollout("stop-block"), codexId);
    Session held = sessionFor(AgentKind::codex, codexId, codex);
    held.status = SessionStatus::needsPermission;
    PendingRequest request;
    request.kind = PendingKind::permission;
    request.title = "Run make install";
    request.detail = "make install";
    held.pending.push_back(request);
    const Row rows[] = {
        {"claude-perm-allow.md", sessionFor(AgentKind::claude, claudeId, claude), claude},
        {"codex-stop-block.md", held, codex},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.goldenFile);
        const std::string document = Handoff::render(row.session, row.transcript, written, "");
        // The source path depends on where the fixtures are: the copy names it by a marker.
        const std::string portable = Text::replacingAll(document, recorded, "<fixtures>");
        // After a reviewed change of the document, TIDEWICK_UPDATE_GOLDEN=1 rewrites the copies.
        if (std::getenv("TIDEWICK_UPDATE_GOLDEN"))
            put(golden + row.goldenFile, portable);
        EXPECT_EQ(portable, File::read(golden + row.goldenFile));
    }
}

TEST(Handoff, NeverCarriesTheSecretAndIsWrittenForTheOwnerAlone) {
    TemporaryDirectory home;
    const TidewickPaths paths(home.path());
    const std::string secret = std::string(64, 'a');
    Transcript transcript;
    transcript.projectPath = "/home/dev/proj";
    TranscriptEntry prompt;
    prompt.role = TranscriptRole::user;
    prompt.text = "use the key " + secret + " to sign";
    transcript.entries.push_back(prompt);
    Session session = sessionFor(AgentKind::antigravity, "conv-1", transcript);

    const std::string document = Handoff::render(session, transcript, dateFromSeconds(0), secret);
    EXPECT_EQ(document.find(secret), std::string::npos);
    EXPECT_THAT(document, ::testing::HasSubstr("use the key [removed] to sign"));
    EXPECT_THAT(document, ::testing::HasSubstr("open the conversation in Antigravity"));

    const std::string path = Handoff::defaultPath(paths, session, dateFromSeconds(0));
    EXPECT_EQ(path, paths.handoffsDirectory() + "/proj-antigravity-conv-1-19700101-000000.md");
    EXPECT_THAT(
        [&] { Handoff::write("leaked " + secret, path, secret); },
        ::testing::ThrowsMessage<Handoff::Failure>(std::string(TranscriptText::handoffRefused)));
    EXPECT_FALSE(File::exists(path));
    Handoff::write(document, path, secret);
    EXPECT_EQ(File::read(path), document);
    EXPECT_EQ(modeOf(path), 0600);
    EXPECT_EQ(modeOf(paths.handoffsDirectory()), 0700);
    EXPECT_THROW(Handoff::write(document, home.path() + "/gone/x/../../" + "secret/", secret),
                 Handoff::Failure);
}

} // namespace
} // namespace tidewick
