#include <VLMSDKPMSKitTesting/VLMSDKScriptedRequestManager.h>

#include <VLMSDKPMSKitTesting/VLMSDKFixture.h>

#include "Private/VLMSDKDelayedReplies.h"


#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

#include <cstdio>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

using vlmsdk::detail::VLMSDKDelayedReplies;
using Reason = VLMSDKDelayedReplies::Reason;

namespace {

constexpr const char* kName = "VLMSDKScriptedRequestManager";
constexpr std::size_t kShownBodyLength = 300;

struct Expectation {
    VLMSDKScriptedRequest request;
    VLMSDKScriptedReply reply;
    bool reported = false;  // as unmet, by verify()
};

// The three values a reply handler receives.
struct Outcome {
    std::shared_ptr<const VLMSDKJSONReply> json;
    std::shared_ptr<const VLMSDKURLResponse> response;
    VLMErrorPtr error;
};

std::string describe(const VLMSDKRequest* request) {
    return request ? request->method() + " " + request->redactedURL() : std::string("A request");
}

VLMErrorPtr networkError(VLMErrorCode code, std::string message) {
    return VLMError::errorWithCode(code, kVLMSDKNetworkErrorDomain, std::move(message), __func__, __FILE__);
}

// The scripted reply as the HTTP request manager would hand it over, body read by the same reader.
Outcome replyOutcome(const VLMSDKRequest& request, const VLMSDKScriptedReply& reply) {
    const std::string what = describe(&request);
    switch (reply.fault) {
    case VLMSDKScriptedReply::Fault::DroppedConnection:
        return {nullptr, nullptr,
                networkError(VLMErrorCode::Transport,
                             what + " failed: the server closed the connection without answering" +
                                 (request.method() == "GET" ? "" : ". The service may have acted on it; it was not sent again"))};
    case VLMSDKScriptedReply::Fault::Timeout:
        return {nullptr, nullptr, networkError(VLMErrorCode::Timeout, what + " failed: timed out")};
    case VLMSDKScriptedReply::Fault::None: break;
    }
    Outcome outcome;
    outcome.response = std::make_shared<const VLMSDKURLResponse>(request.redactedURL(), reply.status, reply.headers);
    if (reply.body.find_first_not_of(" \t\r\n") == std::string::npos) return outcome;
    auto failure = VLMSDKJSONReply::ParseFailure::None;
    if (auto json = VLMSDKJSONReply::parse(reply.body, &failure)) {
        outcome.json = std::move(json);
        return outcome;
    }
    const std::string about = "The reply to " + what + " (HTTP " + std::to_string(reply.status) + ")";
    auto details = VLMError::errorWithCode(VLMErrorCode::InvalidResponse, kVLMSDKResponseErrorDomain,
                                           failure == VLMSDKJSONReply::ParseFailure::TooDeep
                                               ? about + " is nested deeper than " +
                                                     std::to_string(kVLMSDKMaximumJSONDepth) + " levels."
                                               : about + " is not JSON.",
                                           __func__, __FILE__)
                       ->details();
    details.httpStatusCode = reply.status;
    outcome.error = std::make_shared<const VLMError>(std::move(details));
    return outcome;
}

// "GET guest/reservations/rsv_1?x=1, body {...}": a request as the failure messages show it.
std::string shown(const VLMSDKRequest& request) {
    std::string text = request.method() + " " + request.path();
    if (const auto query = request.url().find('?'); query != std::string::npos) text += request.url().substr(query);
    if (!request.body()) return text + ", no body";
    std::string body = *request.body();
    if (body.size() > kShownBodyLength) body = body.substr(0, kShownBodyLength) + "...";
    return text + ", body " + body;
}

std::string listed(const std::deque<Expectation>& expectations, bool onlyUnreported) {
    std::string text;
    std::size_t number = 0;
    for (const Expectation& expectation : expectations) {
        ++number;
        if (onlyUnreported && expectation.reported) continue;
        text += "\n  " + std::to_string(number) + ". " + expectation.request.description();
    }
    return text;
}

void writeToStandardError(const std::string& message) {
    std::fprintf(stderr, "%s\n", message.c_str());
    std::fflush(stderr);
}

}  // namespace

struct VLMSDKScriptedRequestManager::Core {
    mutable std::mutex mutex;
    std::deque<Expectation> expected;
    std::vector<std::string> failures;
    FailureReporter reporter = writeToStandardError;
    std::size_t outstanding = 0;
    bool shutDown = false;

    void report(std::string message) {
        FailureReporter current;
        {
            std::lock_guard lock(mutex);
            failures.push_back(message);
            current = reporter;
        }
        if (current) current(message);
    }

    // A handler has run: one fewer outstanding, and a pump waiting on the main thread looks again.
    void finished() {
        {
            std::lock_guard lock(mutex);
            --outstanding;
        }
        if (!VLMSDKMainQueue::isMainThread()) VLMSDKMainQueue::async([] {});
    }

    Reason reasonNow(const std::shared_ptr<VLMSDKCancellation>& cancellation) const {
        {
            std::lock_guard lock(mutex);
            if (shutDown) return Reason::ShutDown;
        }
        return cancellation && cancellation->isCancelled() ? Reason::Cancelled : Reason::Due;
    }
};

// One request's answer: runs its handler once, with the reply, or the error it was given, or the cancelled error.
struct VLMSDKScriptedRequestManager::Delivery {
    std::shared_ptr<Core> core;
    std::shared_ptr<const VLMSDKRequest> request;
    std::optional<VLMSDKScriptedReply> reply;  // absent: answered with `error`
    VLMErrorPtr error;
    VLMSDKDataTaskCompletion completion;

    void operator()(Reason reason) {
        struct Finish {
            Core& core;
            ~Finish() { core.finished(); }
        } finish{*core};
        Outcome outcome;
        const std::string what = describe(request.get());
        if (reason == Reason::Cancelled) {
            // A matched request has reached the scripted service: a POST or PATCH may have been acted on.
            outcome.error = VLMSDKCancellation::cancelledError(what, reply && request->method() != "GET");
        } else if (reason == Reason::ShutDown) {
            outcome.error = networkError(VLMErrorCode::Cancelled, what + " was cancelled: the request manager shut down.");
        } else if (reply) {
            outcome = replyOutcome(*request, *reply);
        } else {
            outcome.error = error;
        }
        if (completion) completion(std::move(outcome.json), std::move(outcome.response), std::move(outcome.error));
    }
};

VLMSDKScriptedRequestManager::VLMSDKScriptedRequestManager()
    : core_(std::make_shared<Core>()), delayed_(std::make_unique<VLMSDKDelayedReplies>()) {}

VLMSDKScriptedRequestManager::~VLMSDKScriptedRequestManager() {
    std::string unmet;
    {
        std::lock_guard lock(core_->mutex);
        core_->shutDown = true;
        unmet = listed(core_->expected, true);
    }
    if (!unmet.empty()) core_->report(std::string(kName) + ": expected requests never came:" + unmet);
    delayed_.reset();
}

void VLMSDKScriptedRequestManager::expect(VLMSDKScriptedRequest request, VLMSDKScriptedReply reply) {
    std::lock_guard lock(core_->mutex);
    core_->expected.push_back({std::move(request), std::move(reply)});
}

bool VLMSDKScriptedRequestManager::expectFixture(const std::filesystem::path& file, std::string* error) {
    std::string problem;
    std::optional<VLMSDKFixture> fixture = VLMSDKFixture::load(file, &problem);
    if (fixture && !fixture->request) {
        problem = file.string() + ": names no request; give it one with expect(request, fixture.reply)";
    }
    if (!problem.empty()) {
        if (error) *error = problem;
        core_->report(std::string(kName) + ": " + problem);
        return false;
    }
    expect(std::move(*fixture->request), std::move(fixture->reply));
    return true;
}

void VLMSDKScriptedRequestManager::setFailureReporter(FailureReporter reporter) {
    std::lock_guard lock(core_->mutex);
    core_->reporter = std::move(reporter);
}

std::vector<std::string> VLMSDKScriptedRequestManager::failures() const {
    std::lock_guard lock(core_->mutex);
    return core_->failures;
}

bool VLMSDKScriptedRequestManager::verify() {
    std::string unmet;
    {
        std::lock_guard lock(core_->mutex);
        unmet = listed(core_->expected, true);
        for (Expectation& expectation : core_->expected) expectation.reported = true;
    }
    if (!unmet.empty()) core_->report(std::string(kName) + ": expected requests have not come:" + unmet);
    std::lock_guard lock(core_->mutex);
    return core_->failures.empty() && core_->expected.empty();
}

std::size_t VLMSDKScriptedRequestManager::outstandingCount() const {
    std::lock_guard lock(core_->mutex);
    return core_->outstanding;
}

bool VLMSDKScriptedRequestManager::runUntilAnswered(std::chrono::milliseconds limit) {
    return VLMSDKMainQueue::runUntil(
        [this] { return outstandingCount() == 0 && VLMSDKMainQueue::pendingCount() == 0; }, limit);
}

void VLMSDKScriptedRequestManager::performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                                          VLMSDKDataTaskCompletion completion) {
    performControlledRequest(std::move(request), VLMSDKRequestControl{}, std::move(completion));
}

void VLMSDKScriptedRequestManager::performControlledRequest(std::shared_ptr<const VLMSDKRequest> request,
                                                            const VLMSDKRequestControl& control,
                                                            VLMSDKDataTaskCompletion completion) {
    Delivery delivery{core_, request, std::nullopt, nullptr, std::move(completion)};
    std::string failure;
    {
        std::lock_guard lock(core_->mutex);
        ++core_->outstanding;
        if (!request) {
            delivery.error = networkError(VLMErrorCode::InvalidRequest, "No request was given.");
        } else if (request->buildError()) {
            delivery.error = request->buildError();
        } else if (!control.cancellation || !control.cancellation->isCancelled()) {
            // The matcher runs under the lock, so that two requests never take the same expectation.
            std::string why;
            if (!core_->expected.empty() && core_->expected.front().request.matches(*request, &why)) {
                delivery.reply = std::move(core_->expected.front().reply);
                core_->expected.pop_front();
            } else {
                failure = std::string(kName) + ": unexpected request " + shown(*request);
                if (core_->expected.empty()) {
                    failure += "\nexpected: no more requests";
                } else {
                    failure += "\nthe next expected request differs: " + why;
                    failure += "\nexpected, in order:" + listed(core_->expected, false);
                }
                delivery.error = networkError(VLMErrorCode::Transport,
                                              describe(request.get()) + " was not expected by the " + kName + ".");
            }
        }
    }
    if (!failure.empty()) core_->report(std::move(failure));

    if (delivery.reply && delivery.reply->delay.count() > 0) {
        const auto delay = delivery.reply->delay;
        delayed_->schedule(delay, control.cancellation, std::move(delivery));
        return;
    }
    if (control.handlerOffMainQueue) {
        // The caller may be blocking the main thread: answer here.
        delivery(core_->reasonNow(control.cancellation));
        return;
    }
    // As the HTTP request manager does when the host pumps: the answer comes in the next pump, never inside this call.
    VLMSDKMainQueue::async([delivery = std::move(delivery), cancellation = control.cancellation]() mutable {
        delivery(delivery.core->reasonNow(cancellation));
    });
}
