#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace pmssandbox {

/// One prepared statement. Parameters bind by position from 1; columns read by position from 0.
/// Every failure throws SqliteError.
class SqliteStatement {
public:
    SqliteStatement(sqlite3* database, std::string_view sql);
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    SqliteStatement& bind(int index, std::int64_t value);
    SqliteStatement& bind(int index, std::string_view text);
    SqliteStatement& bind(int index, const std::string& text) { return bind(index, std::string_view(text)); }
    SqliteStatement& bind(int index, const char* text) { return bind(index, std::string_view(text)); }
    SqliteStatement& bind(int index, bool value) { return bind(index, std::int64_t{value}); }
    SqliteStatement& bind(int index, int value) { return bind(index, std::int64_t{value}); }
    /// NULL when absent.
    SqliteStatement& bind(int index, std::optional<bool> value);

    /// Binds each argument in turn from parameter 1.
    template <class... Values>
    SqliteStatement& bindAll(const Values&... values) {
        int index = 0;
        (bind(++index, values), ...);
        return *this;
    }

    /// Advances to the next row; false when there is none.
    bool step();
    /// Runs a statement that returns no rows.
    void run();
    /// Back to before the first step, with no parameter bound.
    void reset();

    std::int64_t integer(int column) const;
    std::string text(int column) const;
    bool isNull(int column) const;

private:
    sqlite3* database_;
    sqlite3_stmt* statement_ = nullptr;
};

}  // namespace pmssandbox
