#include "SqliteStatement.h"

#include "SqliteError.h"

#include <sqlite3.h>


namespace pmssandbox {

SqliteStatement::SqliteStatement(sqlite3* database, std::string_view sql) : database_(database) {
    const int rc = sqlite3_prepare_v2(database, sql.data(), static_cast<int>(sql.size()), &statement_, nullptr);
    if (rc != SQLITE_OK) throw SqliteError(database, "prepare");
}

SqliteStatement::~SqliteStatement() { sqlite3_finalize(statement_); }

SqliteStatement& SqliteStatement::bind(int index, std::int64_t value) {
    if (sqlite3_bind_int64(statement_, index, value) != SQLITE_OK) throw SqliteError(database_, "bind");
    return *this;
}

SqliteStatement& SqliteStatement::bind(int index, std::string_view text) {
    if (sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT) != SQLITE_OK)
        throw SqliteError(database_, "bind");
    return *this;
}

SqliteStatement& SqliteStatement::bind(int index, std::optional<bool> value) {
    if (value) return bind(index, std::int64_t{*value});
    if (sqlite3_bind_null(statement_, index) != SQLITE_OK) throw SqliteError(database_, "bind");
    return *this;
}

bool SqliteStatement::step() {
    const int rc = sqlite3_step(statement_);
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    throw SqliteError(database_, "step");
}

void SqliteStatement::run() {
    while (step()) {
    }
}

void SqliteStatement::reset() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

std::int64_t SqliteStatement::integer(int column) const { return sqlite3_column_int64(statement_, column); }

std::string SqliteStatement::text(int column) const {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))) : std::string();
}

bool SqliteStatement::isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }

}  // namespace pmssandbox
