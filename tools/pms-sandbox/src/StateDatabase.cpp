#include "StateDatabase.h"

namespace pmssandbox {

StateDatabase::StateDatabase(const std::optional<std::string>& file)
    : database_(file.value_or(":memory:")), inFile_(file.has_value()) {
    // Another process on the same file (a second service, a look with the sqlite3 shell) waits, not fails.
    database_.exec("PRAGMA busy_timeout = 5000");
    database_.exec("PRAGMA foreign_keys = ON");
    if (inFile_) {
        database_.exec("PRAGMA journal_mode = WAL");
        database_.exec("PRAGMA synchronous = NORMAL");
    }
    database_.exec("CREATE TABLE IF NOT EXISTS sandbox_meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)");
}

StateDatabase::~StateDatabase() {
    if (!inFile_) return;
    try {
        std::lock_guard lock(mutex_);
        database_.exec("PRAGMA wal_checkpoint(TRUNCATE)");
    } catch (...) {
        // Closing checkpoints as well; this one only makes it explicit.
    }
}

std::optional<std::string> StateDatabase::seedText() {
    SqliteStatement& query = database_.prepare("SELECT value FROM sandbox_meta WHERE key = 'seed'");
    if (!query.step()) return std::nullopt;
    return query.text(0);
}

void StateDatabase::setSeedText(const std::string& text) {
    database_.run("INSERT OR REPLACE INTO sandbox_meta (key, value) VALUES ('seed', ?)", text);
}

}  // namespace pmssandbox
