#include "transcripts/SQLiteDatabase.h"

#include <sqlite3.h>

namespace tidewick {

namespace {

// The path as a URI file name: the characters a URI gives meaning to are escaped.
std::string uriFor(const std::string& path) {
    std::string uri = "file:";
    for (char c : path) {
        if (c == '%' || c == '?' || c == '#') {
            static constexpr char digits[] = "0123456789abcdef";
            uri += '%';
            uri += digits[static_cast<unsigned char>(c) >> 4];
            uri += digits[static_cast<unsigned char>(c) & 15];
        } else {
            uri += c;
        }
    }
    // Not immutable: the agent may be writing the database while it is read.
    return uri + "?mode=ro";
}

} // namespace

int SQLiteDatabase::Row::columns() const {
    return sqlite3_column_count(statement_);
}
std::string_view SQLiteDatabase::Row::name(int column) const {
    const char* name = sqlite3_column_name(statement_, column);
    return name ? name : "";
}
bool SQLiteDatabase::Row::isNull(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}
bool SQLiteDatabase::Row::isNumber(int column) const {
    const int type = sqlite3_column_type(statement_, column);
    return type == SQLITE_INTEGER || type == SQLITE_FLOAT;
}
bool SQLiteDatabase::Row::isText(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_TEXT;
}
std::int64_t SQLiteDatabase::Row::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}
double SQLiteDatabase::Row::real(int column) const {
    return sqlite3_column_double(statement_, column);
}
std::string_view SQLiteDatabase::Row::bytes(int column) const {
    const void* data = sqlite3_column_blob(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    return data ? std::string_view(static_cast<const char*>(data), static_cast<std::size_t>(size))
                : std::string_view();
}

SQLiteDatabase::SQLiteDatabase(const std::string& path, Limits limits)
    : path_(path), limits_(limits) {
    const int status =
        sqlite3_open_v2(uriFor(path).c_str(), &database_,
                        SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX, nullptr);
    if (status != SQLITE_OK) {
        const std::string reason = database_ ? sqlite3_errmsg(database_) : sqlite3_errstr(status);
        sqlite3_close(database_);
        database_ = nullptr;
        throw Failure(path + ": " + reason);
    }
    sqlite3_busy_timeout(database_, static_cast<int>(limits_.busy.count()));
    // Checked every thousand virtual-machine steps: cheap, and fine-grained enough.
    sqlite3_progress_handler(database_, 1000, &SQLiteDatabase::onProgress, this);
}

SQLiteDatabase::~SQLiteDatabase() {
    sqlite3_close(database_);
}

int SQLiteDatabase::onProgress(void* self) {
    const auto* database = static_cast<SQLiteDatabase*>(self);
    return std::chrono::steady_clock::now() > database->deadline_ ? 1 : 0;
}

void SQLiteDatabase::fail(std::string_view reason) const {
    throw Failure(path_ + ": " + std::string(reason));
}

void SQLiteDatabase::query(const std::string& sql, const std::function<void(const Row&)>& onRow) {
    deadline_ = std::chrono::steady_clock::now() + limits_.query;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
        const std::string reason = sqlite3_errmsg(database_);
        sqlite3_finalize(statement);
        fail(reason);
    }
    int status = SQLITE_ROW;
    try {
        const Row row(statement);
        while ((status = sqlite3_step(statement)) == SQLITE_ROW)
            onRow(row);
    } catch (...) {
        sqlite3_finalize(statement);
        throw;
    }
    const std::string reason =
        status == SQLITE_INTERRUPT ? "it took too long to read" : sqlite3_errmsg(database_);
    sqlite3_finalize(statement);
    if (status != SQLITE_DONE)
        fail(reason);
}

std::string SQLiteDatabase::quoted(std::string_view name) {
    std::string out = "\"";
    for (char c : name)
        out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

} // namespace tidewick
