#include "EndToEndSupport.h"

#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace e2e {

namespace {

// Far beyond any reply on 127.0.0.1; only a broken delivery ever waits this long.
constexpr std::chrono::seconds kDeliveryLimit{30};

std::optional<std::string> text(const nlohmann::json& value) { return value.get<std::string>(); }

// The tests check outcomes themselves; the validator's failure lines would only bury gtest's output.
class QuietConsole : public ::testing::Environment {
public:
    void SetUp() override { VLMSDKConsoleLogger::sharedLogger().setMaximumLevel(0); }
};
[[maybe_unused]] ::testing::Environment* const kQuietConsole = ::testing::AddGlobalTestEnvironment(new QuietConsole);

}  // namespace

void DeliveryLog::State::add(std::shared_ptr<VLMSDKRootObject> record, bool flag, VLMErrorPtr error) {
    Delivery delivery;
    delivery.record = std::move(record);
    delivery.flag = flag;
    delivery.error = std::move(error);
    delivery.onMainThread = VLMSDKMainQueue::isMainThread();
    delivery.thread = std::this_thread::get_id();
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

Client::Client(const std::string& baseURL, std::optional<std::string> token)
    : transport_(std::make_shared<VLMSDKHTTPRequestManager>([] {
          VLMSDKHTTPRequestManagerOptions options;
          options.maximumLiveTransfers = 1;  // one connection to the service
          return options;
      }())),
      api_([&] {
          auto builder = std::make_shared<VLMSDKRequestBuilder>(baseURL);
          builder->setAccessToken(std::move(token));
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

const nlohmann::json& seed() {
    static const nlohmann::json parsed = [] {
        std::ifstream file(PMS_SANDBOX_SEED_FILE);
        return nlohmann::json::parse(file);
    }();
    return parsed;
}

const nlohmann::json& seededBooking(const std::string& id) {
    for (const auto& booking : seed().at("bookings")) {
        if (booking.at("id") == id) return booking;
    }
    throw std::out_of_range("no seeded booking " + id);
}

long long cents(const nlohmann::json& amount) {
    const double value = amount.is_string() ? std::strtod(amount.get_ref<const std::string&>().c_str(), nullptr)
                                            : amount.get<double>();
    return std::llround(value * 100.0);
}

long long seededBalanceCents(const nlohmann::json& booking) {
    long long total = 0;
    for (const auto& posting : booking.at("folio").at("transactions")) total += cents(posting.at("amount"));
    return total;
}

VLMSDKDate dateFrom(const std::string& text) {
    const int year = std::stoi(text.substr(0, 4));
    const unsigned month = static_cast<unsigned>(std::stoi(text.substr(5, 2)));
    const unsigned day = static_cast<unsigned>(std::stoi(text.substr(8, 2)));
    return VLMSDKDate{std::chrono::year{year} / std::chrono::month{month} / std::chrono::day{day}};
}

void expectReservationMatchesBooking(const VLMSDKReservation& reservation, const nlohmann::json& booking) {
    EXPECT_EQ(reservation.velmoraID(), text(booking.at("id")));
    EXPECT_EQ(reservation.checkinVelmoraID(), text(booking.at("checkin_id")));
    EXPECT_EQ(reservation.guestVelmoraID(), text(booking.at("user_id")));
    EXPECT_EQ(reservation.venueVelmoraID(), text(booking.at("venue_id")));
    EXPECT_EQ(reservation.externalReservationID(), text(booking.at("confirmation_id")));
    EXPECT_EQ(reservation.internalReservationID(), text(booking.at("reservation_number")));
    EXPECT_EQ(reservation.clientSideID(), text(booking.at("client_number")));
    EXPECT_EQ(reservation.priceCurrencyCode(), text(booking.at("currency_code")));
    EXPECT_EQ(reservation.checkinDate(), dateFrom(booking.at("checkin_date")));
    EXPECT_EQ(reservation.checkoutDate(), dateFrom(booking.at("checkout_date")));
    ASSERT_TRUE(reservation.totalStayPriceAmount());
    EXPECT_EQ(std::llround(*reservation.totalStayPriceAmount() * 100), cents(booking.at("total_stay_amount")));
    EXPECT_EQ(reservation.roomNumber(), text(booking.at("room_number")));
    ASSERT_TRUE(reservation.notSyncedPaidPriceAmount());
    EXPECT_EQ(std::llround(*reservation.notSyncedPaidPriceAmount() * 100),
              std::llabs(cents(booking.at("not_synced_amount"))));
    EXPECT_EQ(reservation.isMobileCheckinOpen(), booking.at("checkin_is_available").get<bool>());
    EXPECT_EQ(reservation.reservationInfo(), text(booking.at("reservation_info")));
    EXPECT_EQ(reservation.statusStringRepresentation(), text(booking.at("status")));
    const std::string status = booking.at("status");
    const VLMSDKReservationStatus expectedStatus = status == "reserved"   ? VLMSDKReservationStatusReserved
                                                   : status == "in_house" ? VLMSDKReservationStatusInHouse
                                                                          : VLMSDKReservationStatusCheckedOut;
    EXPECT_EQ(reservation.status(), expectedStatus);
    ASSERT_TRUE(reservation.remainPriceAmountToPay());
    EXPECT_EQ(std::llround(*reservation.remainPriceAmountToPay() * 100), seededBalanceCents(booking));

    const auto& guests = booking.at("guests");
    ASSERT_EQ(reservation.guests().size(), guests.size());
    for (std::size_t index = 0; index < guests.size(); ++index) {
        SCOPED_TRACE("guest " + std::to_string(index));
        const auto& guest = reservation.guests()[index];
        ASSERT_TRUE(guest);
        EXPECT_EQ(guest->firstName(), text(guests[index].at("first_name")));
        EXPECT_EQ(guest->lastName(), text(guests[index].at("last_name")));
        EXPECT_EQ(guest->profileCode(), text(guests[index].at("profile_code")));
    }
}

void expectFolioMatchesBooking(const VLMSDKFolio& folio, const nlohmann::json& booking) {
    const auto& seeded = booking.at("folio");
    EXPECT_EQ(folio.folioID(), text(seeded.at("folio_id")));
    EXPECT_EQ(folio.paymentCurrency(), text(booking.at("currency_code")));
    ASSERT_TRUE(folio.outstandingAmount());
    EXPECT_EQ(std::llround(*folio.outstandingAmount() * 100), seededBalanceCents(booking));

    const auto& postings = seeded.at("transactions");
    ASSERT_EQ(folio.deliverables().size(), postings.size());
    for (std::size_t index = 0; index < postings.size(); ++index) {
        SCOPED_TRACE("posting " + std::to_string(index));
        const auto& posting = folio.deliverables()[index];
        ASSERT_TRUE(posting);
        EXPECT_EQ(posting->name(), text(postings[index].at("posting_name")));
        EXPECT_EQ(posting->code(), text(postings[index].at("posting_code")));
        EXPECT_EQ(posting->currency(), text(postings[index].at("currency_code")));
        ASSERT_TRUE(posting->price());
        EXPECT_EQ(std::llround(*posting->price() * 100), cents(postings[index].at("amount")));
    }
}

std::shared_ptr<VLMSDKCreateReservationRequestInfo> createRequest(const std::string& confirmation,
                                                                  const std::string& venue,
                                                                  const std::string& lastName) {
    auto request = std::make_shared<VLMSDKCreateReservationRequestInfo>();
    request->setExternalReservationID(confirmation);
    request->setVenueVelmoraID(venue);
    request->setReservationistLastName(lastName);
    return request;
}

std::shared_ptr<VLMSDKPayForReservationRequestInfo> payRequest(const std::string& reservationID, double amount,
                                                               const std::string& currency, const std::string& card) {
    auto request = std::make_shared<VLMSDKPayForReservationRequestInfo>();
    request->setReservationID(reservationID);
    request->setAmount(amount);
    request->setCurrencyCode(currency);
    request->setCreditCardID(card);
    return request;
}

std::shared_ptr<VLMSDKUpdateReservationMasterBillRequestInfo> chargeRequest(
    const std::string& reservationID, const std::vector<std::pair<std::string, double>>& items) {
    auto request = std::make_shared<VLMSDKUpdateReservationMasterBillRequestInfo>();
    request->setReservationID(reservationID);
    VLMSDKUpdateReservationMasterBillRequestInfo::Deliverables deliverables;
    for (const auto& [item, count] : items) {
        deliverables.push_back(std::make_shared<VLMSDKDeliverableCountableItem>(item, count));
    }
    request->setVelmoraDeliverables(std::move(deliverables));
    return request;
}

std::vector<Delivery> runAndSettle(Client& client,
                                   const std::function<void(const VLMSDKAPIManager&, DeliveryLog&)>& call) {
    DeliveryLog log;
    call(client.api(), log);
    EXPECT_TRUE(log.waitFor(1)) << "no completion arrived";
    client.settle();
    std::vector<Delivery> deliveries;
    for (std::size_t index = 0; index < log.count(); ++index) deliveries.push_back(log.at(index));
    return deliveries;
}

}  // namespace e2e
