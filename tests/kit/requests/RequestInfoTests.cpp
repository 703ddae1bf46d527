#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using S = std::optional<std::string>;

// The argument named by a failed validation, or "" when it passed.
std::string failedName(const VLMSDKRequestInfo& request) {
    VLMErrorPtr error;
    if (request.isValid(&error)) {
        EXPECT_EQ(error, nullptr);
        return "";
    }
    EXPECT_NE(error, nullptr);
    if (!error) return "<no error>";
    EXPECT_EQ(error->code(), VLMErrorCode::RequiredArgument);
    EXPECT_NE(error->functionName().find("isValid"), std::string::npos);
    // One sentence, ended once.
    EXPECT_FALSE(error->developerMessage().ends_with("..")) << error->developerMessage();
    return error->argumentName().value_or("<unnamed>");
}

VLMSDKCreateReservationRequestInfo create(S lastName, S venue, S confirmation) {
    VLMSDKCreateReservationRequestInfo request;
    request.setReservationistLastName(std::move(lastName));
    request.setVenueVelmoraID(std::move(venue));
    request.setExternalReservationID(std::move(confirmation));
    return request;
}

VLMSDKPayForReservationRequestInfo pay(S card, S reservation, std::optional<double> amount, S currency) {
    VLMSDKPayForReservationRequestInfo request;
    request.setCreditCardID(std::move(card));
    request.setReservationID(std::move(reservation));
    request.setAmount(amount);
    request.setCurrencyCode(std::move(currency));
    return request;
}

class DerivedCreateRequest : public VLMSDKCreateReservationRequestInfo {};

}  // namespace

TEST(CreateReservationRequest, ValidatesPresenceInItsFixedOrder) {
    struct Row { VLMSDKCreateReservationRequestInfo request; const char* failed; };
    const Row rows[] = {
        {create({}, {}, {}), "reservationistLastName"},
        {create("Moreau", {}, {}), "venueVelmoraID"},
        {create("Moreau", "venue-1", {}), "externalReservationID"},
        {create({}, "venue-1", "C-1"), "reservationistLastName"},
        {create("", "", ""), ""},
        {create("Moreau", "venue-1", "C-1"), ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.failed);
        EXPECT_EQ(failedName(row.request), row.failed);
    }
    EXPECT_FALSE(create({}, {}, {}).isValid(nullptr));  // no out-parameter: still false, nothing stored
    const std::string file = [] {
        VLMErrorPtr error;
        create({}, {}, {}).isValid(&error);
        return error->fileName();
    }();
    EXPECT_TRUE(file.ends_with("Public/API/Requests/VLMSDKCreateReservationRequestInfo.cpp")) << file;
}

TEST(CreateReservationRequest, EqualityAndHashFollowTheThreeStrings) {
    const auto a = create("Moreau", "venue-1", "C-1");
    EXPECT_TRUE(a.isEqual(&a));
    EXPECT_EQ(a, create("Moreau", "venue-1", "C-1"));
    EXPECT_EQ(a.hash(), create("Moreau", "venue-1", "C-1").hash());
    EXPECT_FALSE(a == create("Moreau", "venue-2", "C-1"));
    EXPECT_FALSE(a == create("moreau", "venue-1", "C-1"));
    EXPECT_FALSE(a == create("Moreau", "venue-1", {}));
    EXPECT_TRUE(create({}, {}, {}) == create({}, {}, {}));
    EXPECT_EQ(create({}, {}, {}).hash(), 0u);
    EXPECT_EQ(std::hash<VLMSDKCreateReservationRequestInfo>{}(a), a.hash());

    EXPECT_FALSE(a.isEqual(nullptr));
    const auto payRequest = pay("card", "r", 1, "USD");
    EXPECT_FALSE(a.isEqual(&payRequest));
    DerivedCreateRequest derived;
    derived.setReservationistLastName("Moreau");
    derived.setVenueVelmoraID("venue-1");
    derived.setExternalReservationID("C-1");
    EXPECT_TRUE(a.isEqual(&derived));
}

TEST(PayForReservationRequest, ValidatesCardReservationAmountAndCurrencyInThatOrder) {
    const double eps = std::numeric_limits<double>::epsilon();
    struct Row { const char* name; VLMSDKPayForReservationRequestInfo request; const char* failed; };
    const Row rows[] = {
        {"everything absent", pay({}, {}, {}, {}), "creditCardID"},
        {"empty card", pay("", "r", 10, "USD"), "creditCardID"},
        {"empty reservation", pay("card", "", 10, "USD"), "reservationID"},
        {"absent amount", pay("card", "r", {}, "USD"), "amount"},
        {"zero amount", pay("card", "r", 0, "USD"), "amount"},
        {"amount just below epsilon", pay("card", "r", eps / 2, "USD"), "amount"},
        {"amount of epsilon", pay("card", "r", eps, "USD"), ""},
        {"amount before currency", pay("card", "r", 0, ""), "amount"},
        {"empty currency", pay("card", "r", 0.01, ""), "currencyCode"},
        {"negative amount", pay("card", "r", -5, "USD"), ""},
        {"NaN amount", pay("card", "r", std::nan(""), "USD"), "amount"},
        {"infinite amount", pay("card", "r", -std::numeric_limits<double>::infinity(), "USD"), "amount"},
        {"one-letter currency", pay("card", "r", 3, "X"), ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(failedName(row.request), row.failed);
    }
}

// The operations' tests check each whole body as sent; here, what absent values leave out.
TEST(RequestBodies, LeaveAbsentValuesOutAndNeverCarryTheReservation) {
    EXPECT_EQ(create({}, "venue-1", {}).JSONRepresentation(), (VLMSDKJSON{{"venue_id", "venue-1"}}));
    EXPECT_EQ(pay({}, "res-1", {}, {}).JSONRepresentation(), VLMSDKJSON::object());
    const auto body = pay("c", "r", 0.1 + 0.2, "USD").JSONRepresentation();
    EXPECT_EQ(body["amount"].get<double>(), 0.1 + 0.2);  // sent with the precision it holds
}

TEST(UpdateMasterBillRequest, ValidatesReservationThenItemsAndSerializesItemsInOrder) {
    VLMSDKUpdateReservationMasterBillRequestInfo request;
    EXPECT_EQ(failedName(request), "reservationID");
    request.setReservationID("");
    request.setVelmoraDeliverables({std::make_shared<VLMSDKDeliverableCountableItem>("minibar-water", 2)});
    EXPECT_EQ(failedName(request), "reservationID");
    request.setReservationID("res-1");
    request.setVelmoraDeliverables({});
    EXPECT_EQ(failedName(request), "velmoraDeliverables");
    EXPECT_EQ(request.JSONRepresentation(), (VLMSDKJSON{{"deliverable_items", VLMSDKJSON::array()}}));

    request.setVelmoraDeliverables({std::make_shared<VLMSDKDeliverableCountableItem>("minibar-water", 2),
                                    std::make_shared<VLMSDKDeliverableCountableItem>("late-checkout", std::nan(""))});
    EXPECT_EQ(failedName(request), "velmoraDeliverables");
    request.velmoraDeliverables()[1]->setCount(1);
    EXPECT_EQ(failedName(request), "");
    EXPECT_EQ(request.JSONRepresentation(),
              (VLMSDKJSON{{"deliverable_items",
                           {{{"item_id", "minibar-water"}, {"quantity", 2}}, {{"item_id", "late-checkout"}, {"quantity", 1}}}}}));
}
