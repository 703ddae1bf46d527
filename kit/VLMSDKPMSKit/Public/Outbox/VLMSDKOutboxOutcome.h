#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKPMSKit/Public/API/Responses/VLMSDKPayForReservationResult.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>
#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutboxOptions.h>

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// One item of an outbox as `pending()` lists it. A plain value.
struct VLMSDKOutboxItem {
    std::int64_t id = 0;                 ///< increasing in the order items were enqueued
    VLMSDKOutboxOperation operation{};   ///< what it does
    std::string reservationID;           ///< the reservation it acts on
    VLMSDKJSON parameters;               ///< the request body (card ids included: do not log it as it is)
    std::string idempotencyKey;          ///< sent on every attempt
    std::chrono::system_clock::time_point enqueuedAt;  ///< when `enqueue...` stored it
    unsigned attempts = 0;               ///< attempts begun so far
    std::optional<std::chrono::system_clock::time_point> nextAttemptAt;  ///< set while it backs off
    std::string lastError;               ///< the last attempt's error, for lists; empty when none failed
};

/// How an item ended, as the outcome handler receives it. A plain value.
struct VLMSDKOutboxOutcome {
    /// What became of the item.
    enum class Kind {
        Succeeded,  ///< the service answered 2xx: `reply` holds its body
        Failed,     ///< the service refused it, or the attempts ran out: `error` says why
        Expired,    ///< its turn came after the maximum age: never sent
        Cancelled,  ///< cancelled before any attempt: never sent
    };
    VLMSDKOutboxItem item;      ///< the item as it ended
    Kind kind = Kind::Failed;   ///< what became of it
    VLMSDKJSON reply;    ///< the service's reply body (Succeeded), else null
    VLMErrorPtr error;   ///< nullptr when Succeeded
    /// Handed over before, in an earlier process, without being acknowledged: the handler may have acted.
    bool redelivered = false;

    /// The reservation the reply holds (confirm, check-in, pay), or nullptr.
    std::shared_ptr<VLMSDKReservation> reservation() const;
    /// The folio the reply is (charge), or nullptr.
    std::shared_ptr<VLMSDKFolio> folio() const;
    /// The payment the reply holds (pay), or nullptr.
    std::shared_ptr<VLMSDKPayForReservationResult> payment() const;
};

VLMSDK_API_END
