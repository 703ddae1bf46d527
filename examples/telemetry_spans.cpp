// A telemetry adapter: the kit's operation and attempt events written as OpenTelemetry-shaped JSON spans,
// one per line, to a file a collector (or a test) can read.
//
//   telemetry_spans BASE_URL TOKEN RESERVATION_ID SPANS_FILE
//
// The program starts a trace of its own, fetches the reservation and its folio under it (each request then
// carries `traceparent`, so the service's log names the same trace), and writes one client span per
// operation with one event per attempt. Spans carry route templates, never the reservation's identifier.

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>
#include <VLMSDKCoreKit/VLMSDKOperationTelemetry.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace {

std::string nanoseconds(std::chrono::system_clock::time_point at) {
    return std::to_string(std::chrono::duration_cast<std::chrono::nanoseconds>(at.time_since_epoch()).count());
}

// Attributes as the span format writes them: integers as decimal strings.
VLMSDKJSON attribute(const std::string& key, const std::string& value) {
    return {{"key", key}, {"value", {{"stringValue", value}}}};
}
VLMSDKJSON attribute(const std::string& key, std::int64_t value) {
    return {{"key", key}, {"value", {{"intValue", std::to_string(value)}}}};
}

// Spans in flight are keyed by the operation's telemetry object, which lives until its end event returns.
// Events arrive on the caller's, the network and the main thread: one lock guards the spans and the file.
class JSONSpanWriter final : public VLMSDKTelemetryObserver {
public:
    explicit JSONSpanWriter(const std::string& path) : file_(path, std::ios::app) {}
    bool isOpen() const { return file_.is_open(); }

    void operationStarted(const VLMSDKOperationTelemetry& operation) override {
        std::lock_guard lock(mutex_);
        open_[&operation] = VLMSDKJSON::array();
    }

    void attemptEnded(const VLMSDKOperationTelemetry& operation, const VLMSDKAttemptEvent& attempt) override {
        VLMSDKJSON attributes = VLMSDKJSON::array(
            {attribute("http.request.resend_count", std::int64_t{attempt.attempt} - 1),
             attribute("http.response.status_code", std::int64_t{attempt.statusCode}),
             attribute("vlmsdk.bytes_received", static_cast<std::int64_t>(attempt.bytesReceived))});
        if (!attempt.requestID.empty()) attributes.push_back(attribute("vlmsdk.request_id", attempt.requestID));
        std::lock_guard lock(mutex_);
        open_[&operation].push_back({{"name", "attempt"},
                                     {"timeUnixNano", nanoseconds(std::chrono::system_clock::now())},
                                     {"attributes", std::move(attributes)}});
    }

    void operationEnded(const VLMSDKOperationTelemetry& operation, const VLMSDKOperationEnd& end) override {
        VLMSDKJSON span = {
            {"traceId", operation.span ? operation.span->traceID : std::string()},
            {"spanId", operation.span ? operation.span->spanID : std::string()},
            {"parentSpanId", operation.parentSpanID},
            {"name", operation.method + " " + operation.route},
            {"kind", "SPAN_KIND_CLIENT"},
            {"startTimeUnixNano", nanoseconds(operation.startedAt)},
            {"endTimeUnixNano", nanoseconds(operation.startedAt + end.duration)},
            {"attributes", VLMSDKJSON::array({attribute("vlmsdk.operation", operation.operation),
                                              attribute("http.request.method", operation.method),
                                              attribute("url.template", operation.route),
                                              attribute("http.response.status_code", std::int64_t{end.statusCode})})},
            {"status", end.error ? VLMSDKJSON{{"code", "STATUS_CODE_ERROR"}, {"message", end.error->developerMessage()}}
                                 : VLMSDKJSON{{"code", "STATUS_CODE_OK"}}},
        };
        if (!end.requestID.empty()) span["attributes"].push_back(attribute("vlmsdk.request_id", end.requestID));
        std::lock_guard lock(mutex_);
        span["events"] = std::move(open_[&operation]);
        open_.erase(&operation);
        file_ << span.dump() << '\n' << std::flush;
    }

private:
    std::mutex mutex_;
    std::ofstream file_;
    std::map<const VLMSDKOperationTelemetry*, VLMSDKJSON> open_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "usage: telemetry_spans BASE_URL TOKEN RESERVATION_ID SPANS_FILE\n";
        return 2;
    }
    auto configuration = std::make_shared<VLMSDKConfiguration>();
    configuration->setKits({std::make_shared<const VLMSDKConfigurationKit>(VLMSDKPMS::classDescriptor())});
    VLMSDKPMS::enableWithConfiguration(configuration);

    auto writer = std::make_shared<JSONSpanWriter>(argv[4]);
    if (!writer->isOpen()) {
        std::cerr << "telemetry_spans: cannot write " << argv[4] << "\n";
        return 2;
    }
    auto builder = std::make_shared<VLMSDKRequestBuilder>(argv[1]);
    builder->setAccessToken(std::string(argv[2]));
    const auto trace = VLMSDKTraceContext::newTrace();
    const VLMSDKAPIManager manager =
        VLMSDKAPIManager(builder, std::make_shared<VLMSDKHTTPRequestManager>()).withTelemetryObserver(writer).withTraceContext(trace);

    int finished = 0, failed = 0;
    const auto count = [&](const VLMErrorPtr& error) {
        ++finished;
        if (error) {
            ++failed;
            std::cerr << "telemetry_spans: " << error->developerMessage()
                      << (error->requestID() ? " (request id " + *error->requestID() + ")" : "") << "\n";
        }
    };
    fetchReservationWithID(manager, std::string(argv[3]),
                           [&](std::shared_ptr<VLMSDKReservation>, VLMErrorPtr error) { count(error); });
    fetchReservationMasterBill(manager, std::string(argv[3]),
                               [&](std::shared_ptr<VLMSDKFolio>, VLMErrorPtr error) { count(error); });
    if (!VLMSDKMainQueue::runUntil([&] { return finished == 2; }, std::chrono::seconds(30))) {
        std::cerr << "telemetry_spans: no answer in 30 s\n";
        return 1;
    }
    std::cout << "Trace " << trace.traceID << ": 2 spans written to " << argv[4] << "\n";
    return failed == 0 ? 0 : 1;
}
