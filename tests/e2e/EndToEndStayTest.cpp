// One guest's stay through all eight operations, over HTTP, against the local reservation service.
#include "EndToEndSupport.h"

#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <deque>

namespace e2e {
namespace {

long long centsOf(const std::optional<double>& amount) { return amount ? std::llround(*amount * 100) : -1; }

// Runs one step to its delivery, which must be on the main thread and carry no error.
template <class Record>
std::shared_ptr<Record> step(const Client& client, std::deque<DeliveryLog>& logs, const Call& call) {
    DeliveryLog& log = logs.emplace_back();
    call(client.api(), log);
    EXPECT_TRUE(log.waitFor());
    const Delivery delivery = log.at(0);
    EXPECT_TRUE(delivery.onMainThread);
    EXPECT_EQ(delivery.error, nullptr) << delivery.error->description();
    return std::dynamic_pointer_cast<Record>(delivery.record);
}

E2E_SUITE_ON_EACH_TRANSPORT(EndToEndStayTest);

TEST_P(EndToEndStayTest, WalksOneStayThroughAllEightOperations) {
    auto sandbox = startSandbox();
    Client client(sandbox->baseUrl(), kSandboxToken, transport());
    std::deque<DeliveryLog> logs;

    const auto created = step<VLMSDKReservation>(client, logs, create("HLI-48213", "ven_harborlight", "Quillfeather"));
    ASSERT_TRUE(created);
    // The service's keys land in the kit's properties: booking rsv_0001 of the seed file.
    EXPECT_EQ(created->velmoraID(), "rsv_0001");
    EXPECT_EQ(created->guestVelmoraID(), "usr_ada_quillfeather");
    EXPECT_EQ(created->clientSideID(), "CL-30017");
    EXPECT_EQ(created->checkoutDate(), std::chrono::sys_days{std::chrono::year{2030} / 6 / 17});
    EXPECT_EQ(centsOf(created->totalStayPriceAmount()), 56700);
    EXPECT_EQ(created->status(), VLMSDKReservationStatusReserved);
    EXPECT_TRUE(created->isMobileCheckinOpen());
    ASSERT_EQ(created->guests().size(), 1u);
    EXPECT_EQ(created->guests()[0]->profileCode(), "PRF-10001");

    const auto fetched = step<VLMSDKReservation>(client, logs, fetch("rsv_0001"));
    ASSERT_TRUE(fetched);
    EXPECT_EQ(fetched->reservationInfo(), created->reservationInfo());

    // Both flag values reach the service.
    for (bool notify : {false, true}) {
        SCOPED_TRACE(notify ? "notify" : "do not notify");
        const auto confirmed = step<VLMSDKReservation>(client, logs, confirm("rsv_0001", notify));
        ASSERT_TRUE(confirmed);
        EXPECT_EQ(sandbox->notifyMe("rsv_0001"), notify);
    }

    const auto inHouse = step<VLMSDKReservation>(client, logs, checkin("rsv_0001"));
    ASSERT_TRUE(inHouse);
    EXPECT_EQ(inHouse->status(), VLMSDKReservationStatusInHouse);
    EXPECT_FALSE(inHouse->isMobileCheckinOpen());
    ASSERT_TRUE(inHouse->roomNumber());
    EXPECT_FALSE(inHouse->roomNumber()->empty()) << "check-in assigns a room";

    // The seeded folio is empty; the catalog gives 18.00 and 4.50.
    const auto charged = step<VLMSDKFolio>(client, logs,
                                           charge("rsv_0001", {{"itm_breakfast", 2}, {"itm_sparkling_water", 3}}));
    ASSERT_TRUE(charged);
    ASSERT_EQ(charged->deliverables().size(), 2u);
    EXPECT_EQ(charged->deliverables()[0]->code(), "FB-BRK");
    EXPECT_EQ(centsOf(charged->deliverables()[0]->price()), 3600);
    EXPECT_EQ(centsOf(charged->deliverables()[1]->price()), 1350);
    EXPECT_EQ(charged->deliverables()[1]->currency(), "USD");
    EXPECT_EQ(charged->folioID(), "fol_0001");

    const auto bill = step<VLMSDKFolio>(client, logs, folio("rsv_0001"));
    ASSERT_TRUE(bill);
    EXPECT_EQ(centsOf(bill->outstandingAmount()), 4950);
    EXPECT_EQ(bill->paymentCurrency(), "USD");

    const auto payment = step<VLMSDKPayForReservationResult>(client, logs,
                                                             pay("rsv_0001", 49.50, "USD", "card_ada_visa_4242"));
    ASSERT_TRUE(payment);
    ASSERT_TRUE(payment->paymentTransaction());
    ASSERT_TRUE(payment->reservation());
    EXPECT_EQ(centsOf(payment->paymentTransaction()->amount()), 4950);
    EXPECT_EQ(payment->paymentTransaction()->creditCardID(), "card_ada_visa_4242");
    EXPECT_EQ(payment->paymentTransaction()->status(), "succeeded");
    EXPECT_EQ(centsOf(payment->reservation()->remainPriceAmountToPay()), 0);

    step<VLMSDKRootObject>(client, logs, checkout("rsv_0001"));
    EXPECT_TRUE(logs.back().at(0).flag);

    const auto after = step<VLMSDKReservation>(client, logs, fetch("rsv_0001"));
    ASSERT_TRUE(after);
    EXPECT_EQ(after->status(), VLMSDKReservationStatusCheckedOut);
    EXPECT_EQ(after->roomNumber(), inHouse->roomNumber());

    // Nothing else may arrive once the transport can make no more deliveries.
    client.settle();
    for (const DeliveryLog& log : logs) EXPECT_EQ(log.count(), 1u);
    EXPECT_EQ(sandbox->requestCount(), 10u);
}

}  // namespace
}  // namespace e2e
