#include "IdempotencyStore.h"

#include "SqliteDatabase.h"

#include <algorithm>

namespace pmssandbox {

bool IdempotencyStore::isValidKey(std::string_view key) {
    return !key.empty() && key.size() <= 255 &&
           std::all_of(key.begin(), key.end(), [](unsigned char c) { return c > 0x20 && c < 0x7f; });
}

std::string IdempotencyStore::fingerprint(std::string_view method, std::string_view routePath, std::string_view body) {
    std::string text;
    text.reserve(method.size() + routePath.size() + body.size() + 2);
    text.append(method).append(" ").append(routePath).append("\n").append(body);
    return text;
}

void IdempotencyStore::createTables() {
    database_.exec("CREATE TABLE IF NOT EXISTS idempotency_keys (key TEXT PRIMARY KEY, fingerprint BLOB NOT NULL, "
                   "status INTEGER NOT NULL, headers TEXT NOT NULL, body TEXT NOT NULL)");
}

std::optional<IdempotencyStore::Stored> IdempotencyStore::find(const std::string& key) {
    SqliteStatement& row =
        database_.prepare("SELECT fingerprint, status, headers, body FROM idempotency_keys WHERE key = ?");
    row.bind(1, key);
    if (!row.step()) return std::nullopt;
    Stored stored{row.text(0), {}};
    stored.reply.status = static_cast<int>(row.integer(1));
    const auto headers = nlohmann::json::parse(row.text(2), nullptr, false);
    if (headers.is_array()) {
        for (const auto& pair : headers) {
            if (pair.is_array() && pair.size() == 2 && pair[0].is_string() && pair[1].is_string())
                stored.reply.headers.emplace_back(pair[0].get<std::string>(), pair[1].get<std::string>());
        }
    }
    stored.reply.body = nlohmann::json::parse(row.text(3), nullptr, false);
    return stored;
}

void IdempotencyStore::save(const std::string& key, const std::string& fingerprint, const ApiReply& reply) {
    const auto text = [](const nlohmann::json& value) {
        return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    };
    database_.run("INSERT INTO idempotency_keys (key, fingerprint, status, headers, body) VALUES (?, ?, ?, ?, ?)", key,
                  fingerprint, reply.status, text(nlohmann::json(reply.headers)), text(reply.body));
}

void IdempotencyStore::clear() { database_.exec("DELETE FROM idempotency_keys"); }

}  // namespace pmssandbox
