#include <VLMSDKPMSKit/Private/Outbox/VLMSDKOutboxStore.h>

#include <sqlite3.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <utility>

namespace vlmsdk::detail {

namespace {

// "VLMO": what marks a file as an outbox's; a file with another id is someone else's.
constexpr int kApplicationID = 0x564C4D4F;
constexpr int kSchemaVersion = 1;

constexpr const char* kSchema = R"sql(
CREATE TABLE items(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  operation INTEGER NOT NULL,
  reservation TEXT NOT NULL,
  parameters TEXT NOT NULL,
  amount REAL,
  idempotency_key TEXT NOT NULL,
  enqueued_at INTEGER NOT NULL,
  attempts INTEGER NOT NULL DEFAULT 0,
  next_attempt_at INTEGER NOT NULL DEFAULT 0,
  last_error TEXT NOT NULL DEFAULT '',
  ended INTEGER NOT NULL DEFAULT 0,
  reply TEXT,
  error TEXT,
  handed INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX items_by_state ON items(ended, reservation, id);
)sql";
// `ended`: 0 while pending, else 1 + the outcome's kind. `handed`: 0 never handed over, 1 handed over by this
// process, 2 by an earlier one (so the outcome is redelivered).

std::int64_t millisecondsNow() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::chrono::system_clock::time_point timeOf(std::int64_t milliseconds) {
    return std::chrono::system_clock::time_point(std::chrono::milliseconds(milliseconds));
}

VLMErrorPtr storeError(std::string message) {
    return VLMError::errorWithCode(VLMErrorCode::Unknown, "com.velmora.sdk.outbox", std::move(message), __func__,
                                   __FILE__);
}

// One prepared statement, finalized when it goes out of scope.
class Statement {
public:
    Statement(sqlite3* database, const char* sql) { sqlite3_prepare_v2(database, sql, -1, &statement_, nullptr); }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    explicit operator bool() const { return statement_ != nullptr; }
    Statement& bind(int index, std::int64_t value) {
        sqlite3_bind_int64(statement_, index, value);
        return *this;
    }
    Statement& bind(int index, double value) {
        sqlite3_bind_double(statement_, index, value);
        return *this;
    }
    Statement& bind(int index, const std::string& value) {
        sqlite3_bind_text(statement_, index, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bindNull(int index) {
        sqlite3_bind_null(statement_, index);
        return *this;
    }
    /// SQLITE_ROW, SQLITE_DONE or an error code.
    int step() { return statement_ ? sqlite3_step(statement_) : SQLITE_ERROR; }
    std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
    double real(int column) const { return sqlite3_column_double(statement_, column); }
    bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
    std::string text(int column) const {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
        return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                     : std::string();
    }

private:
    sqlite3_stmt* statement_ = nullptr;
};

// An error as the file keeps it, and back.
std::string errorText(const VLMErrorPtr& error) {
    if (!error) return {};
    VLMSDKJSON json{{"domain", error->domain()},
                    {"code", static_cast<int>(error->code())},
                    {"developerMessage", error->developerMessage()},
                    {"userMessage", error->userMessage()}};
    if (error->httpStatusCode()) json["httpStatusCode"] = *error->httpStatusCode();
    if (error->serverMessage()) json["serverMessage"] = *error->serverMessage();
    if (error->requestID()) json["requestID"] = *error->requestID();
    return json.dump(-1, ' ', false, VLMSDKJSON::error_handler_t::replace);
}

VLMErrorPtr errorFromText(const std::string& text) {
    if (text.empty()) return nullptr;
    const VLMSDKJSON json = VLMSDKJSON::parse(text, nullptr, false);
    if (!json.is_object()) return storeError("The outbox file holds an error it cannot read.");
    VLMError::Details details;
    details.domain = json.value("domain", "");
    details.code = static_cast<VLMErrorCode>(json.value("code", 0));
    details.developerMessage = json.value("developerMessage", "");
    details.userMessage = json.value("userMessage", "");
    if (json.contains("httpStatusCode")) details.httpStatusCode = json.value("httpStatusCode", 0L);
    if (json.contains("serverMessage")) details.serverMessage = json.value("serverMessage", "");
    if (json.contains("requestID")) details.requestID = json.value("requestID", "");
    return std::make_shared<const VLMError>(std::move(details));
}

constexpr const char* kItemColumns =
    "id, operation, reservation, parameters, idempotency_key, enqueued_at, attempts, next_attempt_at, last_error";

VLMSDKOutboxItem itemOf(const Statement& row) {
    VLMSDKOutboxItem item;
    item.id = row.integer(0);
    item.operation = static_cast<VLMSDKOutboxOperation>(row.integer(1));
    item.reservationID = row.text(2);
    item.parameters = VLMSDKJSON::parse(row.text(3), nullptr, false);
    item.idempotencyKey = row.text(4);
    item.enqueuedAt = timeOf(row.integer(5));
    item.attempts = static_cast<unsigned>(row.integer(6));
    if (row.integer(7) > 0) item.nextAttemptAt = timeOf(row.integer(7));
    item.lastError = row.text(8);
    return item;
}

bool run(sqlite3* database, const char* sql) { return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }

int pragmaInteger(sqlite3* database, const char* sql) {
    Statement statement(database, sql);
    return statement.step() == SQLITE_ROW ? static_cast<int>(statement.integer(0)) : -1;
}

enum class Opening { Opened, Locked, Foreign, Failed };

// Opens `path` in exclusive WAL mode and makes sure it is an outbox file (a new one gets the schema).
Opening openExclusive(const std::string& path, sqlite3** out, std::string* why) {
    sqlite3* database = nullptr;
    const int opened = sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    const auto fail = [&](Opening result) {
        if (why->empty()) *why = database ? sqlite3_errmsg(database) : "out of memory";
        sqlite3_close(database);
        return result;
    };
    if (opened != SQLITE_OK) return fail(Opening::Failed);
    sqlite3_extended_result_codes(database, 1);
    if (sqlite3_db_readonly(database, "main") == 1) {
        *why = "the file is read-only";
        return fail(Opening::Failed);
    }
    // Held from here to close: a second connection, in any process, is refused rather than sharing the queue.
    run(database, "PRAGMA locking_mode=EXCLUSIVE");
    const int locked = sqlite3_exec(database, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
    if ((locked & 0xFF) == SQLITE_BUSY || (locked & 0xFF) == SQLITE_LOCKED) return fail(Opening::Locked);
    if ((locked & 0xFF) == SQLITE_NOTADB || (locked & 0xFF) == SQLITE_CORRUPT) return fail(Opening::Foreign);
    if (locked != SQLITE_OK) return fail(Opening::Failed);
    const int tables = pragmaInteger(database, "SELECT count(*) FROM sqlite_master");
    const int application = pragmaInteger(database, "PRAGMA application_id");
    if (tables < 0 || application < 0) {
        run(database, "ROLLBACK");
        const int code = sqlite3_extended_errcode(database) & 0xFF;
        return fail(code == SQLITE_NOTADB || code == SQLITE_CORRUPT ? Opening::Foreign : Opening::Failed);
    }
    if (tables == 0 && application == 0) {
        const std::string setup = std::string(kSchema) + "PRAGMA application_id=" + std::to_string(kApplicationID) +
                                  "; PRAGMA user_version=" + std::to_string(kSchemaVersion) + ";";
        if (!run(database, setup.c_str())) {
            run(database, "ROLLBACK");
            return fail(Opening::Failed);
        }
    } else if (application != kApplicationID || pragmaInteger(database, "PRAGMA user_version") != kSchemaVersion) {
        run(database, "ROLLBACK");
        *why = "it is not an outbox file of this version";
        return fail(Opening::Foreign);
    }
    if (!run(database, "COMMIT")) return fail(Opening::Failed);
    // A page the header does not show as damaged can still be: read every page once.
    {
        Statement check(database, "PRAGMA quick_check");
        if (check.step() != SQLITE_ROW || check.text(0) != "ok") {
            *why = "its pages are damaged";
            return fail(Opening::Foreign);
        }
    }
    Statement wal(database, "PRAGMA journal_mode=WAL");
    if (wal.step() != SQLITE_ROW || wal.text(0) != "wal") return fail(Opening::Failed);
    run(database, "PRAGMA synchronous=FULL");
    // A phone's flash is small: the log is folded into the database every 256 pages (1 MiB) and cut back to at
    // most 1 MiB, so a drained outbox shrinks back to its database.
    run(database, "PRAGMA wal_autocheckpoint=256");
    run(database, "PRAGMA journal_size_limit=1048576");
    *out = database;
    return Opening::Opened;
}

// "PATH.damaged-N": the first N not taken.
std::string asideName(const std::string& path) {
    for (int n = 1;; ++n) {
        std::string name = path + ".damaged-" + std::to_string(n);
        std::error_code ignored;
        if (!std::filesystem::exists(name, ignored)) return name;
    }
}

}  // namespace

std::unique_ptr<VLMSDKOutboxStore> VLMSDKOutboxStore::open(const std::string& path, std::string* recovery,
                                                           VLMErrorPtr* error) {
    recovery->clear();
    sqlite3* database = nullptr;
    std::string why;
    Opening opening = openExclusive(path, &database, &why);
    if (opening == Opening::Foreign) {
        // Never a crash and never a queue read from bad pages: the file is kept for whoever wants to look.
        const std::string aside = asideName(path);
        std::error_code moved;
        std::filesystem::rename(path, aside, moved);
        std::error_code ignored;
        for (const char* suffix : {"-wal", "-journal"}) std::filesystem::rename(path + suffix, aside + suffix, ignored);
        if (moved) {
            *error = storeError("The outbox file '" + path + "' is damaged or not an outbox's (" + why +
                                ") and could not be moved aside: " + moved.message() + ".");
            return nullptr;
        }
        *recovery = "The outbox file '" + path + "' was damaged or not an outbox's (" + why + "): it was moved to '" +
                    aside + "' and the outbox starts empty.";
        why.clear();
        opening = openExclusive(path, &database, &why);
    }
    switch (opening) {
    case Opening::Opened: break;
    case Opening::Locked:
        *error = storeError("The outbox file '" + path +
                            "' is locked: another outbox (in this process or another) has it open.");
        return nullptr;
    case Opening::Foreign:
    case Opening::Failed:
        *error = storeError("The outbox file '" + path + "' cannot be opened: " + why + ".");
        return nullptr;
    }
    // Outcomes handed over by the process before this one count as redelivered from now on.
    run(database, "UPDATE items SET handed = 2 WHERE handed = 1");
    return std::unique_ptr<VLMSDKOutboxStore>(new VLMSDKOutboxStore(database));
}

VLMSDKOutboxStore::~VLMSDKOutboxStore() { sqlite3_close(database_); }

VLMErrorPtr VLMSDKOutboxStore::failure(const std::string& what) const {
    return storeError(what + ": " + sqlite3_errmsg(database_) + ".");
}

std::optional<std::int64_t> VLMSDKOutboxStore::insert(const VLMSDKOutboxItem& item, std::optional<double> amount,
                                                      double paymentLimit, VLMErrorPtr* error) {
    std::lock_guard lock(mutex_);
    if (!run(database_, "BEGIN IMMEDIATE")) {
        *error = failure("The item could not be stored");
        return std::nullopt;
    }
    const auto rollback = [&](VLMErrorPtr why) {
        run(database_, "ROLLBACK");
        *error = std::move(why);
        return std::nullopt;
    };
    if (amount) {
        Statement pending(database_, "SELECT coalesce(sum(amount), 0) FROM items WHERE ended = 0 AND reservation = ? "
                                     "AND amount IS NOT NULL");
        pending.bind(1, item.reservationID);
        const double already = pending.step() == SQLITE_ROW ? pending.real(0) : 0;
        if (already + *amount > paymentLimit) {
            char figures[96];
            std::snprintf(figures, sizeof figures, "%.2f pending and %.2f more would pass the limit of %.2f", already,
                          *amount, paymentLimit);
            return rollback(VLMError::requiredArgumentErrorWithName(
                "amount", "payments on reservation '" + item.reservationID + "': " + figures + "; nothing was queued",
                __func__, __FILE__));
        }
    }
    Statement insert(database_, "INSERT INTO items(operation, reservation, parameters, amount, idempotency_key, "
                                "enqueued_at) VALUES (?, ?, ?, ?, ?, ?)");
    insert.bind(1, static_cast<std::int64_t>(item.operation))
        .bind(2, item.reservationID)
        .bind(3, item.parameters.dump(-1, ' ', false, VLMSDKJSON::error_handler_t::replace))
        .bind(5, item.idempotencyKey)
        .bind(6, millisecondsNow());
    amount ? insert.bind(4, *amount) : insert.bindNull(4);
    if (insert.step() != SQLITE_DONE) return rollback(failure("The item could not be stored"));
    const std::int64_t id = sqlite3_last_insert_rowid(database_);
    // The commit is the synchronous write: once it returns, the item survives a crash or a power cut.
    if (!run(database_, "COMMIT")) return rollback(failure("The item could not be stored"));
    return id;
}

std::vector<VLMSDKOutboxItem> VLMSDKOutboxStore::pendingItems() {
    std::lock_guard lock(mutex_);
    std::vector<VLMSDKOutboxItem> items;
    Statement select(database_, (std::string("SELECT ") + kItemColumns + " FROM items WHERE ended = 0 ORDER BY id").c_str());
    while (select.step() == SQLITE_ROW) items.push_back(itemOf(select));
    return items;
}

bool VLMSDKOutboxStore::beginAttempt(std::int64_t id) {
    std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE items SET attempts = attempts + 1, next_attempt_at = 0 WHERE id = ? AND ended = 0");
    update.bind(1, id);
    return update.step() == SQLITE_DONE && sqlite3_changes(database_) == 1;
}

void VLMSDKOutboxStore::backOff(std::int64_t id, std::int64_t at, const std::string& lastError) {
    std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE items SET next_attempt_at = ?, last_error = ? WHERE id = ? AND ended = 0");
    update.bind(1, at).bind(2, lastError).bind(3, id);
    update.step();
}

void VLMSDKOutboxStore::clearBackoffs() {
    std::lock_guard lock(mutex_);
    run(database_, "UPDATE items SET next_attempt_at = 0 WHERE ended = 0 AND next_attempt_at > 0");
}

bool VLMSDKOutboxStore::end(std::int64_t id, VLMSDKOutboxOutcome::Kind kind, const std::string& reply,
                            const VLMErrorPtr& error) {
    std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE items SET ended = ?, reply = ?, error = ? WHERE id = ? AND ended = 0");
    update.bind(1, static_cast<std::int64_t>(kind) + 1).bind(4, id);
    reply.empty() ? update.bindNull(2) : update.bind(2, reply);
    error ? update.bind(3, errorText(error)) : update.bindNull(3);
    return update.step() == SQLITE_DONE && sqlite3_changes(database_) == 1;
}

bool VLMSDKOutboxStore::cancelUnsent(std::int64_t id) {
    std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE items SET ended = ? WHERE id = ? AND ended = 0 AND attempts = 0");
    update.bind(1, static_cast<std::int64_t>(VLMSDKOutboxOutcome::Kind::Cancelled) + 1).bind(2, id);
    return update.step() == SQLITE_DONE && sqlite3_changes(database_) == 1;
}

std::vector<VLMSDKOutboxOutcome> VLMSDKOutboxStore::outcomes() {
    std::lock_guard lock(mutex_);
    std::vector<VLMSDKOutboxOutcome> outcomes;
    Statement select(database_, (std::string("SELECT ") + kItemColumns +
                                 ", ended, reply, error, handed FROM items WHERE ended > 0 ORDER BY id")
                                    .c_str());
    while (select.step() == SQLITE_ROW) {
        VLMSDKOutboxOutcome outcome;
        outcome.item = itemOf(select);
        outcome.kind = static_cast<VLMSDKOutboxOutcome::Kind>(select.integer(9) - 1);
        if (!select.isNull(10)) outcome.reply = VLMSDKJSON::parse(select.text(10), nullptr, false);
        outcome.error = errorFromText(select.text(11));
        outcome.redelivered = select.integer(12) == 2;
        outcomes.push_back(std::move(outcome));
    }
    return outcomes;
}

void VLMSDKOutboxStore::markHandedOver(std::int64_t id) {
    std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE items SET handed = 1 WHERE id = ? AND handed = 0");
    update.bind(1, id);
    update.step();
}

bool VLMSDKOutboxStore::acknowledge(std::int64_t id) {
    std::lock_guard lock(mutex_);
    Statement remove(database_, "DELETE FROM items WHERE id = ? AND ended > 0");
    remove.bind(1, id);
    return remove.step() == SQLITE_DONE && sqlite3_changes(database_) == 1;
}

}  // namespace vlmsdk::detail
