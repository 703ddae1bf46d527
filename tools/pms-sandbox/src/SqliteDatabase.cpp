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

SqliteDatabase::~SqliteDatabase() {
    statements_.clear();
    sqlite3_close_v2(handle_);
}

void SqliteDatabase::exec(const char* sql) {
    char* message = nullptr;
    if (sqlite3_exec(handle_, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        const std::string text = message ? message : sqlite3_errmsg(handle_);
        sqlite3_free(message);
        throw SqliteError("SQLite: " + text);
    }
}

SqliteStatement& SqliteDatabase::prepare(std::string_view sql) {
    auto found = statements_.find(sql);
    if (found != statements_.end()) {
        found->second->reset();
        return *found->second;
    }
    auto statement = std::make_unique<SqliteStatement>(handle_, sql);
    return *statements_.emplace(std::string(sql), std::move(statement)).first->second;
}

void SqliteDatabase::resetStatements() {
    for (auto& [sql, statement] : statements_) statement->reset();
}

}  // namespace pmssandbox
