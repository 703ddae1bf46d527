#include "GeneratedStyleClient.h"

#include "BenchReplies.h"

#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <cpprest/http_client.h>
#include <cpprest/json.h>
#include <pplx/threadpool.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vlmsdk::bench {
namespace {

using web::json::value;

// ---- what a generator writes: a model base with one conversion per type, then a class per schema ----

class ModelBase {
public:
    virtual ~ModelBase() = default;
    virtual bool fromJson(const value& json) = 0;

    static bool fromJson(const value& json, std::string& out) {
        if (!json.is_string()) return false;
        out = json.as_string();
        return true;
    }
    static bool fromJson(const value& json, double& out) {
        if (!json.is_number()) return false;
        out = json.as_double();
        return true;
    }
    static bool fromJson(const value& json, bool& out) {
        if (!json.is_boolean()) return false;
        out = json.as_bool();
        return true;
    }
    template <class Model>
    static bool fromJson(const value& json, std::shared_ptr<Model>& out) {
        auto model = std::make_shared<Model>();
        if (!model->fromJson(json)) return false;
        out = std::move(model);
        return true;
    }
    template <class Model>
    static bool fromJson(const value& json, std::vector<std::shared_ptr<Model>>& out) {
        if (!json.is_array()) return false;
        bool ok = true;
        for (const auto& item : json.as_array()) {
            std::shared_ptr<Model> element;
            ok &= fromJson(item, element);
            out.push_back(element);
        }
        return ok;
    }
};

// One optional field read the generated way: has_field, at, is_null, convert, set.
#define VLMSDK_GENERATED_FIELD(json, key, type, setter)           \
    if (json.has_field(U(key))) {                                 \
        const value& fieldValue = json.at(U(key));                \
        if (!fieldValue.is_null()) {                              \
            type refVal;                                          \
            ok &= ModelBase::fromJson(fieldValue, refVal);        \
            setter(std::move(refVal));                            \
        }                                                         \
    }

class Guest final : public ModelBase {
public:
    bool fromJson(const value& json) override {
        bool ok = true;
        VLMSDK_GENERATED_FIELD(json, "first_name", std::string, setFirstName)
        VLMSDK_GENERATED_FIELD(json, "last_name", std::string, setLastName)
        VLMSDK_GENERATED_FIELD(json, "profile_code", std::string, setProfileCode)
        return ok;
    }
    void setFirstName(std::string v) { firstName_ = std::move(v); }
    void setLastName(std::string v) { lastName_ = std::move(v); }
    void setProfileCode(std::string v) { profileCode_ = std::move(v); }

private:
    std::optional<std::string> firstName_, lastName_, profileCode_;
};

class Reservation final : public ModelBase {
public:
    bool fromJson(const value& json) override {
        bool ok = true;
        VLMSDK_GENERATED_FIELD(json, "id", std::string, setId)
        VLMSDK_GENERATED_FIELD(json, "checkin_id", std::string, setCheckinId)
        VLMSDK_GENERATED_FIELD(json, "user_id", std::string, setUserId)
        VLMSDK_GENERATED_FIELD(json, "venue_id", std::string, setVenueId)
        VLMSDK_GENERATED_FIELD(json, "confirmation_id", std::string, setConfirmationId)
        VLMSDK_GENERATED_FIELD(json, "reservation_number", std::string, setReservationNumber)
        VLMSDK_GENERATED_FIELD(json, "checkin_date", std::string, setCheckinDate)
        VLMSDK_GENERATED_FIELD(json, "checkout_date", std::string, setCheckoutDate)
        VLMSDK_GENERATED_FIELD(json, "currency_code", std::string, setCurrencyCode)
        VLMSDK_GENERATED_FIELD(json, "total_stay_amount", double, setTotalStayAmount)
        VLMSDK_GENERATED_FIELD(json, "room_number", std::string, setRoomNumber)
        VLMSDK_GENERATED_FIELD(json, "not_synced_amount", double, setNotSyncedAmount)
        VLMSDK_GENERATED_FIELD(json, "checkin_is_available", bool, setCheckinIsAvailable)
        VLMSDK_GENERATED_FIELD(json, "reservation_info", std::string, setReservationInfo)
        VLMSDK_GENERATED_FIELD(json, "outstanding_amount", double, setOutstandingAmount)
        VLMSDK_GENERATED_FIELD(json, "status", std::string, setStatus)
        VLMSDK_GENERATED_FIELD(json, "client_number", std::string, setClientNumber)
        VLMSDK_GENERATED_FIELD(json, "guests", std::vector<std::shared_ptr<Guest>>, setGuests)
        return ok;
    }
    void setId(std::string v) { id_ = std::move(v); }
    void setCheckinId(std::string v) { checkinId_ = std::move(v); }
    void setUserId(std::string v) { userId_ = std::move(v); }
    void setVenueId(std::string v) { venueId_ = std::move(v); }
    void setConfirmationId(std::string v) { confirmationId_ = std::move(v); }
    void setReservationNumber(std::string v) { reservationNumber_ = std::move(v); }
    void setCheckinDate(std::string v) { checkinDate_ = std::move(v); }
    void setCheckoutDate(std::string v) { checkoutDate_ = std::move(v); }
    void setCurrencyCode(std::string v) { currencyCode_ = std::move(v); }
    void setTotalStayAmount(double v) { totalStayAmount_ = v; }
    void setRoomNumber(std::string v) { roomNumber_ = std::move(v); }
    void setNotSyncedAmount(double v) { notSyncedAmount_ = v; }
    void setCheckinIsAvailable(bool v) { checkinIsAvailable_ = v; }
    void setReservationInfo(std::string v) { reservationInfo_ = std::move(v); }
    void setOutstandingAmount(double v) { outstandingAmount_ = v; }
    void setStatus(std::string v) { status_ = std::move(v); }
    void setClientNumber(std::string v) { clientNumber_ = std::move(v); }
    void setGuests(std::vector<std::shared_ptr<Guest>> v) { guests_ = std::move(v); }

    const std::optional<std::string>& status() const { return status_; }
    const std::vector<std::shared_ptr<Guest>>& guests() const { return guests_; }

private:
    std::optional<std::string> id_, checkinId_, userId_, venueId_, confirmationId_, reservationNumber_, checkinDate_,
        checkoutDate_, currencyCode_, roomNumber_, reservationInfo_, status_, clientNumber_;
    std::optional<double> totalStayAmount_, notSyncedAmount_, outstandingAmount_;
    std::optional<bool> checkinIsAvailable_;
    std::vector<std::shared_ptr<Guest>> guests_;
};

class ReservationEnvelope final : public ModelBase {
public:
    bool fromJson(const value& json) override {
        bool ok = true;
        VLMSDK_GENERATED_FIELD(json, "reservation", std::shared_ptr<Reservation>, setReservation)
        return ok;
    }
    void setReservation(std::shared_ptr<Reservation> v) { reservation_ = std::move(v); }
    const std::shared_ptr<Reservation>& reservation() const { return reservation_; }

private:
    std::shared_ptr<Reservation> reservation_;
};

#undef VLMSDK_GENERATED_FIELD

class ApiException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class ReservationsApi {
public:
    explicit ReservationsApi(const std::string& baseURL) : client_(utility::conversions::to_string_t(baseURL)) {
        // The kit's default headers, so that every client sends the same request.
        for (const auto& [name, header] : VLMSDKRequestBuilder("http://127.0.0.1/").defaultHeaders()) {
            headers_.emplace_back(name, header);
        }
    }

    pplx::task<std::shared_ptr<Reservation>> getReservation(const std::string& id) {
        web::http::http_request request(web::http::methods::GET);
        request.set_request_uri(U("guest/reservations/") + web::uri::encode_data_string(id));
        for (const auto& [name, header] : headers_) request.headers().add(name, header);
        return client_.request(request)
            .then([](web::http::http_response response) {
                if (response.status_code() >= 400) throw ApiException("error calling getReservation");
                return response.extract_json();
            })
            .then([](value json) {
                auto envelope = std::make_shared<ReservationEnvelope>();
                if (!envelope->fromJson(json) || !envelope->reservation()) {
                    throw ApiException("cannot read the reply of getReservation");
                }
                return envelope->reservation();
            });
    }

private:
    web::http::client::http_client client_;
    std::vector<std::pair<std::string, std::string>> headers_;
};

// ---- the driver: completions run on the pool's threads, each issuing the next request ----

class GeneratedStyleDriver final : public Driver {
public:
    GeneratedStyleDriver(const std::string& baseURL, const char* label) : api_(baseURL), label_(label) {}

    const char* name() const override { return label_; }

    void run(std::size_t inFlight, Budget& budget, Measurement& measurement) override {
        std::unique_lock lock(mutex_);
        budget_ = &budget;
        measurement_ = &measurement;
        for (std::size_t i = 0; i < inFlight && budget.another(); ++i) issueLocked();
        idle_.wait(lock, [this] { return active_ == 0; });
    }

private:
    void issueLocked() {
        ++active_;
        const auto started = Clock::now();
        api_.getReservation(kReservationID).then([this, started](pplx::task<std::shared_ptr<Reservation>> task) {
            bool ok = false;
            try {
                const auto reservation = task.get();
                ok = reservation->status() == "in_house" && reservation->guests().size() == 3;
            } catch (const std::exception&) {
            }
            std::lock_guard lock(mutex_);
            --active_;
            measurement_->record(started, ok);
            if (budget_->another()) issueLocked();
            if (active_ == 0) idle_.notify_all();
        });
    }

    ReservationsApi api_;
    const char* label_;
    std::mutex mutex_;
    std::condition_variable idle_;
    Budget* budget_ = nullptr;
    Measurement* measurement_ = nullptr;
    std::size_t active_ = 0;
};

}  // namespace

void sizeGeneratedStylePool(std::size_t threads) { crossplat::threadpool::initialize_with_threads(threads); }

std::unique_ptr<Driver> makeGeneratedStyleDriver(const std::string& baseURL, const char* label) {
    return std::make_unique<GeneratedStyleDriver>(baseURL, label);
}

}  // namespace vlmsdk::bench
