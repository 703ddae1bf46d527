#include "EndToEndSupport.h"

#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <gtest/gtest.h>

#include <chrono>

namespace e2e {

namespace {

// Far beyond any reply on 127.0.0.1; only a broken delivery ever waits this long.
constexpr std::chrono::seconds kDeliveryLimit{30};

// The tests check outcomes themselves; the validator's failure lines would only bury gtest's output.
class QuietConsole : public ::testing::Environment {
public:
    void SetUp() override { VLMSDKConsoleLogger::sharedLogger().setMaximumLevel(0); }
};
[[maybe_unused]] ::testing::Environment* const kQuietConsole = ::testing::AddGlobalTestEnvironment(new QuietConsole);

}  // namespace

void DeliveryLog::State::add(std::shared_ptr<VLMSDKRootObject> record, bool flag, VLMErrorPtr error) {
    Delivery delivery{std::move(record), flag, std::move(error), VLMSDKMainQueue::isMainThread()};
    std::lock_guard lock(mutex);
    deliveries.push_back(std::move(delivery));
}

std::size_t DeliveryLog::count() const {
    std::lock_guard lock(state_->mutex);
    return state_->deliveries.size();
}

Delivery DeliveryLog::at(std::size_t index) const {
    std::lock_guard lock(state_->mutex);
    return index < state_->deliveries.size() ? state_->deliveries[index] : Delivery{};
}

bool DeliveryLog::waitFor(std::size_t expected) const {
    return VLMSDKMainQueue::runUntil([this, expected] { return count() >= expected; }, kDeliveryLimit);
}

Client::Client(const std::string& baseURL, std::optional<std::string> token,
               VLMSDKHTTPRequestManagerOptions::Transport transport, VLMSDKHTTPRequestManagerOptions::Mode mode,
               VLMSDKRetryPolicy retry, std::shared_ptr<VLMSDKCredentialsProvider> credentials)
    : transport_(std::make_shared<VLMSDKHTTPRequestManager>([&] {
          VLMSDKHTTPRequestManagerOptions options;
          options.transport = transport;
          options.mode = mode;
          options.maximumLiveTransfers = 1;  // one connection to the service
          options.retry = retry;
          return options;
      }())),
      api_([&] {
          auto builder = std::make_shared<VLMSDKRequestBuilder>(baseURL);
          builder->setAccessToken(std::move(token));
          if (credentials) builder->setCredentialsProvider(std::move(credentials));
          return builder;
      }(),
           transport_) {}

Client::~Client() { settle(); }

void Client::settle() {
    transport_->shutdown();
    VLMSDKMainQueue::drain();
}

std::unique_ptr<pmssandbox::SandboxServer> startSandbox() {
    pmssandbox::SandboxConfig config;
    config.seedFile = PMS_SANDBOX_SEED_FILE;
    config.token = kSandboxToken;
    auto sandbox = std::make_unique<pmssandbox::SandboxServer>(config);
    EXPECT_TRUE(sandbox->start()) << sandbox->lastError();
    return sandbox;
}

Call create(std::string confirmation, std::string venue, std::string lastName) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        auto request = std::make_shared<VLMSDKCreateReservationRequestInfo>();
        request->setExternalReservationID(confirmation);
        request->setVenueVelmoraID(venue);
        request->setReservationistLastName(lastName);
        createReservationWithRequest(api, request, log.completion<VLMSDKReservation>());
    };
}

Call fetch(std::string id) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        fetchReservationWithID(api, id, log.completion<VLMSDKReservation>());
    };
}

Call confirm(std::string id, bool notify) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        confirmReservationWithID(api, id, notify, log.completion<VLMSDKReservation>());
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
        auto request = std::make_shared<VLMSDKPayForReservationRequestInfo>();
        request->setReservationID(id);
        request->setAmount(amount);
        request->setCurrencyCode(currency);
        request->setCreditCardID(card);
        payForReservationWithRequest(api, request, log.completion<VLMSDKPayForReservationResult>());
    };
}

Call folio(std::string id) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        fetchReservationMasterBill(api, id, log.completion<VLMSDKFolio>());
    };
}

Call charge(std::string id, std::vector<std::pair<std::string, double>> items) {
    return [=](const VLMSDKAPIManager& api, DeliveryLog& log) {
        auto request = std::make_shared<VLMSDKUpdateReservationMasterBillRequestInfo>();
        request->setReservationID(id);
        VLMSDKUpdateReservationMasterBillRequestInfo::Deliverables deliverables;
        for (const auto& [item, count] : items) {
            deliverables.push_back(std::make_shared<VLMSDKDeliverableCountableItem>(item, count));
        }
        request->setVelmoraDeliverables(std::move(deliverables));
        updateReservationMasterBillWithRequest(api, request, log.completion<VLMSDKFolio>());
    };
}

}  // namespace e2e
