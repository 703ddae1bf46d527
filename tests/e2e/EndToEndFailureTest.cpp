// Refusals of the service and broken transports, through every operation: exactly one completion, on
// the main thread, carrying no result and the error that says what happened.
#include "EndToEndSupport.h"

#include <gtest/gtest.h>

#include <functional>

namespace e2e {
namespace {

using Call = std::function<void(const VLMSDKAPIManager&, DeliveryLog&)>;

// One failure must be the only delivery, on the main thread, without a record (false for check-out).
void expectOneFailure(const std::vector<Delivery>& deliveries) {
    ASSERT_EQ(deliveries.size(), 1u);
    const Delivery& delivery = deliveries[0];
    EXPECT_TRUE(delivery.onMainThread);
    EXPECT_EQ(delivery.record, nullptr);
    EXPECT_FALSE(delivery.flag);
    ASSERT_NE(delivery.error, nullptr);
}

Call create(std::string confirmation, std::string venue, std::string lastName) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        createReservationWithRequest(api, createRequest(confirmation, venue, lastName),
                                     log.completion<VLMSDKReservation>());
    };
}
Call fetch(std::string id) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        fetchReservationWithID(api, id, log.completion<VLMSDKReservation>());
    };
}
Call confirm(std::string id) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        confirmReservationWithID(api, id, true, log.completion<VLMSDKReservation>());
    };
}
Call checkin(std::string id) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        performMobileCheckinForReservationWithID(api, id, log.completion<VLMSDKReservation>());
    };
}
Call checkout(std::string id) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        performMobileCheckoutForReservationWithID(api, id, log.flagCompletion());
    };
}
Call pay(std::string id, double amount, std::string currency, std::string card) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        payForReservationWithRequest(api, payRequest(id, amount, currency, card),
                                     log.completion<VLMSDKPayForReservationResult>());
    };
}
Call folio(std::string id) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        fetchReservationMasterBill(api, id, log.completion<VLMSDKFolio>());
    };
}
Call charge(std::string id, std::string item) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        updateReservationMasterBillWithRequest(api, chargeRequest(id, {{item, 1}}), log.completion<VLMSDKFolio>());
    };
}

struct RefusalRow {
    const char* name;
    std::optional<std::string> token;
    std::optional<Call> before;  // brings the booking onto the platform first
    Call call;
    long status;
    const char* serverMessage;
};

TEST(EndToEndFailureTest, RefusalsArriveOnceOnTheMainThreadWithStatusAndServerMessage) {
    const std::string token = kSandboxToken;
    const RefusalRow rows[] = {
        {"wrong token", "not-the-token", {}, fetch("rsv_0003"), 401, "The bearer token is not valid for this service."},
        {"no token", std::nullopt, {}, folio("rsv_0003"), 401, "This request needs an Authorization: Bearer token."},
        {"unknown booking", token, {}, create("HLI-48213", "ven_harborlight", "Nobody"), 404,
         "No booking matches that confirmation number, venue and last name."},
        {"booking of another venue", token, {}, create("HLI-48213", "ven_fernhill", "Quillfeather"), 404,
         "No booking matches that confirmation number, venue and last name."},
        {"unknown reservation", token, {}, fetch("rsv_9999"), 404, "No reservation has the id 'rsv_9999'."},
        {"booking not yet on the platform", token, {}, checkin("rsv_0001"), 404,
         "No reservation has the id 'rsv_0001'."},
        {"confirm unknown", token, {}, confirm("rsv_9999"), 404, "No reservation has the id 'rsv_9999'."},
        {"check out unknown", token, {}, checkout("rsv_9999"), 404, "No reservation has the id 'rsv_9999'."},
        {"folio of unknown", token, {}, folio("rsv_9999"), 404, "No reservation has the id 'rsv_9999'."},
        {"check-in not open", token, create("HLI-48227", "ven_harborlight", "Oddleigh"), checkin("rsv_0002"), 409,
         "Mobile check-in is not open for this reservation yet."},
        {"check-in when in house", token, {}, checkin("rsv_0003"), 409,
         "Mobile check-in needs a reserved booking; this one is in_house."},
        {"check-out when reserved", token, {}, checkout("rsv_0011"), 409,
         "Mobile checkout needs a guest in house; this reservation is reserved."},
        {"charge after check-out", token, create("HLI-47990", "ven_harborlight", "Lanternfish"),
         charge("rsv_0004", "itm_breakfast"), 409, "A checked-out reservation cannot take new charges."},
        {"pay above the balance", token, {}, pay("rsv_0003", 1000, "USD", "card_cassia_visa_0077"), 409,
         "The amount is more than the 129.68 USD outstanding."},
        {"charge an unknown item", token, {}, charge("rsv_0003", "itm_unicorn"), 422,
         "This venue sells no item 'itm_unicorn'."},
        {"charge another venue's item", token, {}, charge("rsv_0003", "itm_spa_pass"), 422,
         "This venue sells no item 'itm_spa_pass'."},
        {"pay in the wrong currency", token, {}, pay("rsv_0003", 10, "EUR", "card_cassia_visa_0077"), 422,
         "This reservation is paid in USD, not EUR."},
        {"pay with another guest's card", token, {}, pay("rsv_0003", 10, "USD", "card_ada_visa_4242"), 402,
         "That card is not on file for this guest."},
        {"pay with a declining card", token, {}, pay("rsv_0003", 10, "USD", "card_cassia_mc_0119"), 402,
         "The card issuer declined the payment."},
    };

    auto sandbox = startSandbox();
    for (const RefusalRow& row : rows) {
        SCOPED_TRACE(row.name);
        sandbox->resetData();
        if (row.before) {
            Client setup(sandbox->baseUrl(), kSandboxToken);
            auto prepared = runAndSettle(setup, *row.before);
            ASSERT_EQ(prepared.size(), 1u);
            ASSERT_EQ(prepared[0].error, nullptr) << prepared[0].error->description();
        }
        Client client(sandbox->baseUrl(), row.token);
        auto deliveries = runAndSettle(client, row.call);
        ASSERT_NO_FATAL_FAILURE(expectOneFailure(deliveries));
        const VLMError& error = *deliveries[0].error;
        EXPECT_EQ(error.code(), VLMErrorCode::HTTPStatus) << error.description();
        EXPECT_EQ(error.httpStatusCode(), row.status);
        EXPECT_EQ(error.serverMessage(), std::string(row.serverMessage));
        EXPECT_NE(error.developerMessage().find(std::to_string(row.status)), std::string::npos)
            << error.developerMessage();
    }
}

struct OperationRow {
    const char* name;
    const char* method;
    const char* path;
    Call call;
};

// Every operation, with an argument the service would accept, so that only the fault decides.
const OperationRow kOperations[] = {
    {"create", "POST", "guest/reservations", create("HLI-48240", "ven_harborlight", "Wrenfield")},
    {"fetch", "GET", "guest/reservations/rsv_0003", fetch("rsv_0003")},
    {"confirm", "PATCH", "guest/reservations/rsv_0003", confirm("rsv_0003")},
    {"check-in", "PATCH", "guest/reservations/rsv_0005/mobile_checkin", checkin("rsv_0005")},
    {"check-out", "PATCH", "guest/reservations/rsv_0003/mobile_checkout", checkout("rsv_0003")},
    {"pay", "POST", "guest/reservations/rsv_0003/transactions", pay("rsv_0003", 10, "USD", "card_cassia_visa_0077")},
    {"folio", "GET", "guest/reservations/rsv_0003/folio", folio("rsv_0003")},
    {"charge", "POST", "guest/reservations/rsv_0003/charge", charge("rsv_0003", "itm_breakfast")},
};

TEST(EndToEndFailureTest, EveryOperationSucceedsWithoutAFault) {
    // The baseline for the fault table below: the same calls pass when nothing interferes.
    auto sandbox = startSandbox();
    for (const OperationRow& operation : kOperations) {
        SCOPED_TRACE(operation.name);
        sandbox->resetData();
        Client client(sandbox->baseUrl(), kSandboxToken);
        auto deliveries = runAndSettle(client, operation.call);
        ASSERT_EQ(deliveries.size(), 1u);
        EXPECT_TRUE(deliveries[0].onMainThread);
        EXPECT_EQ(deliveries[0].error, nullptr) << deliveries[0].error->description();
        EXPECT_TRUE(deliveries[0].record || deliveries[0].flag);
    }
}

struct FaultRow {
    const char* name;
    pmssandbox::Fault fault;
    VLMErrorCode code;
    std::optional<long> status;
};

TEST(EndToEndFailureTest, TransportFaultsReachEveryOperationAsOneErrorOnTheMainThread) {
    const FaultRow faults[] = {
        {"dropped connection", pmssandbox::Fault::dropConnection(), VLMErrorCode::Transport, std::nullopt},
        {"body that is not JSON", pmssandbox::Fault::notJson(), VLMErrorCode::InvalidResponse, 200},
        {"forced 503", pmssandbox::Fault::forceStatus(503), VLMErrorCode::HTTPStatus, 503},
    };

    auto sandbox = startSandbox();
    for (const FaultRow& fault : faults) {
        for (const OperationRow& operation : kOperations) {
            SCOPED_TRACE(std::string(operation.name) + " with " + fault.name);
            sandbox->resetData();
            sandbox->clearRequests();
            sandbox->setFault(fault.fault);
            Client client(sandbox->baseUrl(), kSandboxToken);
            auto deliveries = runAndSettle(client, operation.call);
            sandbox->clearFaults();

            ASSERT_NO_FATAL_FAILURE(expectOneFailure(deliveries));
            const VLMError& error = *deliveries[0].error;
            EXPECT_EQ(error.code(), fault.code) << error.description();
            EXPECT_EQ(error.httpStatusCode(), fault.status) << error.description();
            EXPECT_FALSE(error.developerMessage().empty());
            // The request did reach the service: the fault, not the kit, stopped it.
            EXPECT_EQ(sandbox->requestCount(operation.method, operation.path), 1u);
        }
    }
}

}  // namespace
}  // namespace e2e
