#include "SqliteTransaction.h"

#include "SqliteDatabase.h"

namespace pmssandbox {

SqliteTransaction::SqliteTransaction(SqliteDatabase& database, bool forWriting) : database_(database) {
    database_.exec(forWriting ? "BEGIN IMMEDIATE" : "BEGIN");
}

SqliteTransaction::~SqliteTransaction() {
    if (!open_) return;
    try {
        database_.resetStatements();
        database_.exec("ROLLBACK");
    } catch (...) {
        // SQLite has rolled back already when a statement failed that way.
    }
}

void SqliteTransaction::commit() {
    database_.resetStatements();
    database_.exec("COMMIT");
    open_ = false;
}

}  // namespace pmssandbox
