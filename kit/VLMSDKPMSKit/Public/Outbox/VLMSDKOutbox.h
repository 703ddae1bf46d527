#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutboxOptions.h>
#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutboxOutcome.h>

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKAPIManager.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

VLMSDK_API_BEGIN

/// Work that must be done once even when the network is gone or the app is killed: confirm, mobile check-in,
/// mobile check-out, pay and charge, handed to the outbox instead of sent at once.
///
/// An item is written to the outbox's SQLite file (WAL, synchronous commits) with an idempotency key before
/// `enqueue...` returns; a sender thread then sends it through the API manager's request manager, credentials
/// and telemetry, the key on every attempt, so the service acts on it once however often it is sent. Items of
/// one reservation go in the order they were enqueued (a check-out waits for an earlier charge; one that ends
/// failed does not hold back those after it); reservations do not wait for each other. The service's refusal
/// (a 4xx other than 401, 408, 425 and 429) ends an item; no answer, those four and a 5xx make it go again. While the network is down the sender backs off (the options' retry policy); the
/// host says when the network comes back (`networkRestored`) and when the app is suspended and resumed.
///
/// Each item ends with one outcome (the service's reply, or the error, "expired" or "cancelled"), kept in the
/// file until the host acknowledges it, and handed to the outcome handler on the main thread. An outcome not
/// acknowledged before the process ended is handed over again after the next `open`, marked `redelivered`: the
/// one case in which a handler sees an item twice, so a handler keyed by item id is exactly-once end to end.
///
/// Thread safety: every member may be called from any thread. The handler runs on the main thread only
/// (pump VLMSDKMainQueue or install an executor). Destroying the outbox stops the sender and waits for it;
/// replies still on the wire are then recorded after the next `open` by sending the item again, under its key.
class VLMSDKOutbox {
public:
    /// Called on the main thread with each outcome, once per item (see `redelivered`).
    using OutcomeHandler = std::function<void(const VLMSDKOutboxOutcome& outcome)>;

    /// Opens (or creates) the outbox file at `options.path` and starts sending through `manager`. Fails with an
    /// error (and nullptr) when the file is held by another outbox, in this process or another ("locked"), or
    /// cannot be created. A damaged or foreign file is moved aside (`recovery()` says where) and the outbox
    /// starts empty. Items left by an earlier process are sent again; their outcomes wait for a handler.
    static std::shared_ptr<VLMSDKOutbox> open(VLMSDKAPIManager manager, VLMSDKOutboxOptions options,
                                              VLMErrorPtr* error);
    ~VLMSDKOutbox();
    VLMSDKOutbox(const VLMSDKOutbox&) = delete;
    VLMSDKOutbox& operator=(const VLMSDKOutbox&) = delete;

    /// What `open` found: empty when the file was sound or new; else a sentence naming where the damaged
    /// file was moved.
    const std::string& recovery() const;

    /// Confirms `reservationID`, as confirmReservationWithID does. Like every `enqueue...`: writes an item and
    /// returns its id once it is on disk; nullopt and `error` when it was refused (bad input,
    /// a kind the options do not allow, the payment limit) or could not be written (disk full, read-only):
    /// then nothing of it was stored or sent.
    std::optional<std::int64_t> enqueueConfirm(const std::string& reservationID, bool notifyAboutMobileCheckinOpen,
                                               VLMErrorPtr* error);
    /// Mobile check-in of `reservationID`.
    std::optional<std::int64_t> enqueueMobileCheckin(const std::string& reservationID, VLMErrorPtr* error);
    /// Mobile check-out of `reservationID`.
    std::optional<std::int64_t> enqueueMobileCheckout(const std::string& reservationID, VLMErrorPtr* error);
    /// `amount` in `currency` on the stored card `cardID`.
    std::optional<std::int64_t> enqueuePay(const std::string& reservationID, const std::string& cardID, double amount,
                                           const std::string& currency, VLMErrorPtr* error);
    /// Items as (item id, quantity) pairs, each quantity at least 1.
    std::optional<std::int64_t> enqueueCharge(const std::string& reservationID,
                                              const std::vector<std::pair<std::string, long>>& items,
                                              VLMErrorPtr* error);

    /// Sets the handler (nullptr: none); outcomes waiting in the file are handed to it, in item order.
    void setOutcomeHandler(OutcomeHandler handler);
    /// Forgets outcome `itemID` for good. The handler may call it; an outcome handled and not acknowledged is
    /// handed over again after the next `open`. False when no outcome of that id waits.
    bool acknowledge(std::int64_t itemID);
    /// When true (the default), an outcome is acknowledged as soon as the handler returns.
    void setAcknowledgesAfterHandler(bool automatic);

    /// Ends item `itemID` with the "cancelled" outcome if it was never sent (no attempt began); false otherwise
    /// (unknown, ended, or sent at least once: the service may have acted on it).
    bool cancel(std::int64_t itemID);
    /// Every item not yet ended, in order.
    std::vector<VLMSDKOutboxItem> pending() const;
    /// Outcomes waiting for acknowledgement, in order.
    std::vector<VLMSDKOutboxOutcome> unacknowledged() const;

    /// The network is back: items waiting out a backoff are sent now.
    void networkRestored();
    /// The app goes to the background: no new attempt starts until `resume` (those on the wire finish).
    void suspend();
    /// The app is back in the foreground: sending goes on.
    void resume();
    /// Waits until nothing is being sent and nothing could go now (every item ended, or sending is suspended),
    /// or `timeout` passed; true when idle. Never on the main
    /// thread while outcomes need it (the handler runs there): for tools and tests.
    bool waitUntilIdle(std::chrono::milliseconds timeout) const;

private:
    class Impl;
    explicit VLMSDKOutbox(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

VLMSDK_API_END
