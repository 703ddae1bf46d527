#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutbox.h>

#include <VLMSDKPMSKit/Private/Outbox/VLMSDKOutboxRoute.h>
#include <VLMSDKPMSKit/Private/Outbox/VLMSDKOutboxStore.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKPayForReservationRequestInfo.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKUpdateReservationMasterBillRequestInfo.h>

#include <VLMSDKCoreKit/VLMSDKAPIManagerResponseValidator.h>
#include <VLMSDKCoreKit/VLMSDKCancellation.h>
#include <VLMSDKCoreKit/VLMSDKMainQueue.h>
#include <VLMSDKCoreKit/VLMSDKReplyExpectation.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <utility>

using vlmsdk::detail::VLMSDKOutboxRoute;
using vlmsdk::detail::VLMSDKOutboxStore;
using Clock = std::chrono::system_clock;

namespace {

std::int64_t millisecondsSinceEpoch(Clock::time_point at) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(at.time_since_epoch()).count();
}

VLMErrorPtr refusal(const std::string& argument, const std::string& why) {
    return VLMError::requiredArgumentErrorWithName(argument, why + "; nothing was queued", "enqueue", __FILE__);
}

// Statuses after which the same request, under the same key, may well succeed later: 401 too, since the
// credentials may be refreshed (or the guest sign in again) before the item's attempts run out.
bool isTransient(long status) {
    return status == 401 || status == 408 || status == 425 || status == 429 || status >= 500;
}

}  // namespace

/// The sender: one thread that starts due items, settles finished attempts and hands outcomes over. What the
/// request completions and the host's calls share sits in `State`, which outlives the outbox while a request
/// is still on the wire.
class VLMSDKOutbox::Impl {
public:
    struct Finished {
        std::int64_t id;
        std::shared_ptr<const VLMSDKJSONReply> json;
        std::shared_ptr<const VLMSDKURLResponse> response;
        VLMErrorPtr error;
    };
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool stopping = false;
        bool suspended = false;
        bool woken = true;  // the first pass looks at what an earlier process left
        std::deque<Finished> finished;
        std::deque<std::int64_t> acknowledgements;
        std::map<std::int64_t, std::pair<VLMSDKOutboxItem, std::shared_ptr<const VLMSDKOperationTelemetry>>> inFlight;
        std::set<std::int64_t> handedOver;  // in this process
        OutcomeHandler handler;
        bool acknowledgesAfterHandler = true;
        bool idle = false;

        void wake() {
            {
                std::lock_guard lock(mutex);
                woken = true;
                idle = false;
            }
            changed.notify_all();
        }
    };

    Impl(VLMSDKAPIManager manager, VLMSDKOutboxOptions options, std::unique_ptr<VLMSDKOutboxStore> store,
         std::string recovery)
        : manager_(std::move(manager)), options_(std::move(options)), store_(std::move(store)),
          recovery_(std::move(recovery)), cancellation_(VLMSDKCancellation::make()),
          sending_(manager_.withCancellation(cancellation_).withHandlerOffMainQueue()),
          random_(std::random_device{}()) {
        state_->suspended = options_.suspended;  // before the first pass, which sends what the file holds
        thread_ = std::thread([this] { run(); });
    }

    ~Impl() {
        {
            std::lock_guard lock(state_->mutex);
            state_->stopping = true;
        }
        state_->changed.notify_all();
        thread_.join();
        // Whatever is still on the wire is answered as cancelled and ignored: its item stays pending, and the next
        // open sends it again under the same key.
        cancellation_->cancel();
    }

    const VLMSDKOutboxLimits& limits(VLMSDKOutboxOperation operation) const {
        switch (operation) {
        case VLMSDKOutboxOperation::Confirm: return options_.confirm;
        case VLMSDKOutboxOperation::MobileCheckin: return options_.mobileCheckin;
        case VLMSDKOutboxOperation::MobileCheckout: return options_.mobileCheckout;
        case VLMSDKOutboxOperation::Pay: return options_.pay;
        case VLMSDKOutboxOperation::Charge: return options_.charge;
        }
        return options_.charge;
    }

    std::optional<std::int64_t> enqueue(VLMSDKOutboxOperation operation, const std::string& reservationID,
                                        VLMSDKJSON parameters, std::optional<double> amount, VLMErrorPtr* error) {
        VLMErrorPtr ignored;
        if (!error) error = &ignored;
        const char* name = VLMSDKOutboxOperationName(operation);
        if (!limits(operation).allowed) {
            *error = refusal(name, std::string("the outbox does not take '") + name +
                                       "' items (VLMSDKOutboxOptions::" + name + ".allowed)");
            return std::nullopt;
        }
        if (reservationID.empty() || reservationID.find('/') != std::string::npos) {
            *error = refusal("reservationID", "the identifier '" + reservationID + "' is empty or holds '/'");
            return std::nullopt;
        }
        VLMSDKOutboxItem item;
        item.operation = operation;
        item.reservationID = reservationID;
        item.parameters = std::move(parameters);
        // Made now and stored with the item: every attempt, in this process or a later one, carries it.
        item.idempotencyKey = "obx-" + VLMSDKTraceContext::newTrace().traceID;
        auto id = store_->insert(item, amount, options_.maximumPendingPayment, error);
        if (id) state_->wake();
        return id;
    }

    void run() {
        std::unique_lock lock(state_->mutex);
        for (;;) {
            const auto due = nextDue_;
            const auto ready = [&] {
                return state_->stopping || state_->woken || !state_->finished.empty() ||
                       !state_->acknowledgements.empty();
            };
            if (due) state_->changed.wait_until(lock, *due, ready);
            else state_->changed.wait(lock, ready);
            if (state_->stopping) {
                // Acknowledgements already made are kept: their outcomes must not come again after the next open.
                auto acknowledgements = std::move(state_->acknowledgements);
                state_->acknowledgements.clear();
                lock.unlock();
                for (const auto id : acknowledgements) store_->acknowledge(id);
                return;
            }
            state_->woken = false;
            state_->idle = false;  // until this pass has done what it took
            auto finished = std::move(state_->finished);
            auto acknowledgements = std::move(state_->acknowledgements);
            state_->finished.clear();
            state_->acknowledgements.clear();
            const bool suspended = state_->suspended;
            lock.unlock();
            for (const auto id : acknowledgements) store_->acknowledge(id);
            for (auto& attempt : finished) settle(std::move(attempt));
            if (!suspended) startDueItems();
            handOverOutcomes();
            lock.lock();
            // Idle: nothing on the wire and nothing that could go now (all ended, or sending is suspended).
            state_->idle = state_->inFlight.empty() && state_->finished.empty() &&
                           (state_->suspended || (!nextDue_ && pendingCount_ == 0));
            state_->changed.notify_all();
        }
    }

    // Sends the head of each reservation's line that is due, up to the in-flight cap; ends expired ones.
    void startDueItems() {
        nextDue_.reset();
        std::set<std::string> lines;  // reservations whose head was seen
        const auto pending = store_->pendingItems();
        // Read after the items: an item enqueued while they were read is never younger than no time at all.
        const auto now = Clock::now();
        pendingCount_ = pending.size();
        for (const auto& item : pending) {
            if (!lines.insert(item.reservationID).second) continue;  // waits for an earlier item of its reservation
            {
                std::lock_guard lock(state_->mutex);
                if (state_->inFlight.count(item.id)) continue;
                if (state_->inFlight.size() >= std::max(1u, options_.maximumInFlight)) break;
            }
            // An item sent before is not expired: the service may have acted on it, and its key finds out.
            if (item.attempts == 0 && now - item.enqueuedAt >= limits(item.operation).maximumAge) {
                end(item, VLMSDKOutboxOutcome::Kind::Expired, {},
                    VLMError::errorWithCode(VLMErrorCode::Timeout, "com.velmora.sdk.outbox",
                                            std::string("The ") + VLMSDKOutboxOperationName(item.operation) +
                                                " item for reservation '" + item.reservationID +
                                                "' expired before it could be sent; it was never sent.",
                                            __func__, __FILE__));
                continue;
            }
            if (item.nextAttemptAt && *item.nextAttemptAt > now) {
                if (!nextDue_ || *item.nextAttemptAt < *nextDue_) nextDue_ = *item.nextAttemptAt;
                continue;
            }
            if (!store_->beginAttempt(item.id)) continue;  // cancelled meanwhile
            VLMSDKOutboxItem sent = item;
            ++sent.attempts;
            send(std::move(sent));
        }
    }

    void send(VLMSDKOutboxItem item) {
        const VLMSDKOutboxRoute& route = VLMSDKOutboxRoute::of(item.operation);
        const std::string path = route.path(item.reservationID);
        const std::optional<VLMSDKJSON> body =
            item.parameters.is_null() ? std::nullopt : std::optional<VLMSDKJSON>(item.parameters);
        const auto& builder = sending_.requestBuilder();
        std::shared_ptr<const VLMSDKRequest> request =
            std::string_view(route.method) == "PATCH" ? builder->PATCHWithPath(path, body) : builder->POSTWithPath(path, body);
        request = request->withHeader("Idempotency-Key", item.idempotencyKey);
        VLMSDKRequestControl control = sending_.requestControl();
        if (route.replyNamesReservation) {
            control.expectedReply =
                std::make_shared<const VLMSDKReplyExpectation>(VLMSDKReplyExpectation{"reservation", "id", item.reservationID});
        }
        if (sending_.telemetryObserver() || sending_.traceContext()) {
            control.telemetry = VLMSDKOperationTelemetry::start(route.operation, route.method, route.path("{id}"),
                                                                sending_.traceContext(), sending_.telemetryObserver());
            if (control.telemetry->span)
                request = request->withHeader("traceparent", control.telemetry->span->traceparent());
            control.telemetry->reportStarted();
        }
        const std::int64_t id = item.id;
        {
            std::lock_guard lock(state_->mutex);
            state_->inFlight[id] = {std::move(item), control.telemetry};
        }
        sending_.requestManager()->performControlledRequest(
            std::move(request), control,
            [state = state_, id](std::shared_ptr<const VLMSDKJSONReply> json,
                                 std::shared_ptr<const VLMSDKURLResponse> response, VLMErrorPtr error) {
                {
                    std::lock_guard lock(state->mutex);
                    state->finished.push_back({id, std::move(json), std::move(response), std::move(error)});
                }
                state->changed.notify_all();
            });
    }

    // One attempt's reply: the item ends, or waits out a backoff to go again under the same key.
    void settle(Finished attempt) {
        VLMSDKOutboxItem item;
        std::shared_ptr<const VLMSDKOperationTelemetry> telemetry;
        {
            std::lock_guard lock(state_->mutex);
            auto found = state_->inFlight.find(attempt.id);
            if (found == state_->inFlight.end()) return;
            item = std::move(found->second.first);
            telemetry = std::move(found->second.second);
            state_->inFlight.erase(found);
        }
        const VLMSDKOutboxRoute& route = VLMSDKOutboxRoute::of(item.operation);
        VLMSDKAPIManagerResponseValidator validator(attempt.response, attempt.json, attempt.error);
        if (!route.requiredKeys.empty()) validator.setRequiredJSONKeys(route.requiredKeys);
        // Checked without the validator's log line: a failed attempt here is routine, and its item goes again.
        VLMErrorPtr error = validator.failure();
        bool valid = error == nullptr;
        if (valid && attempt.json && route.replyNamesReservation && !sending_.requestManager()->checksExpectedReplies()) {
            const VLMSDKReplyExpectation expected{"reservation", "id", item.reservationID};
            if (expected.isContradictedBy(*attempt.json)) {
                valid = false;
                error = expected.mismatchError(*attempt.json, std::string(route.method) + " " + route.path(item.reservationID), false);
            }
        }
        if (error && attempt.response) {
            if (auto requestID = attempt.response->requestID())
                error = VLMError::withRequestID(error, std::move(*requestID));
        }
        if (telemetry) telemetry->reportEnded(attempt.response.get(), error);
        if (valid) {
            std::string reply;
            try {
                if (attempt.json) reply = attempt.json->json().dump(-1, ' ', false, VLMSDKJSON::error_handler_t::replace);
            } catch (const std::exception&) {
            }
            end(item, VLMSDKOutboxOutcome::Kind::Succeeded, reply, nullptr);
            return;
        }
        const long status = attempt.response ? attempt.response->statusCode() : 0;
        const VLMErrorCode code = error ? error->code() : VLMErrorCode::Unknown;
        // Ended for good: the service refused it, or it could never be sent as it is. Everything else (no
        // answer, a busy service, a reply about something else) may go again: the key makes that safe.
        const bool final = code == VLMErrorCode::InvalidRequest || code == VLMErrorCode::InvalidResponse ||
                           code == VLMErrorCode::Mapping ||
                           (status != 0 && code != VLMErrorCode::ReplyMismatch && !isTransient(status));
        {
            std::lock_guard lock(state_->mutex);
            if (state_->stopping) return;  // a cancel at shutdown: the item stays pending for the next open
        }
        if (final || item.attempts >= std::max(1u, limits(item.operation).maximumAttempts)) {
            end(item, VLMSDKOutboxOutcome::Kind::Failed, {}, error);
            return;
        }
        store_->backOff(item.id, millisecondsSinceEpoch(Clock::now() + backoff(item.attempts)),
                        error ? error->developerMessage() : std::string());
    }

    // Equal jitter: half the bound plus a random half, so that no wait is near zero while the network is down.
    std::chrono::milliseconds backoff(unsigned attempts) {
        const auto& retry = options_.retry;
        auto bound = std::max<std::chrono::milliseconds>(retry.initialBackoff, std::chrono::milliseconds(1));
        for (unsigned i = 1; i < attempts && bound < retry.maximumBackoff; ++i) bound *= 2;
        bound = std::min(bound, std::max(retry.maximumBackoff, std::chrono::milliseconds(1)));
        std::uniform_int_distribution<long long> half(0, bound.count() / 2);
        return std::chrono::milliseconds(bound.count() - bound.count() / 2 + half(random_));
    }

    void end(const VLMSDKOutboxItem& item, VLMSDKOutboxOutcome::Kind kind, const std::string& reply,
             const VLMErrorPtr& error) {
        store_->end(item.id, kind, reply, error);
    }

    // Every outcome in the file not yet handed over in this process goes to the main thread, in item order.
    void handOverOutcomes() {
        {
            std::lock_guard lock(state_->mutex);
            if (!state_->handler) return;
        }
        for (auto& outcome : store_->outcomes()) {
            {
                std::lock_guard lock(state_->mutex);
                if (!state_->handedOver.insert(outcome.item.id).second) continue;
            }
            store_->markHandedOver(outcome.item.id);
            VLMSDKMainQueue::async([state = state_, outcome = std::move(outcome)] {
                OutcomeHandler handler;
                bool acknowledge = false;
                {
                    std::lock_guard lock(state->mutex);
                    handler = state->handler;
                    acknowledge = state->acknowledgesAfterHandler;
                    // No handler any more: handed over again when one is set.
                    if (!handler) state->handedOver.erase(outcome.item.id);
                }
                if (!handler) return;
                try {
                    handler(outcome);
                } catch (...) {
                    return;  // not acknowledged: handed over again after the next open
                }
                if (!acknowledge) return;
                {
                    std::lock_guard lock(state->mutex);
                    state->acknowledgements.push_back(outcome.item.id);
                }
                state->changed.notify_all();
            });
        }
    }

    VLMSDKAPIManager manager_;
    VLMSDKOutboxOptions options_;
    std::unique_ptr<VLMSDKOutboxStore> store_;
    std::string recovery_;
    std::shared_ptr<VLMSDKCancellation> cancellation_;
    VLMSDKAPIManager sending_;
    std::shared_ptr<State> state_ = std::make_shared<State>();
    // The sender thread's own.
    std::optional<Clock::time_point> nextDue_;
    std::size_t pendingCount_ = 1;
    std::mt19937_64 random_;
    std::thread thread_;
};

std::shared_ptr<VLMSDKOutbox> VLMSDKOutbox::open(VLMSDKAPIManager manager, VLMSDKOutboxOptions options,
                                                 VLMErrorPtr* error) {
    VLMErrorPtr ignored;
    if (!error) error = &ignored;
    if (options.path.empty()) {
        *error = VLMError::requiredArgumentErrorWithName("path", "the outbox needs a file", __func__, __FILE__);
        return nullptr;
    }
    std::string recovery;
    auto store = VLMSDKOutboxStore::open(options.path, &recovery, error);
    if (!store) return nullptr;
    return std::shared_ptr<VLMSDKOutbox>(new VLMSDKOutbox(
        std::make_unique<Impl>(std::move(manager), std::move(options), std::move(store), std::move(recovery))));
}

VLMSDKOutbox::VLMSDKOutbox(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
VLMSDKOutbox::~VLMSDKOutbox() = default;

const std::string& VLMSDKOutbox::recovery() const { return impl_->recovery_; }

std::optional<std::int64_t> VLMSDKOutbox::enqueueConfirm(const std::string& reservationID,
                                                         bool notifyAboutMobileCheckinOpen, VLMErrorPtr* error) {
    return impl_->enqueue(VLMSDKOutboxOperation::Confirm, reservationID, VLMSDKJSON{{"notify_me", notifyAboutMobileCheckinOpen}},
                          std::nullopt, error);
}

std::optional<std::int64_t> VLMSDKOutbox::enqueueMobileCheckin(const std::string& reservationID, VLMErrorPtr* error) {
    return impl_->enqueue(VLMSDKOutboxOperation::MobileCheckin, reservationID, nullptr, std::nullopt, error);
}

std::optional<std::int64_t> VLMSDKOutbox::enqueueMobileCheckout(const std::string& reservationID, VLMErrorPtr* error) {
    return impl_->enqueue(VLMSDKOutboxOperation::MobileCheckout, reservationID, nullptr, std::nullopt, error);
}

std::optional<std::int64_t> VLMSDKOutbox::enqueuePay(const std::string& reservationID, const std::string& cardID,
                                                     double amount, const std::string& currency, VLMErrorPtr* error) {
    // The direct operation's own checks, so that a queued payment is refused for what a direct one would be.
    VLMSDKPayForReservationRequestInfo request;
    request.setReservationID(reservationID);
    request.setCreditCardID(cardID);
    request.setAmount(amount);
    request.setCurrencyCode(currency);
    VLMErrorPtr invalid;
    if (!request.isValid(&invalid) || !(amount > 0)) {
        if (error) *error = invalid ? invalid : refusal("amount", "a queued payment must be more than zero");
        return std::nullopt;
    }
    return impl_->enqueue(VLMSDKOutboxOperation::Pay, reservationID, request.JSONRepresentation(), amount, error);
}

std::optional<std::int64_t> VLMSDKOutbox::enqueueCharge(const std::string& reservationID,
                                                        const std::vector<std::pair<std::string, long>>& items,
                                                        VLMErrorPtr* error) {
    VLMSDKUpdateReservationMasterBillRequestInfo request;
    request.setReservationID(reservationID);
    VLMSDKUpdateReservationMasterBillRequestInfo::Deliverables deliverables;
    for (const auto& [itemID, quantity] : items) {
        if (itemID.empty() || quantity < 1) {
            if (error) *error = refusal("items", "each charged item needs an id and a quantity of at least 1");
            return std::nullopt;
        }
        deliverables.push_back(std::make_shared<VLMSDKDeliverableCountableItem>(itemID, static_cast<double>(quantity)));
    }
    request.setVelmoraDeliverables(std::move(deliverables));
    VLMErrorPtr invalid;
    if (!request.isValid(&invalid)) {
        if (error) *error = invalid;
        return std::nullopt;
    }
    return impl_->enqueue(VLMSDKOutboxOperation::Charge, reservationID, request.JSONRepresentation(), std::nullopt, error);
}

void VLMSDKOutbox::setOutcomeHandler(OutcomeHandler handler) {
    {
        std::lock_guard lock(impl_->state_->mutex);
        impl_->state_->handler = std::move(handler);
    }
    impl_->state_->wake();
}

bool VLMSDKOutbox::acknowledge(std::int64_t itemID) { return impl_->store_->acknowledge(itemID); }

void VLMSDKOutbox::setAcknowledgesAfterHandler(bool automatic) {
    std::lock_guard lock(impl_->state_->mutex);
    impl_->state_->acknowledgesAfterHandler = automatic;
}

bool VLMSDKOutbox::cancel(std::int64_t itemID) {
    if (!impl_->store_->cancelUnsent(itemID)) return false;
    impl_->state_->wake();
    return true;
}

std::vector<VLMSDKOutboxItem> VLMSDKOutbox::pending() const { return impl_->store_->pendingItems(); }

std::vector<VLMSDKOutboxOutcome> VLMSDKOutbox::unacknowledged() const { return impl_->store_->outcomes(); }

void VLMSDKOutbox::networkRestored() {
    impl_->store_->clearBackoffs();
    impl_->state_->wake();
}

void VLMSDKOutbox::suspend() {
    std::lock_guard lock(impl_->state_->mutex);
    impl_->state_->suspended = true;
}

void VLMSDKOutbox::resume() {
    {
        std::lock_guard lock(impl_->state_->mutex);
        impl_->state_->suspended = false;
    }
    impl_->state_->wake();
}

bool VLMSDKOutbox::waitUntilIdle(std::chrono::milliseconds timeout) const {
    auto& state = *impl_->state_;
    std::unique_lock lock(state.mutex);
    return state.changed.wait_for(lock, timeout, [&] {
        return state.idle && !state.woken && state.finished.empty() && state.acknowledgements.empty();
    });
}
