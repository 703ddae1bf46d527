#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>
#include <VLMSDKCoreKit/VLMSDKDefaults.h>
#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolioDeliverableItem.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservationGuest.h>

#include "PrintedAddress.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::nullopt_t same = std::nullopt;

// A row expects the input back untouched (`same`: value and JSON kind) or a new JSON floating-point number.
struct TransformRow {
    const char* label;
    VLMSDKJSON input;
    std::optional<double> expected;
};

// Runs over `rows` the transform `mapping` registered for `jsonKey`.
void expectRows(const std::shared_ptr<const VLMSDKObjectMapping>& mapping, const std::string& jsonKey,
                const std::vector<TransformRow>& rows) {
    VLMSDKAttributeMappingBlock transform;
    for (const auto& entry : mapping->entries()) {
        if (entry.jsonKey == jsonKey && entry.kind == VLMSDKObjectMapping::EntryKind::Transformed) {
            transform = entry.mappingBlock;
        }
    }
    ASSERT_TRUE(transform) << "no transform registered for " << jsonKey;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const VLMSDKMappedValue mapped = transform(row.input);
        const auto* json = std::get_if<VLMSDKJSON>(&mapped);
        ASSERT_NE(json, nullptr) << "the transform gave no JSON value";
        if (!row.expected) {
            EXPECT_EQ(json->type(), row.input.type());
            EXPECT_EQ(*json, row.input);
            continue;
        }
        ASSERT_TRUE(json->is_number_float()) << json->dump();
        const double value = json->get<double>();
        if (std::isnan(*row.expected)) {
            EXPECT_TRUE(std::isnan(value)) << value;
        } else {
            EXPECT_EQ(value, *row.expected);
            EXPECT_EQ(std::signbit(value), std::signbit(*row.expected)) << value;  // tells -0 from 0
        }
    }
}

TEST(Transforms, NotSyncedAmountKeepsPositiveInputAndFlipsTheRest) {
    expectRows(VLMSDKReservation::objectMapping(), VLMSDKReservationJSONKeyes.notSyncedAmount,
               {
                   {"positive number", 25.5, same},
                   {"positive text with trailing words", "25.5 EUR", same},
                   {"negative number", -12.3, 12.3},
                   {"negative text with spaces", "  -12.3  ", 12.3},
                   {"zero", 0, -0.0},
                   {"negative zero", -0.0, 0.0},
                   {"text with no number", "abc", -0.0},
                   {"NaN", kNaN, kNaN},
                   {"other kinds read as zero", VLMSDKJSON::object({{"a", 5}}), -0.0},
                   {"null passes through", nullptr, same},
               });
}

TEST(Transforms, AmountTextTurnsTextIntoTheNumberItStartsWithAndPassesTheRest) {
    expectRows(VLMSDKFolioDeliverableItem::objectMapping(), VLMSDKFolioDeliverableItemJSONKeyes.amount,
               {
                   {"negative text keeps its sign", "-5.00", -5},
                   {"explicit plus", "+3.5", 3.5},
                   {"leading white space", " \t\n7.25", 7.25},
                   {"trailing words", "19.99 USD", 19.99},
                   {"fraction only", ".5", 0.5},
                   {"trailing point", "4.", 4},
                   {"exponent", "1.5e2", 150},
                   {"dangling exponent", "2e", 2},
                   {"hexadecimal is not decimal", "0x10", 0},
                   {"infinity word is not decimal", "inf", 0},
                   {"overflow", "1e999", kInfinity},
                   {"underflow", "-1e-999", -0.0},
                   {"a number", 12, same},
               });
}

const VLMSDKJSON kReservationReply = VLMSDKJSON::parse(R"({
    "id": "res-8841", "checkin_id": "chk-31", "user_id": 5521, "venue_id": "venue-7",
    "confirmation_id": "CONF-2026-118", "reservation_number": "PMS-000912",
    "checkin_date": "2026-11-21", "checkout_date": "2026-11-24", "currency_code": "eur",
    "total_stay_amount": 612.75, "room_number": "0712", "last_name": "Reservation-Level Name",
    "guests": [
        {"first_name": "Ada", "last_name": "Lovelace", "profile_code": "PR-1"},
        {"first_name": "Charles", "last_name": "Babbage", "profile_code": "PR-2"},
        {"first_name": "Mary", "last_name": "Somerville", "profile_code": "PR-3"}
    ],
    "not_synced_amount": -40.5, "checkin_is_available": true, "reservation_info": "Late arrival, quiet room",
    "outstanding_amount": 212.25, "status": "in_house", "client_number": "CL-77"
})");

const VLMSDKJSON kFolioReply = VLMSDKJSON::parse(R"({
    "folio_id": "FOL-2291", "outstanding_amount": "120.40", "currency": "gbp",
    "transactions": [
        {"posting_name": "Room charge", "posting_code": "RM", "amount": "95.00", "currency_code": "gbp"},
        {"posting_name": "Minibar", "posting_code": "MB", "amount": 12},
        {"posting_name": "Deposit refund", "posting_code": "DR", "amount": "-5.00", "currency_code": "GBP"},
        {"posting_name": "Adjustment", "posting_code": "ADJ", "amount": "n/a"}
    ]
})");

// The filled records' descriptions show, in their exact formats, what every printed property was mapped to;
// with the identifier, that is every text property, so none took the reservation-level "last_name".
TEST(ReservationMapping, FillsEveryPropertyFromItsKeyAsItsDescriptionShows) {
    const auto mapped = VLMSDKMapper::objectFromJSON(kReservationReply, VLMSDKReservation::objectMapping());
    const auto reservation = mapped->resultAs<VLMSDKReservation>();
    ASSERT_TRUE(reservation) << mapped->error()->description();
    EXPECT_EQ(reservation->description(),
              "VLMSDKReservation " + printedAddress(reservation.get()) +
                  "; guestVelmoraID 5521; venueVelmoraID venue-7; externalReservationID CONF-2026-118; "
                  "internalReservationID PMS-000912; priceCurrencyCode EUR; checkinDate 2026-11-21 00:00:00 +0000; "
                  "checkoutDate 2026-11-24 00:00:00 +0000; totalStayPriceAmount 612.75; roomNumber 0712; "
                  "isMobileCheckinOpen 1; reservationInfo Late arrival, quiet room; checkinVelmoraID chk-31, "
                  "remainPriceAmountToPay 212.25, status in_house, clientSideID CL-77");
    EXPECT_EQ(reservation->velmoraID(), "res-8841");
    EXPECT_EQ(reservation->notSyncedPaidPriceAmount(), 40.5);  // never printed
    const char* const guests[] = {"firstName Ada; lastName Lovelace; profileCode PR-1",
                                  "firstName Charles; lastName Babbage; profileCode PR-2",
                                  "firstName Mary; lastName Somerville; profileCode PR-3"};
    ASSERT_EQ(reservation->guests().size(), std::size(guests));
    for (std::size_t i = 0; i < std::size(guests); ++i) {
        const auto& guest = reservation->guests()[i];
        EXPECT_EQ(guest->description(), "VLMSDKReservationGuest " + printedAddress(guest.get()) + "; " + guests[i]);
    }
}

TEST(FolioMapping, FillsTheFolioAndItsPostingsInOrderFromTextAndNumberAmounts) {
    const auto mapped = VLMSDKMapper::objectFromJSON(kFolioReply, VLMSDKFolio::objectMapping());
    const auto folio = mapped->resultAs<VLMSDKFolio>();
    ASSERT_TRUE(folio) << mapped->error()->description();
    EXPECT_EQ(folio->description(),
              "VLMSDKFolio " + printedAddress(folio.get()) +
                  "; folioID FOL-2291; outstandingAmount 120.4; paymentCurrency GBP");
    const std::string byDefault = kVLMSDKDefaultCurrencyCode;  // a posting without a currency code
    const std::string postings[] = {"name Room charge; code RM; currency GBP; price 95",
                                    "name Minibar; code MB; currency " + byDefault + "; price 12",
                                    "name Deposit refund; code DR; currency GBP; price -5",
                                    "name Adjustment; code ADJ; currency " + byDefault + "; price 0"};
    ASSERT_EQ(folio->deliverables().size(), std::size(postings));
    for (std::size_t i = 0; i < std::size(postings); ++i) {
        const auto& item = folio->deliverables()[i];
        EXPECT_EQ(item->description(), "VLMSDKFolioDeliverableItem " + printedAddress(item.get()) + "; " + postings[i]);
    }
}

TEST(Mapping, RepliesThatCannotBeMappedNameTheKeyAtFault) {
    struct Row {
        const char* label;
        std::shared_ptr<const VLMSDKObjectMapping> mapping;
        VLMSDKJSON reply;
        const char* key;
    };
    auto with = [](VLMSDKJSON reply, const char* key, VLMSDKJSON value) {
        reply[key] = std::move(value);
        return reply;
    };
    const auto reservation = VLMSDKReservation::objectMapping();
    const auto folio = VLMSDKFolio::objectMapping();
    const Row rows[] = {
        {"date in another format", reservation, with(kReservationReply, "checkin_date", "21/11/2026"), "checkin_date"},
        {"currency that is not text", reservation, with(kReservationReply, "currency_code", 978), "currency_code"},
        // A positive amount stays text, and the mapper cannot read text that is not wholly a number.
        {"not-synced text with a positive prefix", reservation, with(kReservationReply, "not_synced_amount", "12abc"),
         "not_synced_amount"},
        {"guest that is not an object", reservation, with(kReservationReply, "guests", VLMSDKJSON::array({"Ada"})),
         "guests"},
        // Only the posting amount is read leniently; the folio's own amount is plain.
        {"outstanding amount text that is no number", folio, with(kFolioReply, "outstanding_amount", "open"),
         "outstanding_amount"},
        {"posting name that is not text", folio,
         with(kFolioReply, "transactions", VLMSDKJSON::parse(R"([{"posting_name": {"en": "Spa"}}])")), "posting_name"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const auto mapped = VLMSDKMapper::objectFromJSON(row.reply, row.mapping);
        EXPECT_FALSE(mapped->result());
        ASSERT_TRUE(mapped->error());
        EXPECT_EQ(mapped->error()->domain(), kVLMSDKMappingErrorDomain);
        EXPECT_NE(mapped->error()->developerMessage().find(row.key), std::string::npos)
            << mapped->error()->description();
    }
}

TEST(Mapping, AValueNestedAQuarterMillionDeepUnderAnyKeyIsNeverWalked) {
    // Built without recursion, and moved in and out of each reply: copying it would recurse 250,000 deep.
    VLMSDKJSON deep = 1;
    for (int level = 0; level < 250000; ++level) {
        VLMSDKJSON outer = VLMSDKJSON::array();
        outer.get_ref<VLMSDKJSON::array_t&>().push_back(std::move(deep));
        deep = std::move(outer);
    }
    struct Row {
        const char* record;
        std::shared_ptr<const VLMSDKObjectMapping> mapping;  // whose keys are tried
        std::shared_ptr<const VLMSDKObjectMapping> mapped;   // what maps the reply
        VLMSDKJSON reply;
        std::vector<std::string> path;  // to the object that holds the keys
    };
    const Row rows[] = {
        {"reservation", VLMSDKReservation::objectMapping(), VLMSDKReservation::objectMapping(), kReservationReply, {}},
        {"guest", VLMSDKReservationGuest::objectMapping(), VLMSDKReservation::objectMapping(), kReservationReply,
         {"guests", "0"}},
        {"folio", VLMSDKFolio::objectMapping(), VLMSDKFolio::objectMapping(), kFolioReply, {}},
        {"posting", VLMSDKFolioDeliverableItem::objectMapping(), VLMSDKFolio::objectMapping(), kFolioReply,
         {"transactions", "0"}},
    };
    std::size_t tried = 0;
    for (const auto& row : rows) {
        for (const auto& entry : row.mapping->entries()) {
            SCOPED_TRACE(std::string(row.record) + "." + entry.jsonKey);
            VLMSDKJSON reply = row.reply;
            VLMSDKJSON* holder = &reply;
            for (const auto& step : row.path) holder = holder->is_array() ? &(*holder)[std::stoul(step)] : &(*holder)[step];
            (*holder)[entry.jsonKey] = std::move(deep);
            const auto mapped = VLMSDKMapper::objectFromJSON(reply, row.mapped);
            deep = std::move((*holder)[entry.jsonKey]);
            ++tried;
            if (mapped->error()) {
                EXPECT_NE(mapped->error()->developerMessage().find(entry.jsonKey), std::string::npos)
                    << mapped->error()->description();
            }
        }
    }
    EXPECT_GT(tried, 25u);
    EXPECT_TRUE(deep.is_array());
}

}  // namespace
