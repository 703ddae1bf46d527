#include "SqliteDatabase.h"

#include "SqliteError.h"

#include <sqlite3.h>

namespace pmssandbox {

SqliteDatabase::SqliteDatabase(const std::string& path) {
    const int rc = sqlite3_open_v2(path.c_str(), &handle_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc != SQLITE_OK) {
        const SqliteError error(handle_, "open " + path);
        sqlite3_close_v2(handle_);
        throw error;
    }
    sqlite3_extended_result_codes(handle_, 1);
}

SqliteDatabase::~SqliteDatabase() { sqlite3_close_v2(handle_); }

void SqliteDatabase::exec(const char* sql) {
    char* message = nullptr;
    if (sqlite3_exec(handle_, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        const std::string text = message ? message : sqlite3_errmsg(handle_);
        sqlite3_free(message);
        throw SqliteError("SQLite: " + text);
    }
}

SqliteStatement SqliteDatabase::prepare(std::string_view sql) { return SqliteStatement(handle_, sql); }

std::int64_t SqliteDatabase::lastInsertRowId() const { return sqlite3_last_insert_rowid(handle_); }

}  // namespace pmssandbox
