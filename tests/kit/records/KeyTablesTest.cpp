#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <string>
#include <vector>

namespace {

// Hosts may read a table as a plain sequence of key pointers; this reads it that way.
template <std::size_t Count, class Table>
std::vector<std::string> keysInOrder(const Table& table) {
    const auto pointers = std::bit_cast<std::array<const char*, Count>>(table);
    return std::vector<std::string>(pointers.begin(), pointers.end());
}

TEST(KeyTables, ReadAsSequencesGiveEveryKeyInFieldOrder) {
    EXPECT_EQ(keysInOrder<18>(VLMSDKReservationJSONKeyes),
              (std::vector<std::string>{"checkin_id", "user_id", "venue_id", "confirmation_id", "reservation_number",
                                        "checkin_date", "checkout_date", "currency_code", "total_stay_amount",
                                        "room_number", "last_name", "guests", "not_synced_amount",
                                        "checkin_is_available", "reservation_info", "outstanding_amount", "status",
                                        "client_number"}));
    EXPECT_EQ(keysInOrder<3>(VLMSDKReservationGuestJSONKeyes),
              (std::vector<std::string>{"first_name", "last_name", "profile_code"}));
    EXPECT_EQ(keysInOrder<4>(VLMSDKFolioJSONKeyes),
              (std::vector<std::string>{"folio_id", "outstanding_amount", "currency", "transactions"}));
    EXPECT_EQ(keysInOrder<4>(VLMSDKFolioDeliverableItemJSONKeyes),
              (std::vector<std::string>{"posting_name", "posting_code", "amount", "currency_code"}));
}

}  // namespace
