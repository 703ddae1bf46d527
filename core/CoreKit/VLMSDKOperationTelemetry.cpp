#include <VLMSDKCoreKit/VLMSDKOperationTelemetry.h>

#include <VLMSDKCoreKit/VLMSDKURLResponse.h>

#include <utility>

namespace {

// An observer's failure must never cost an operation its outcome.
template <class Call>
void tell(const std::shared_ptr<VLMSDKTelemetryObserver>& observer, Call&& call) noexcept {
    if (!observer) return;
    try {
        call(*observer);
    } catch (...) {
    }
}

}  // namespace

std::shared_ptr<const VLMSDKOperationTelemetry> VLMSDKOperationTelemetry::start(
    std::string operation, std::string method, std::string route, const std::optional<VLMSDKTraceContext>& trace,
    std::shared_ptr<VLMSDKTelemetryObserver> observer) {
    auto telemetry = std::make_shared<VLMSDKOperationTelemetry>();
    telemetry->operation = std::move(operation);
    telemetry->method = std::move(method);
    telemetry->route = std::move(route);
    if (trace && trace->isValid()) {
        telemetry->span = trace->child();
        telemetry->parentSpanID = trace->spanID;
    }
    telemetry->startedAt = std::chrono::system_clock::now();
    telemetry->started = std::chrono::steady_clock::now();
    telemetry->observer = std::move(observer);
    return telemetry;
}

void VLMSDKOperationTelemetry::reportStarted() const {
    tell(observer, [&](VLMSDKTelemetryObserver& o) { o.operationStarted(*this); });
}

void VLMSDKOperationTelemetry::reportAttempt(const VLMSDKAttemptEvent& attempt) const {
    tell(observer, [&](VLMSDKTelemetryObserver& o) { o.attemptEnded(*this, attempt); });
}

void VLMSDKOperationTelemetry::reportEnded(const VLMSDKURLResponse* response, const VLMErrorPtr& error) const {
    if (!observer) return;
    tell(observer, [&](VLMSDKTelemetryObserver& o) {
        VLMSDKOperationEnd end;
        end.duration =
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started);
        end.error = error;
        if (response) {
            end.statusCode = response->statusCode();
            end.requestID = response->requestID().value_or(std::string());
        }
        o.operationEnded(*this, end);
    });
}
