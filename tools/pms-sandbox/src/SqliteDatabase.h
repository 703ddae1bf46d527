#pragma once

#include "SqliteStatement.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;

namespace pmssandbox {

/// One SQLite connection. Not thread-safe by itself: its owner serialises every use.
class SqliteDatabase {
public:
    /// Opens or creates the database file `path`; ":memory:" opens a private in-memory one. Throws SqliteError.
    explicit SqliteDatabase(const std::string& path);
    /// Closes the connection; the last one on a write-ahead log folds it back into the file.
    ~SqliteDatabase();
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;

    /// Runs one or more statements that take no parameters.
    void exec(const char* sql);
    /// The statement for `sql`, prepared on first use and kept; reset and unbound on every later one.
    SqliteStatement& prepare(std::string_view sql);
    /// Prepares `sql`, binds `values` and runs it to the end.
    template <class... Values>
    void run(std::string_view sql, const Values&... values) {
        prepare(sql).bindAll(values...).run();
    }
    /// Resets every kept statement, so that none holds a read open past the end of a transaction.
    void resetStatements();

private:
    sqlite3* handle_ = nullptr;
    // Finalised before the connection closes; std::less<> looks up by string_view without a copy.
    std::map<std::string, std::unique_ptr<SqliteStatement>, std::less<>> statements_;
};

}  // namespace pmssandbox
