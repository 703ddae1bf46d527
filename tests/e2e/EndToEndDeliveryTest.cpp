// Where completions run: replies are handled on the thread that drives the transport (the network thread,
// or the main thread as it pumps) and delivered on the main thread. Callers on other threads are covered
// by the transport's and the request frame's concurrency tests.
#include "EndToEndSupport.h"

#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

namespace e2e {
namespace {

// Passes requests on to the real transport and reports, once the kit's reply handler has returned,
// which thread ran it.
struct ObservingRequestManager final : VLMSDKRequestManager {
    explicit ObservingRequestManager(std::shared_ptr<VLMSDKRequestManager> next) : inner(std::move(next)) {}

    void performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                VLMSDKDataTaskCompletion completion) override {
        auto onReply = [completion = std::move(completion), done = handled](auto json, auto response, auto error) {
            completion(std::move(json), std::move(response), std::move(error));
            done->set_value(std::this_thread::get_id());
        };
        inner->performDataTaskRequest(std::move(request), std::move(onReply));
    }

    std::shared_ptr<VLMSDKRequestManager> inner;
    std::shared_ptr<std::promise<std::thread::id>> handled = std::make_shared<std::promise<std::thread::id>>();
};

E2E_SUITE_ON_EACH_TRANSPORT(EndToEndDeliveryTest);

TEST_P(EndToEndDeliveryTest, TheModeDecidesWhereTheReplyIsHandledAndTheCompletionRunsOnlyOnTheMainThread) {
    using Mode = VLMSDKHTTPRequestManagerOptions::Mode;
    auto sandbox = startSandbox();
    for (const Mode mode : {Mode::Threaded, Mode::Pumped}) {
        const bool threaded = mode == Mode::Threaded;
        SCOPED_TRACE(threaded ? "threaded" : "pumped");
        VLMSDKHTTPRequestManagerOptions options;
        options.mode = mode;
        options.transport = transport();
        options.maximumLiveTransfers = 1;  // one connection to the service
        auto transport = std::make_shared<VLMSDKHTTPRequestManager>(options);
        auto observer = std::make_shared<ObservingRequestManager>(transport);
        auto builder = std::make_shared<VLMSDKRequestBuilder>(sandbox->baseUrl());
        builder->setAccessToken(kSandboxToken);
        const VLMSDKAPIManager api(builder, observer);
        auto handled = observer->handled->get_future();
        VLMSDKMainQueue::drain();

        DeliveryLog log;
        fetchReservationWithID(api, "rsv_0003", log.completion<VLMSDKReservation>());
        if (threaded) {
            // Block the main thread without pumping: the reply is handled elsewhere, and the completion waits.
            ASSERT_EQ(handled.wait_for(kLimit), std::future_status::ready);
            EXPECT_NE(handled.get(), std::this_thread::get_id());
            EXPECT_EQ(log.count(), 0u) << "the completion ran on the network thread";
            EXPECT_EQ(VLMSDKMainQueue::pendingCount(), 1u);
            EXPECT_EQ(VLMSDKMainQueue::drain(), 1u);
        } else {
            // Pumping drives the transfer: the reply is handled and delivered on the main thread, no task between.
            ASSERT_TRUE(log.waitFor(1));
            EXPECT_EQ(handled.get(), std::this_thread::get_id());
            EXPECT_EQ(VLMSDKMainQueue::pendingCount(), 0u);
        }
        transport->shutdown();
        VLMSDKMainQueue::drain();
        ASSERT_EQ(log.count(), 1u);
        EXPECT_TRUE(log.at(0).onMainThread);
        const auto reservation = log.record<VLMSDKReservation>();
        ASSERT_TRUE(reservation);
        EXPECT_EQ(reservation->velmoraID(), "rsv_0003");
    }
}

}  // namespace
}  // namespace e2e
