// One guest's stay through all eight operations, over HTTP, against the local reservation service.
#include "EndToEndSupport.h"

#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <gtest/gtest.h>

#include <cmath>

namespace e2e {
namespace {

long long centsOf(const std::optional<double>& amount) { return amount ? std::llround(*amount * 100) : -1; }

// Every delivery of the walk must be the only one of its operation, on the main thread, with a result.
void expectOneResult(const DeliveryLog& log) {
    ASSERT_EQ(log.count(), 1u);
    const Delivery delivery = log.at(0);
    EXPECT_TRUE(delivery.onMainThread);
    EXPECT_EQ(delivery.error, nullptr) << delivery.error->description();
}

TEST(EndToEndStayTest, WalksOneStayThroughAllEightOperations) {
    auto sandbox = startSandbox();
    Client client(sandbox->baseUrl(), kSandboxToken);
    const auto& booking = seededBooking("rsv_0001");
    ASSERT_EQ(booking.at("status"), "reserved");
    ASSERT_TRUE(booking.at("checkin_is_available").get<bool>());

    DeliveryLog created;
    createReservationWithRequest(client.api(), createRequest("HLI-48213", "ven_harborlight", "Quillfeather"),
                                 created.completion<VLMSDKReservation>());
    ASSERT_TRUE(created.waitFor());
    ASSERT_NO_FATAL_FAILURE(expectOneResult(created));
    expectReservationMatchesBooking(*created.record<VLMSDKReservation>(), booking);

    DeliveryLog fetched;
    fetchReservationWithID(client.api(), "rsv_0001", fetched.completion<VLMSDKReservation>());
    ASSERT_TRUE(fetched.waitFor());
    ASSERT_NO_FATAL_FAILURE(expectOneResult(fetched));
    expectReservationMatchesBooking(*fetched.record<VLMSDKReservation>(), booking);

    // Both flag values reach the service.
    for (bool notify : {false, true}) {
        SCOPED_TRACE(notify ? "notify" : "do not notify");
        DeliveryLog confirmed;
        confirmReservationWithID(client.api(), "rsv_0001", notify, confirmed.completion<VLMSDKReservation>());
        ASSERT_TRUE(confirmed.waitFor());
        ASSERT_NO_FATAL_FAILURE(expectOneResult(confirmed));
        EXPECT_EQ(confirmed.record<VLMSDKReservation>()->velmoraID(), "rsv_0001");
        EXPECT_EQ(sandbox->notifyMe("rsv_0001"), notify);
    }

    DeliveryLog checkedIn;
    performMobileCheckinForReservationWithID(client.api(), "rsv_0001", checkedIn.completion<VLMSDKReservation>());
    ASSERT_TRUE(checkedIn.waitFor());
    ASSERT_NO_FATAL_FAILURE(expectOneResult(checkedIn));
    const auto inHouse = checkedIn.record<VLMSDKReservation>();
    EXPECT_EQ(inHouse->status(), VLMSDKReservationStatusInHouse);
    EXPECT_FALSE(inHouse->isMobileCheckinOpen());
    ASSERT_TRUE(inHouse->roomNumber());
    EXPECT_FALSE(inHouse->roomNumber()->empty()) << "check-in assigns a room";

    DeliveryLog charged;
    updateReservationMasterBillWithRequest(client.api(),
                                           chargeRequest("rsv_0001", {{"itm_breakfast", 2}, {"itm_sparkling_water", 3}}),
                                           charged.completion<VLMSDKFolio>());
    ASSERT_TRUE(charged.waitFor());
    ASSERT_NO_FATAL_FAILURE(expectOneResult(charged));
    const auto chargedFolio = charged.record<VLMSDKFolio>();
    // The seeded folio is empty; the catalog gives 18.00 and 4.50.
    ASSERT_EQ(chargedFolio->deliverables().size(), 2u);
    EXPECT_EQ(chargedFolio->deliverables()[0]->name(), "Breakfast buffet");
    EXPECT_EQ(chargedFolio->deliverables()[0]->code(), "FB-BRK");
    EXPECT_EQ(centsOf(chargedFolio->deliverables()[0]->price()), 3600);
    EXPECT_EQ(chargedFolio->deliverables()[1]->code(), "MBR");
    EXPECT_EQ(centsOf(chargedFolio->deliverables()[1]->price()), 1350);
    EXPECT_EQ(chargedFolio->deliverables()[1]->currency(), "USD");
    EXPECT_EQ(centsOf(chargedFolio->outstandingAmount()), 4950);
    EXPECT_EQ(chargedFolio->folioID(), "fol_0001");

    DeliveryLog bill;
    fetchReservationMasterBill(client.api(), "rsv_0001", bill.completion<VLMSDKFolio>());
    ASSERT_TRUE(bill.waitFor());
    ASSERT_NO_FATAL_FAILURE(expectOneResult(bill));
    const auto folio = bill.record<VLMSDKFolio>();
    EXPECT_EQ(centsOf(folio->outstandingAmount()), 4950);
    EXPECT_EQ(folio->paymentCurrency(), "USD");
    EXPECT_EQ(folio->deliverables().size(), 2u);

    DeliveryLog paid;
    payForReservationWithRequest(client.api(), payRequest("rsv_0001", 49.50, "USD", "card_ada_visa_4242"),
                                 paid.completion<VLMSDKPayForReservationResult>());
    ASSERT_TRUE(paid.waitFor());
    ASSERT_NO_FATAL_FAILURE(expectOneResult(paid));
    const auto payment = paid.record<VLMSDKPayForReservationResult>();
    ASSERT_TRUE(payment->paymentTransaction());
    ASSERT_TRUE(payment->reservation());
    const auto& transaction = *payment->paymentTransaction();
    EXPECT_EQ(centsOf(transaction.amount()), 4950);
    EXPECT_EQ(transaction.currencyCode(), "USD");
    EXPECT_EQ(transaction.creditCardID(), "card_ada_visa_4242");
    EXPECT_EQ(transaction.status(), "succeeded");
    EXPECT_TRUE(transaction.velmoraID());
    EXPECT_TRUE(transaction.createdAt());
    EXPECT_EQ(payment->reservation()->velmoraID(), "rsv_0001");
    EXPECT_EQ(centsOf(payment->reservation()->remainPriceAmountToPay()), 0);

    DeliveryLog checkedOut;
    performMobileCheckoutForReservationWithID(client.api(), "rsv_0001", checkedOut.flagCompletion());
    ASSERT_TRUE(checkedOut.waitFor());
    ASSERT_NO_FATAL_FAILURE(expectOneResult(checkedOut));
    EXPECT_TRUE(checkedOut.at(0).flag);

    DeliveryLog after;
    fetchReservationWithID(client.api(), "rsv_0001", after.completion<VLMSDKReservation>());
    ASSERT_TRUE(after.waitFor());
    ASSERT_NO_FATAL_FAILURE(expectOneResult(after));
    EXPECT_EQ(after.record<VLMSDKReservation>()->status(), VLMSDKReservationStatusCheckedOut);
    EXPECT_EQ(after.record<VLMSDKReservation>()->roomNumber(), inHouse->roomNumber());

    // Nothing else may arrive once the transport can make no more deliveries.
    client.settle();
    for (const DeliveryLog* log : {&created, &fetched, &checkedIn, &charged, &bill, &paid, &checkedOut, &after}) {
        EXPECT_EQ(log->count(), 1u);
    }
    EXPECT_EQ(sandbox->requestCount(), 10u);
}

}  // namespace
}  // namespace e2e
