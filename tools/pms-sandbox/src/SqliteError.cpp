#include "SqliteError.h"

#include <sqlite3.h>

namespace pmssandbox {

SqliteError::SqliteError(sqlite3* database, const std::string& during)
    : std::runtime_error("SQLite " + during + ": " + (database ? sqlite3_errmsg(database) : "out of memory")) {}

}  // namespace pmssandbox
