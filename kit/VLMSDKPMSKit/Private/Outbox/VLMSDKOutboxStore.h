#pragma once

#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutboxOutcome.h>

#include <Velmora_Errors/VLMError.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

namespace vlmsdk::detail {

/// The outbox's SQLite file: items, their attempts and their outcomes until acknowledged. Every change is one
/// transaction committed with a synchronous write, so a process killed at any moment leaves each item whole.
/// The file is held in exclusive locking mode from `open` to destruction: no other connection, in this process or
/// another, can read or write it meanwhile. Thread-safe: one mutex around the connection.
class VLMSDKOutboxStore {
public:
    /// Opens or creates the file. A file that is not this outbox's (damaged, or another program's) is moved to
    /// "PATH.damaged-N" and a new one made; `recovery` then says so. nullptr and `error` when the file is held by
    /// another connection or cannot be made.
    static std::unique_ptr<VLMSDKOutboxStore> open(const std::string& path, std::string* recovery, VLMErrorPtr* error);
    ~VLMSDKOutboxStore();
    VLMSDKOutboxStore(const VLMSDKOutboxStore&) = delete;
    VLMSDKOutboxStore& operator=(const VLMSDKOutboxStore&) = delete;

    /// Stores a new item (id, attempts and times are set here); for a payment, refused with `error` when the
    /// reservation's pending payments and `amount` would pass `paymentLimit`.
    std::optional<std::int64_t> insert(const VLMSDKOutboxItem& item, std::optional<double> amount, double paymentLimit,
                                       VLMErrorPtr* error);
    /// Items not yet ended, in id order.
    std::vector<VLMSDKOutboxItem> pendingItems();
    /// Counts an attempt of a pending item as begun; false when it is no longer pending (cancelled).
    bool beginAttempt(std::int64_t id);
    /// A failed attempt to be made again from `at` (milliseconds since the epoch; 0: at once).
    void backOff(std::int64_t id, std::int64_t at, const std::string& lastError);
    /// Every backing-off item due at once.
    void clearBackoffs();
    /// Ends a pending item with its outcome; false when it had ended already.
    bool end(std::int64_t id, VLMSDKOutboxOutcome::Kind kind, const std::string& reply, const VLMErrorPtr& error);
    /// Ends a pending item that no attempt began with the Cancelled outcome; false otherwise.
    bool cancelUnsent(std::int64_t id);
    /// Ended items not acknowledged, in id order; `redelivered` set for those handed over by an earlier process
    /// (`open` notes which those are).
    std::vector<VLMSDKOutboxOutcome> outcomes();
    /// Notes that the outcome is about to reach the handler (so a later process marks it redelivered).
    void markHandedOver(std::int64_t id);
    /// Forgets an ended item; false when none of that id had ended.
    bool acknowledge(std::int64_t id);

private:
    explicit VLMSDKOutboxStore(sqlite3* database) : database_(database) {}
    VLMErrorPtr failure(const std::string& what) const;

    std::mutex mutex_;
    sqlite3* database_;
};

}  // namespace vlmsdk::detail
