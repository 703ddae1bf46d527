#pragma once

#include <stdexcept>
#include <string>

struct sqlite3;

namespace pmssandbox {

/// A failed SQLite call, with the database's own message. Thrown only inside the library.
class SqliteError : public std::runtime_error {
public:
    SqliteError(sqlite3* database, const std::string& during);
    explicit SqliteError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace pmssandbox
