#pragma once

#include "PMSRecordJSON.h"

#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutboxOutcome.h>

#include <cstdint>
#include <string>
#include <vector>

/// Outbox items and outcomes as the tool shows them, in text and in --json documents. Card ids are hidden as
/// PMSRedaction hides them, and text read from the file is escaped (PMSShownText): another program may have
/// written it.
class PMSOutboxReport {
public:
    /// "checkin rsv_0005".
    static std::string operation(const VLMSDKOutboxItem& item);
    /// What the item carries beyond its reservation: "7.50 EUR, card ****4444", "itm_spa_pass:2", "--no-notify";
    /// empty when nothing.
    static std::string details(const VLMSDKOutboxItem& item);
    /// "succeeded", "failed", "expired" or "cancelled".
    static const char* kindName(VLMSDKOutboxOutcome::Kind kind);
    /// {"id", "operation", "reservationID", "parameters" (the request body, card ids hidden), "attempts",
    /// "enqueuedAt", "nextAttemptAt", "lastError"}.
    static PMSJSON item(const VLMSDKOutboxItem& item);
    /// item() of the outcome's item, with "outcome" (kindName), "error" (what failed) and "redelivered".
    static PMSJSON outcome(const VLMSDKOutboxOutcome& outcome);
    /// The pending items as a table, then the outcomes waiting to be shown, one line each.
    static std::string listText(const std::vector<VLMSDKOutboxItem>& pending,
                                const std::vector<VLMSDKOutboxOutcome>& outcomes, const std::string& file);
    /// "item 3" or "items 3, 5".
    static std::string itemNumbers(const std::vector<std::int64_t>& ids);
};
