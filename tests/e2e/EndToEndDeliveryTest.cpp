// Where completions run: replies are handled on the transport's network thread and delivered on the
// main thread, whichever thread started the operation, or through a host's own executor.
#include "EndToEndSupport.h"

#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <thread>

namespace e2e {
namespace {

constexpr std::chrono::seconds kLimit{30};

// Passes requests on to the real transport and reports, once the kit's reply handler has returned,
// which thread ran it.
class ObservingRequestManager final : public VLMSDKRequestManager {
public:
    explicit ObservingRequestManager(std::shared_ptr<VLMSDKRequestManager> inner) : inner_(std::move(inner)) {}

    void performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                VLMSDKDataTaskCompletion completion) override {
        auto handled = handled_;
        inner_->performDataTaskRequest(
            std::move(request), [completion = std::move(completion), handled](auto json, auto response, auto error) {
                completion(std::move(json), std::move(response), std::move(error));
                handled->set_value(std::this_thread::get_id());
            });
    }

    std::future<std::thread::id> replyHandled() { return handled_->get_future(); }

private:
    std::shared_ptr<VLMSDKRequestManager> inner_;
    std::shared_ptr<std::promise<std::thread::id>> handled_ = std::make_shared<std::promise<std::thread::id>>();
};

TEST(EndToEndDeliveryTest, ReplyHandledOnTheNetworkThreadIsDeliveredOnlyWhenTheMainQueueRuns) {
    auto sandbox = startSandbox();
    VLMSDKHTTPRequestManagerOptions options;
    options.maximumLiveTransfers = 1;  // one connection to the service
    auto transport = std::make_shared<VLMSDKHTTPRequestManager>(options);
    auto observer = std::make_shared<ObservingRequestManager>(transport);
    auto builder = std::make_shared<VLMSDKRequestBuilder>(sandbox->baseUrl());
    builder->setAccessToken(kSandboxToken);
    const VLMSDKAPIManager api(builder, observer);
    auto handled = observer->replyHandled();
    VLMSDKMainQueue::drain();

    DeliveryLog log;
    fetchReservationWithID(api, "rsv_0003", log.completion<VLMSDKReservation>());
    // Block the main thread without pumping: the reply is handled elsewhere and must wait for it.
    ASSERT_EQ(handled.wait_for(kLimit), std::future_status::ready);
    const std::thread::id handlerThread = handled.get();
    EXPECT_NE(handlerThread, std::this_thread::get_id());
    EXPECT_EQ(log.count(), 0u) << "the completion ran on the network thread";
    EXPECT_EQ(VLMSDKMainQueue::pendingCount(), 1u);

    EXPECT_EQ(VLMSDKMainQueue::drain(), 1u);
    transport->shutdown();
    VLMSDKMainQueue::drain();
    ASSERT_EQ(log.count(), 1u);
    const Delivery delivery = log.at(0);
    EXPECT_TRUE(delivery.onMainThread);
    EXPECT_EQ(delivery.thread, std::this_thread::get_id());
    EXPECT_EQ(delivery.error, nullptr);
    ASSERT_TRUE(log.record<VLMSDKReservation>());
    EXPECT_EQ(log.record<VLMSDKReservation>()->velmoraID(), "rsv_0003");
}

TEST(EndToEndDeliveryTest, ConcurrentCallsFromOtherThreadsEachCompleteOnceOnTheMainThread) {
    constexpr int kThreads = 4;
    constexpr int kCallsPerThread = 6;
    auto sandbox = startSandbox();
    Client client(sandbox->baseUrl(), kSandboxToken);

    DeliveryLog reservations;
    DeliveryLog folios;
    std::vector<std::thread> callers;
    for (int thread = 0; thread < kThreads; ++thread) {
        callers.emplace_back([&] {
            for (int call = 0; call < kCallsPerThread; ++call) {
                fetchReservationWithID(client.api(), "rsv_0009", reservations.completion<VLMSDKReservation>());
                fetchReservationMasterBill(client.api(), "rsv_0009", folios.completion<VLMSDKFolio>());
            }
        });
    }
    for (auto& caller : callers) caller.join();

    constexpr std::size_t kExpected = kThreads * kCallsPerThread;
    ASSERT_TRUE(reservations.waitFor(kExpected));
    ASSERT_TRUE(folios.waitFor(kExpected));
    client.settle();
    ASSERT_EQ(reservations.count(), kExpected);
    ASSERT_EQ(folios.count(), kExpected);
    for (std::size_t index = 0; index < kExpected; ++index) {
        SCOPED_TRACE(index);
        for (const Delivery& delivery : {reservations.at(index), folios.at(index)}) {
            EXPECT_TRUE(delivery.onMainThread);
            EXPECT_EQ(delivery.error, nullptr);
            EXPECT_TRUE(delivery.record);
        }
    }
    EXPECT_EQ(reservations.record<VLMSDKReservation>(kExpected - 1)->velmoraID(), "rsv_0009");
    EXPECT_EQ(folios.record<VLMSDKFolio>(kExpected - 1)->folioID(), "fol_0009");
}

// A host's main loop: tasks handed over by the SDK's executor, run by the test on the main thread.
class HostLoop {
public:
    void post(VLMSDKMainQueue::Task task) {
        {
            std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        ready_.notify_one();
    }

    // Runs tasks until `done()`; false when none came within the limit.
    bool runUntil(const std::function<bool()>& done) {
        while (!done()) {
            std::unique_lock lock(mutex_);
            if (!ready_.wait_for(lock, kLimit, [&] { return !tasks_.empty(); })) return false;
            auto task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            task();
            ++ran_;
        }
        return true;
    }

    std::size_t ran() const { return ran_; }

private:
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<VLMSDKMainQueue::Task> tasks_;
    std::size_t ran_ = 0;
};

TEST(EndToEndDeliveryTest, HostExecutorReceivesTheDeliveriesAndRunsThemOnItsOwnLoop) {
    auto sandbox = startSandbox();
    Client client(sandbox->baseUrl(), kSandboxToken);
    auto loop = std::make_shared<HostLoop>();
    VLMSDKMainQueue::setExecutor([loop](VLMSDKMainQueue::Task task) { loop->post(std::move(task)); });

    DeliveryLog reservation;
    DeliveryLog folio;
    fetchReservationWithID(client.api(), "rsv_0005", reservation.completion<VLMSDKReservation>());
    fetchReservationMasterBill(client.api(), "rsv_0005", folio.completion<VLMSDKFolio>());
    const bool finished = loop->runUntil([&] { return reservation.count() == 1 && folio.count() == 1; });
    client.settle();
    VLMSDKMainQueue::setExecutor({});

    ASSERT_TRUE(finished);
    EXPECT_EQ(loop->ran(), 2u);
    EXPECT_EQ(VLMSDKMainQueue::pendingCount(), 0u) << "nothing went to the SDK's own queue";
    ASSERT_EQ(reservation.count(), 1u);
    ASSERT_EQ(folio.count(), 1u);
    EXPECT_TRUE(reservation.at(0).onMainThread);
    EXPECT_TRUE(folio.at(0).onMainThread);
    EXPECT_EQ(reservation.record<VLMSDKReservation>()->velmoraID(), "rsv_0005");
    EXPECT_EQ(folio.record<VLMSDKFolio>()->folioID(), "fol_0005");
}

}  // namespace
}  // namespace e2e
