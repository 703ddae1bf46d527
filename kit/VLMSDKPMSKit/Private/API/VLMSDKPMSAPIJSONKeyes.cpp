#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>

#include <type_traits>

namespace {

// Hosts may read a table as a plain array of key pointers, so the layout is part of the interface.
template <class Table, unsigned Count>
constexpr bool isPackedKeyTable =
    std::is_standard_layout_v<Table> && std::is_trivially_copyable_v<Table> &&
    sizeof(Table) == Count * sizeof(const char*) && alignof(Table) == alignof(const char*);

static_assert(isPackedKeyTable<VLMSDKReservationJSONKeyesType, 18>);
static_assert(isPackedKeyTable<VLMSDKReservationGuestJSONKeyesType, 3>);
static_assert(isPackedKeyTable<VLMSDKFolioJSONKeyesType, 4>);
static_assert(isPackedKeyTable<VLMSDKFolioDeliverableItemJSONKeyesType, 4>);

// Keys that several tables share.
constexpr const char kLastNameKey[] = "last_name";
constexpr const char kOutstandingAmountKey[] = "outstanding_amount";
constexpr const char kCurrencyCodeKey[] = "currency_code";

}  // namespace

constinit const VLMSDKReservationJSONKeyesType VLMSDKReservationJSONKeyes = {
    "checkin_id",
    "user_id",
    "venue_id",
    "confirmation_id",
    "reservation_number",
    "checkin_date",
    "checkout_date",
    kCurrencyCodeKey,
    "total_stay_amount",
    "room_number",
    kLastNameKey,
    "guests",
    "not_synced_amount",
    "checkin_is_available",
    "reservation_info",
    kOutstandingAmountKey,
    "status",
    "client_number",
};

constinit const VLMSDKReservationGuestJSONKeyesType VLMSDKReservationGuestJSONKeyes = {
    "first_name",
    kLastNameKey,
    "profile_code",
};

constinit const VLMSDKFolioJSONKeyesType VLMSDKFolioJSONKeyes = {
    "folio_id",
    kOutstandingAmountKey,
    "currency",
    "transactions",
};

constinit const VLMSDKFolioDeliverableItemJSONKeyesType VLMSDKFolioDeliverableItemJSONKeyes = {
    "posting_name",
    "posting_code",
    "amount",
    kCurrencyCodeKey,
};
