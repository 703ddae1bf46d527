#pragma once

#include "SqliteStatement.h"

#include <cstdint>
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
    SqliteStatement prepare(std::string_view sql);
    /// Prepares `sql`, binds `values` and runs it to the end.
    template <class... Values>
    void run(std::string_view sql, const Values&... values) {
        prepare(sql).bindAll(values...).run();
    }
    std::int64_t lastInsertRowId() const;

private:
    sqlite3* handle_ = nullptr;
};

}  // namespace pmssandbox
