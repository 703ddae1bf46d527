// Refusals of the service and broken transports: exactly one completion, on the main thread, carrying
// no result and the error that says what happened.
#include "EndToEndSupport.h"

#include <gtest/gtest.h>

#include <string_view>

namespace e2e {
namespace {

// Runs one operation to the end: its only delivery must be on the main thread, without a record (false
// for check-out). Answers that delivery's error.
VLMErrorPtr onlyFailure(Client& client, const Call& call) {
    DeliveryLog log;
    call(client.api(), log);
    EXPECT_TRUE(log.waitFor()) << "no completion arrived";
    client.settle();
    EXPECT_EQ(log.count(), 1u);
    const Delivery delivery = log.at(0);
    EXPECT_TRUE(delivery.onMainThread);
    EXPECT_EQ(delivery.record, nullptr);
    EXPECT_FALSE(delivery.flag);
    return delivery.error;
}

struct RefusalRow {
    const char* name;
    std::optional<std::string> token;
    Call call;
    long status;
    const char* serverMessage;
};

E2E_SUITE_ON_EACH_TRANSPORT(EndToEndFailureTest);

TEST_P(EndToEndFailureTest, RefusalsArriveOnceOnTheMainThreadWithStatusAndServerMessage) {
    const std::string token = kSandboxToken;
    const RefusalRow rows[] = {
        {"wrong token", "not-the-token", fetch("rsv_0003"), 401, "The bearer token is not valid for this service."},
        {"no token", std::nullopt, folio("rsv_0003"), 401, "This request needs an Authorization: Bearer token."},
        {"unknown booking", token, create("HLI-48213", "ven_harborlight", "Nobody"), 404,
         "No booking matches that confirmation number, venue and last name."},
        {"unknown reservation", token, fetch("rsv_9999"), 404, "No reservation has the id 'rsv_9999'."},
        {"check-in when in house", token, checkin("rsv_0003"), 409,
         "Mobile check-in needs a reserved booking; this one is in_house."},
        {"check-out when reserved", token, checkout("rsv_0011"), 409,
         "Mobile checkout needs a guest in house; this reservation is reserved."},
        {"charge an unknown item", token, charge("rsv_0003", {{"itm_unicorn", 1}}), 422,
         "This venue sells no item 'itm_unicorn'."},
        {"pay with a declining card", token, pay("rsv_0003", 10, "USD", "card_cassia_mc_0119"), 402,
         "The card issuer declined the payment."},
    };

    auto sandbox = startSandbox();
    for (const RefusalRow& row : rows) {
        SCOPED_TRACE(row.name);
        Client client(sandbox->baseUrl(), row.token, transport());
        const VLMErrorPtr error = onlyFailure(client, row.call);
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->code(), VLMErrorCode::HTTPStatus) << error->description();
        EXPECT_EQ(error->httpStatusCode(), row.status);
        EXPECT_EQ(error->serverMessage(), std::string(row.serverMessage));
    }
}

struct OperationRow {
    const char* name;
    Call call;
};

struct FaultRow {
    const char* name;
    pmssandbox::Fault fault;
    VLMErrorCode code;
    std::optional<long> status;
    bool readsRetried;  // by default a GET goes three times after this fault; a write goes once
};

TEST_P(EndToEndFailureTest, TransportFaultsReachEachKindOfOperationAsOneErrorOnTheMainThread) {
    // One of each kind of request and reply; each would succeed without the fault.
    const OperationRow operations[] = {
        {"fetch (GET)", fetch("rsv_0003")},
        {"confirm (PATCH)", confirm("rsv_0003", true)},
        {"pay (POST with a body)", pay("rsv_0003", 10, "USD", "card_cassia_visa_0077")},
        {"check-out (success flag)", checkout("rsv_0003")},
    };
    const FaultRow faults[] = {
        {"dropped connection", pmssandbox::Fault::dropConnection(), VLMErrorCode::Transport, std::nullopt, true},
        {"body that is not JSON", pmssandbox::Fault::notJson(), VLMErrorCode::InvalidResponse, 200, false},
        {"forced 503", pmssandbox::Fault::forceStatus(503), VLMErrorCode::HTTPStatus, 503, true},
    };

    auto sandbox = startSandbox();
    for (const FaultRow& fault : faults) {
        for (const OperationRow& operation : operations) {
            SCOPED_TRACE(std::string(operation.name) + " with " + fault.name);
            sandbox->resetData();
            sandbox->clearRequests();
            sandbox->setFault(fault.fault);
            Client client(sandbox->baseUrl(), kSandboxToken, transport());
            const VLMErrorPtr error = onlyFailure(client, operation.call);
            sandbox->clearFaults();
            ASSERT_NE(error, nullptr);
            EXPECT_EQ(error->code(), fault.code) << error->description();
            EXPECT_EQ(error->httpStatusCode(), fault.status) << error->description();
            // The request did reach the service: the fault, not the kit, stopped it. The default retries send
            // a GET again; a POST or PATCH whose bytes left, never.
            const bool read = std::string_view(operation.name).starts_with("fetch");
            EXPECT_EQ(sandbox->requestCount(), read && fault.readsRetried ? 3u : 1u);
        }
    }
}

}  // namespace
}  // namespace e2e
