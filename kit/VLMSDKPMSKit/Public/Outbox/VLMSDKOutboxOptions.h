#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKRetryPolicy.h>

#include <chrono>
#include <string>

VLMSDK_API_BEGIN

/// The operations an outbox item can be.
enum class VLMSDKOutboxOperation {
    Confirm = 1,        ///< PATCH guest/reservations/{id}
    MobileCheckin = 2,  ///< PATCH guest/reservations/{id}/mobile_checkin
    MobileCheckout = 3, ///< PATCH guest/reservations/{id}/mobile_checkout
    Pay = 4,            ///< POST guest/reservations/{id}/transactions
    Charge = 5,         ///< POST guest/reservations/{id}/charge
};

/// The operation's name as lists and logs show it: "confirm", "checkin", "checkout", "pay", "charge".
const char* VLMSDKOutboxOperationName(VLMSDKOutboxOperation operation);

/// What the outbox allows of one kind of operation.
struct VLMSDKOutboxLimits {
    /// Whether it may be queued at all; refused at `enqueue...` otherwise.
    bool allowed = true;
    /// An item older than this when its turn comes ends "expired" and is not sent. Default one day.
    std::chrono::seconds maximumAge{std::chrono::hours(24)};
    /// Attempts before the item ends with the last attempt's error. Default 50.
    unsigned maximumAttempts = 50;
};

/// Settings of a `VLMSDKOutbox`, fixed when it is opened.
struct VLMSDKOutboxOptions {
    /// The SQLite file (created when absent). Required.
    std::string path;
    VLMSDKOutboxLimits confirm;         ///< limits of confirm items
    VLMSDKOutboxLimits mobileCheckin;   ///< limits of mobile check-in items
    VLMSDKOutboxLimits mobileCheckout;  ///< limits of mobile check-out items
    /// Payments are off by default: a host opts in, with `maximumPendingPayment`.
    VLMSDKOutboxLimits pay{false, std::chrono::hours(24), 50};
    VLMSDKOutboxLimits charge;  ///< limits of charge items
    /// The most that may be pending in payments on one reservation (amounts added whatever their currency);
    /// a payment that would pass it is refused. Default 500.
    double maximumPendingPayment = 500;
    /// The wait between attempts while the network is down or the service is unavailable: full jitter from
    /// `initialBackoff`, doubling up to `maximumBackoff` (`maximumAttempts` and `idempotencyKeys` are not
    /// used: see VLMSDKOutboxLimits; every item carries a key). Default 1 s to 5 min.
    VLMSDKRetryPolicy retry{0, std::chrono::seconds(1), std::chrono::minutes(5), true};
    /// Items sent at once (over different reservations). Default 4.
    unsigned maximumInFlight = 4;
    /// Opened as after `VLMSDKOutbox::suspend()`: no attempt starts until `resume()`. For a host opened in the
    /// background, or a process that only reads the file or adds to it: a `suspend()` called after `open` comes
    /// too late to keep items left by an earlier process from being sent. Default false.
    bool suspended = false;
};

VLMSDK_API_END
