// A SQLite database opened read-only, for records another program keeps
// writing: never written, waits only briefly for the writer's locks, and
// gives every query a bounded time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace tidewick {

class SQLiteDatabase {
public:
    /// Anything that went wrong: "<path>: <reason>" ("...: file is not a database").
    class Failure : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    /// The columns of one result row, valid during the callback.
    class Row {
    public:
        explicit Row(sqlite3_stmt* statement) : statement_(statement) {}
        [[nodiscard]] int columns() const;
        [[nodiscard]] std::string_view name(int column) const;
        /// Whether the value is NULL, an integer, a real, a text or a blob.
        [[nodiscard]] bool isNull(int column) const;
        [[nodiscard]] bool isNumber(int column) const;
        [[nodiscard]] bool isText(int column) const;
        [[nodiscard]] std::int64_t integer(int column) const;
        [[nodiscard]] double real(int column) const;
        /// The bytes of a text or blob value (empty for NULL).
        [[nodiscard]] std::string_view bytes(int column) const;

    private:
        sqlite3_stmt* statement_;
    };

    struct Limits {
        /// How long one query may run before it is interrupted.
        std::chrono::milliseconds query{2000};
        /// How long to wait for a lock the writer holds.
        std::chrono::milliseconds busy{500};
    };

    /// Opens `path` read-only ("file:<path>?mode=ro"). Throws Failure when it cannot be
    /// opened or is not a database.
    SQLiteDatabase(const std::string& path, Limits limits);
    ~SQLiteDatabase();
    SQLiteDatabase(const SQLiteDatabase&) = delete;
    SQLiteDatabase& operator=(const SQLiteDatabase&) = delete;

    /// Runs `sql` and calls `onRow` for each row. Throws Failure when the statement fails,
    /// the database is corrupt or locked past the busy time, or the query runs past its time.
    void query(const std::string& sql, const std::function<void(const Row&)>& onRow);

    /// `name` quoted as an SQL identifier.
    [[nodiscard]] static std::string quoted(std::string_view name);

private:
    [[noreturn]] void fail(std::string_view reason) const;
    static int onProgress(void* self);

    std::string path_;
    Limits limits_;
    sqlite3* database_ = nullptr;
    std::chrono::steady_clock::time_point deadline_;
};

} // namespace tidewick
