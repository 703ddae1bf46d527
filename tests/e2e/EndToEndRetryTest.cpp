// Retries against the local service: replies lost after the service acted are sent again with the same
// idempotency key and posted once; without keys, a payment or charge whose bytes left is never sent again.
#include "EndToEndSupport.h"

#include <pmssandbox/Fault.h>

#include <gtest/gtest.h>

#include <chrono>

using namespace std::chrono_literals;
using namespace e2e;
using pmssandbox::Fault;

E2E_SUITE_ON_EACH_TRANSPORT(EndToEndRetryTest);

TEST_P(EndToEndRetryTest, LostRepliesOfKeyedPaymentsAndChargesArePostedOnceAndUnkeyedOnesAreNotSentAgain) {
    constexpr int kDrops = 2;
    const std::string pay3 = "guest/reservations/rsv_0003/transactions";
    const std::string charge3 = "guest/reservations/rsv_0003/charge";
    for (const bool keys : {true, false}) {
        SCOPED_TRACE(keys ? "idempotency keys on" : "idempotency keys off");
        auto sandbox = startSandbox();
        Client client(sandbox->baseUrl(), kSandboxToken, transport(), VLMSDKHTTPRequestManagerOptions::Mode::Automatic,
                      {kDrops + 2, 1ms, 20ms, keys});
        const auto postings = [](const VLMSDKAPIManager& through) {
            DeliveryLog log;
            folio("rsv_0003")(through, log);
            EXPECT_TRUE(log.waitFor());
            const auto record = log.record<VLMSDKFolio>();
            return record ? record->deliverables().size() : 0u;
        };
        const std::size_t before = postings(client.api());
        sandbox->clearRequests();
        // The service acts on each of these requests, then drops the connection before replying.
        sandbox->addFault(Fault::dropReply().matching("POST", pay3).times(kDrops));
        sandbox->addFault(Fault::dropReply().matching("POST", charge3).times(kDrops));
        DeliveryLog log;
        pay("rsv_0003", 10, "USD", "card_cassia_visa_0077")(client.api(), log);
        ASSERT_TRUE(log.waitFor(1));
        charge("rsv_0003", {{"itm_sparkling_water", 1}})(client.api(), log);
        ASSERT_TRUE(log.waitFor(2));
        client.settle();
        ASSERT_EQ(log.count(), 2u);  // one completion per operation, whatever the attempts

        const std::size_t attempts = keys ? kDrops + 1 : 1;
        EXPECT_EQ(sandbox->requestCount("POST", pay3), attempts);
        EXPECT_EQ(sandbox->requestCount("POST", charge3), attempts);
        for (std::size_t i = 0; i < 2; ++i) EXPECT_EQ(log.at(i).error == nullptr, keys) << i;
        if (!keys) {
            // Each went out once and its reply was lost: the service acted once, and the caller is told so.
            EXPECT_EQ(log.at(0).error->code(), VLMErrorCode::Transport);
        }
        // One payment line and one charge line, however many attempts: no double posting.
        EXPECT_EQ(postings(Client(sandbox->baseUrl(), kSandboxToken, transport()).api()), before + 2);
    }
}

TEST_P(EndToEndRetryTest, AKeyedPaymentWhoseEveryReplyWasLostSaysItWasSentAgainUnderOneKey) {
    const std::string pay3 = "guest/reservations/rsv_0003/transactions";
    auto sandbox = startSandbox();
    Client client(sandbox->baseUrl(), kSandboxToken, transport(), VLMSDKHTTPRequestManagerOptions::Mode::Automatic,
                  {3, 1ms, 20ms, true});
    sandbox->addFault(Fault::dropReply().matching("POST", pay3).times(3));
    DeliveryLog log;
    pay("rsv_0003", 10, "USD", "card_cassia_visa_0077")(client.api(), log);
    ASSERT_TRUE(log.waitFor(1));
    client.settle();
    EXPECT_EQ(sandbox->requestCount("POST", pay3), 3u);
    const VLMErrorPtr error = log.at(0).error;
    ASSERT_TRUE(error);
    const std::string text = error->developerMessage();
    EXPECT_NE(text.find("after 3 attempts"), std::string::npos) << text;
    EXPECT_NE(text.find("may have acted on it, once: every attempt carries the same idempotency key"),
              std::string::npos)
        << text;
    EXPECT_EQ(text.find("not sent again"), std::string::npos) << text;
}
