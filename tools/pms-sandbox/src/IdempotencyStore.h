#pragma once

#include "ApiReply.h"

#include <optional>
#include <string>
#include <string_view>

namespace pmssandbox {

class SqliteDatabase;

/// Replies to requests sent with an Idempotency-Key, kept with what the request was (its fingerprint:
/// method, route and body), so that a retry gets the first reply instead of acting twice. Used only
/// inside the transaction that made the change the reply reports, so a key and its change commit together.
class IdempotencyStore {
public:
    struct Stored {
        std::string fingerprint;
        ApiReply reply;
    };

    explicit IdempotencyStore(SqliteDatabase& database) : database_(database) {}

    /// 1 to 255 visible ASCII characters.
    static bool isValidKey(std::string_view key);
    static std::string fingerprint(std::string_view method, std::string_view routePath, std::string_view body);

    void createTables();
    std::optional<Stored> find(const std::string& key);
    void save(const std::string& key, const std::string& fingerprint, const ApiReply& reply);
    void clear();

private:
    SqliteDatabase& database_;
};

}  // namespace pmssandbox
