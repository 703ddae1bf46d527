#include "BenchReplies.h"

#include <cstdio>

namespace vlmsdk::bench {

const std::string& reservationReply() {
    static const std::string reply =
        R"({"reservation":{"id":"5f1c2b7e9a4d3c0012ab34cd","checkin_id":"5f1c2b7e9a4d3c0012ab34ce",)"
        R"("user_id":"5f1c2b7e9a4d3c0012ab34cf","venue_id":"5f1c2b7e9a4d3c0012ab34d0",)"
        R"("confirmation_id":"CNF-2024-0081734","reservation_number":"RSV-00981273",)"
        R"("checkin_date":"2024-06-14","checkout_date":"2024-06-18","currency_code":"eur",)"
        R"("total_stay_amount":812.4,"room_number":"0412","not_synced_amount":-25.5,"checkin_is_available":true,)"
        R"("reservation_info":"Late arrival expected after 22:00. Two adults and one child; a quiet room away )"
        R"(from the lift was requested. Breakfast is included for all guests; parking on site for one car. )"
        R"(Please prepare a baby cot and extra towels before arrival.",)"
        R"("outstanding_amount":312.4,"status":"in_house","client_number":"CL-7731920","guests":[)"
        R"({"first_name":"Alexandra","last_name":"Montgomery-Whitfield","profile_code":"PRF-00012873"},)"
        R"({"first_name":"Jonathan","last_name":"Montgomery-Whitfield","profile_code":"PRF-00012874"},)"
        R"({"first_name":"Emily","last_name":"Montgomery-Whitfield","profile_code":"PRF-00012875"}]}})";
    return reply;
}

std::string folioReply(std::size_t postings) {
    static const char* const names[] = {"Room charge", "Breakfast buffet", "Minibar", "City tax",
                                        "Spa treatment", "Room service dinner", "Parking", "Laundry"};
    static const char* const codes[] = {"RM100", "FB210", "MB300", "TX010", "SP450", "FB220", "PK120", "LD330"};
    std::string reply = R"({"folio_id":"FOL-2024-000918","outstanding_amount":1234.5,"currency":"eur","transactions":[)";
    reply.reserve(reply.size() + postings * 110 + 4);
    char posting[192];
    for (std::size_t i = 0; i < postings; ++i) {
        const std::size_t kind = i % 8;
        const bool credit = i % 7 == 6;
        const double amount = (credit ? -1.0 : 1.0) * (static_cast<double>(i % 997) + 0.25 * static_cast<double>(kind));
        // Even postings carry a number, odd ones the text of one, as the service sends both.
        const int length =
            i % 2 == 0
                ? std::snprintf(posting, sizeof posting,
                                R"(%s{"posting_name":"%s %zu","posting_code":"%s","amount":%.2f,"currency_code":"eur"})",
                                i ? "," : "", names[kind], i, codes[kind], amount)
                : std::snprintf(posting, sizeof posting,
                                R"(%s{"posting_name":"%s %zu","posting_code":"%s","amount":"%.2f","currency_code":"eur"})",
                                i ? "," : "", names[kind], i, codes[kind], amount);
        reply.append(posting, static_cast<std::size_t>(length));
    }
    reply += "]}";
    return reply;
}

}  // namespace vlmsdk::bench
