#pragma once

// What the outbox crash test's host enqueues, and what the service must show for it afterwards.
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <functional>
#include <string>
#include <vector>

struct OutboxCrashStep {
    std::string reservationID;
    std::function<std::optional<std::int64_t>(VLMSDKOutbox&, VLMErrorPtr*)> enqueue;
};

inline constexpr int kOutboxCrashReservations = 20;

/// "rsv_c01" ... "rsv_c20".
inline std::string outboxCrashReservation(int index) {
    const int number = index + 1;
    return std::string("rsv_c") + static_cast<char>('0' + number / 10 % 10) + static_cast<char>('0' + number % 10);
}

/// The posting codes each reservation's folio holds at the end, in order: one per charge line and payment.
inline const std::vector<std::string>& outboxCrashPostings() {
    static const std::vector<std::string> postings{"FB-BRK", "MBR", "PAY", "PRK", "PAY", "MBR", "FB-BRK", "PAY"};
    return postings;
}

/// Ten steps per reservation, the reservations interleaved: check-in, charges and payments (never more than
/// the balance), check-out. 200 in all.
inline const std::vector<OutboxCrashStep>& outboxCrashPlan() {
    static const std::vector<OutboxCrashStep> plan = [] {
        using Items = std::vector<std::pair<std::string, long>>;
        const auto charge = [](Items items) {
            return [items](VLMSDKOutbox& o, const std::string& id, VLMErrorPtr* e) { return o.enqueueCharge(id, items, e); };
        };
        const auto pay = [](double amount) {
            return [amount](VLMSDKOutbox& o, const std::string& id, VLMErrorPtr* e) {
                return o.enqueuePay(id, "card_ada_visa_4242", amount, "USD", e);
            };
        };
        const std::vector<std::function<std::optional<std::int64_t>(VLMSDKOutbox&, const std::string&, VLMErrorPtr*)>>
            steps{
                [](VLMSDKOutbox& o, const std::string& id, VLMErrorPtr* e) { return o.enqueueMobileCheckin(id, e); },
                charge({{"itm_breakfast", 1}}),
                charge({{"itm_sparkling_water", 2}}),
                pay(10),
                charge({{"itm_parking", 1}}),
                pay(20),
                charge({{"itm_sparkling_water", 1}}),
                charge({{"itm_breakfast", 1}}),
                pay(5),
                [](VLMSDKOutbox& o, const std::string& id, VLMErrorPtr* e) { return o.enqueueMobileCheckout(id, e); },
            };
        std::vector<OutboxCrashStep> all;
        for (const auto& step : steps) {
            for (int r = 0; r < kOutboxCrashReservations; ++r) {
                const std::string id = outboxCrashReservation(r);
                all.push_back({id, [step, id](VLMSDKOutbox& o, VLMErrorPtr* e) { return step(o, id, e); }});
            }
        }
        return all;
    }();
    return plan;
}
