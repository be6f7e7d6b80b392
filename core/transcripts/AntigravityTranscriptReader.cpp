#include "transcripts/AntigravityTranscriptReader.h"

#include "foundation/File.h"
#include "foundation/Text.h"
#include "foundation/UTF8.h"
#include "transcripts/MessageLines.h"
#include "transcripts/RecordedTime.h"
#include "transcripts/TranscriptBuilder.h"

#include <algorithm>

namespace tidewick {

namespace {

bool isTimeColumn(std::string_view name) {
    const std::string lower = Text::lowercased(name);
    for (std::string_view hint : {"time", "created", "updated", "date", "_at"})
        if (lower.find(hint) != std::string::npos)
            return true;
    return false;
}

// The length of the UTF-8 sequence starting at `at` that encodes one printable character
// (a tab counts); 0 for anything else.
std::size_t printableAt(std::string_view bytes, std::size_t at) {
    const auto byte = static_cast<unsigned char>(bytes[at]);
    if (byte == '\t' || (byte >= 0x20 && byte < 0x7f))
        return 1;
    const std::size_t length = byte >= 0xf0 ? 4 : byte >= 0xe0 ? 3 : byte >= 0xc2 ? 2 : 0;
    if (length == 0 || at + length > bytes.size() || !UTF8::isValid(bytes.substr(at, length)))
        return 0;
    return length;
}

struct Step {
    std::int64_t number = 0;
    std::optional<Date> time;
    std::string text;
};

// One row of the step table as a step.
Step stepOf(const SQLiteDatabase::Row& row, std::int64_t number) {
    Step step;
    step.number = number;
    for (int column = 0; column < row.columns(); ++column) {
        if (row.isNull(column))
            continue;
        if (isTimeColumn(row.name(column)) && !step.time) {
            step.time = row.isNumber(column) ? RecordedTime::fromEpochNumber(row.real(column))
                                             : RecordedTime::parseISO8601(row.bytes(column));
            continue;
        }
        if (row.isNumber(column))
            continue;
        std::string found = AntigravityTranscriptReader::plainText(row.bytes(column));
        if (!found.empty())
            step.text += (step.text.empty() ? "" : "\n") + found;
    }
    step.text = Text::cut(step.text, AntigravityTranscriptReader::stepTextLimit, Text::ellipsis);
    return step;
}

} // namespace

std::string AntigravityTranscriptReader::plainText(std::string_view bytes) {
    std::string out;
    std::size_t at = 0;
    while (at < bytes.size() && out.size() < stepTextLimit * 4) {
        std::size_t end = at;
        while (end < bytes.size()) {
            const std::size_t length = printableAt(bytes, end);
            if (length == 0)
                break;
            end += length;
        }
        const std::string_view run = Text::trimmed(bytes.substr(at, end - at));
        if (run.size() >= 8 && run.find(' ') != std::string_view::npos)
            out += (out.empty() ? "" : "\n") + std::string(run);
        at = std::max(end + 1, at + 1);
    }
    return Text::cut(out, stepTextLimit, Text::ellipsis);
}

Transcript AntigravityTranscriptReader::readMirror(const std::string& path,
                                                   const std::string& conversationId,
                                                   HeadTailFile::Limits limits) {
    TranscriptBuilder builder(AgentKind::antigravity, conversationId, path);
    MessageLines reader(builder);
    builder.readJSONLines(
        HeadTailFile(path, limits),
        [&](const JSONValue& line, std::int64_t offset) { reader.read(line, offset); });
    return builder.finish();
}

Transcript AntigravityTranscriptReader::readDatabase(const std::string& path,
                                                     const std::string& conversationId,
                                                     SQLiteDatabase::Limits limits) {
    SQLiteDatabase database(path, limits);
    std::vector<std::string> tables;
    database.query("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE "
                   "'sqlite_%' ORDER BY rowid",
                   [&](const SQLiteDatabase::Row& row) { tables.emplace_back(row.bytes(0)); });
    TranscriptBuilder builder(AgentKind::antigravity, conversationId, path);
    if (tables.empty())
        return builder.finish();
    const auto named = std::find_if(tables.begin(), tables.end(), [](const std::string& name) {
        return Text::lowercased(name).find("step") != std::string::npos;
    });
    const std::string table = SQLiteDatabase::quoted(named == tables.end() ? tables[0] : *named);

    std::int64_t count = 0;
    database.query("SELECT count(*) FROM " + table,
                   [&](const SQLiteDatabase::Row& row) { count = row.integer(0); });
    builder.transcript().position = count;

    std::vector<Step> head, tail;
    std::int64_t number = 0;
    database.query("SELECT * FROM " + table + " LIMIT " + std::to_string(headSteps),
                   [&](const SQLiteDatabase::Row& row) { head.push_back(stepOf(row, ++number)); });
    const std::int64_t rest = count - static_cast<std::int64_t>(head.size());
    if (rest > 0) {
        const std::int64_t from = std::max<std::int64_t>(head.size(), count - tailSteps);
        number = from;
        database.query(
            "SELECT * FROM " + table + " LIMIT " + std::to_string(count - from) + " OFFSET " +
                std::to_string(from),
            [&](const SQLiteDatabase::Row& row) { tail.push_back(stepOf(row, ++number)); });
        if (const std::int64_t skipped = from - static_cast<std::int64_t>(head.size()); skipped > 0)
            head.push_back(Step{-skipped, std::nullopt, ""});
    }
    head.insert(head.end(), tail.begin(), tail.end());
    for (const Step& step : head) {
        TranscriptEntry entry;
        entry.role = TranscriptRole::system;
        entry.time = step.time;
        // Steps counted from 0, so that those past a previous reading's count are the new ones.
        entry.position = std::max<std::int64_t>(step.number - 1, 0);
        entry.text = step.number < 0 ? "[" + std::to_string(-step.number) + " steps not shown]"
                                     : "Step " + std::to_string(step.number) +
                                           (step.text.empty() ? "" : ": " + step.text);
        builder.add(std::move(entry));
    }
    return builder.finish();
}

std::optional<std::string>
AntigravityTranscriptReader::find(const std::vector<std::string>& folders,
                                  const std::string& conversationId) {
    if (conversationId.empty() || conversationId.find('/') != std::string::npos)
        return std::nullopt;
    for (const std::string& folder : folders) {
        const std::string path = File::join(folder, conversationId + ".db");
        if (File::exists(path))
            return path;
    }
    return std::nullopt;
}

} // namespace tidewick
