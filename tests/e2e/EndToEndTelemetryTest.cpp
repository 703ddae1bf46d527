// Telemetry against the local service: one start and one end per operation, one event per attempt, route
// templates only, the service's request id in errors, and the host's trace id in the service's own log.
#include "EndToEndSupport.h"

#include <pmssandbox/Fault.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using namespace e2e;
using pmssandbox::Fault;

namespace {

struct Event {
    std::string kind;  // "start", "attempt", "end"
    std::string operation, method, route, traceID, spanID, parentSpanID, requestID;
    long status = 0;
    unsigned attempt = 0;
    VLMErrorPtr error;
};

// Events are told on the calling, network and main threads: kept under a lock.
class RecordingObserver final : public VLMSDKTelemetryObserver {
public:
    void operationStarted(const VLMSDKOperationTelemetry& operation) override { add(operation, kind("start")); }
    void attemptEnded(const VLMSDKOperationTelemetry& operation, const VLMSDKAttemptEvent& attempt) override {
        Event event = kind("attempt");
        event.status = attempt.statusCode;
        event.attempt = attempt.attempt;
        event.requestID = attempt.requestID;
        add(operation, std::move(event));
    }
    void operationEnded(const VLMSDKOperationTelemetry& operation, const VLMSDKOperationEnd& end) override {
        Event event = kind("end");
        event.status = end.statusCode;
        event.error = end.error;
        event.requestID = end.requestID;
        add(operation, std::move(event));
    }
    std::vector<Event> events() const {
        std::lock_guard lock(mutex_);
        return events_;
    }

private:
    static Event kind(const char* name) {
        Event event;
        event.kind = name;
        return event;
    }
    void add(const VLMSDKOperationTelemetry& operation, Event event) {
        event.operation = operation.operation;
        event.method = operation.method;
        event.route = operation.route;
        if (operation.span) event.traceID = operation.span->traceID, event.spanID = operation.span->spanID;
        event.parentSpanID = operation.parentSpanID;
        std::lock_guard lock(mutex_);
        events_.push_back(std::move(event));
    }
    mutable std::mutex mutex_;
    std::vector<Event> events_;
};

}  // namespace

E2E_SUITE_ON_EACH_TRANSPORT(EndToEndTelemetryTest);

TEST_P(EndToEndTelemetryTest, EachOperationIsOneSpanWithAnEventPerAttemptAndTheServiceLogsItsTrace) {
    std::mutex mutex;
    std::vector<std::string> serviceLog;
    pmssandbox::SandboxConfig config;
    config.seedFile = PMS_SANDBOX_SEED_FILE;
    config.token = kSandboxToken;
    config.requestLine = [&](const std::string& line) {
        std::lock_guard lock(mutex);
        serviceLog.push_back(line);
    };
    pmssandbox::SandboxServer sandbox(config);
    ASSERT_TRUE(sandbox.start()) << sandbox.lastError();
    Client client(sandbox.baseUrl(), kSandboxToken, transport(), VLMSDKHTTPRequestManagerOptions::Mode::Automatic,
                  {3, 1ms, 5ms});
    // The first fetch is answered 503 once and then sent again by the retry policy: two attempts.
    sandbox.addFault(Fault::forceStatus(503).matching("GET", "guest/reservations/rsv_0003").times(1));

    const auto host = VLMSDKTraceContext::newTrace();
    auto observer = std::make_shared<RecordingObserver>();
    const VLMSDKAPIManager traced = client.api().withTelemetryObserver(observer).withTraceContext(host);
    DeliveryLog log;
    fetch("rsv_0003")(traced, log);
    ASSERT_TRUE(log.waitFor(1));
    folio("rsv_0003")(traced, log);
    ASSERT_TRUE(log.waitFor(2));
    fetch("rsv_9999")(traced, log);  // no such reservation: 404
    ASSERT_TRUE(log.waitFor(3));
    fetch("rsv_0001")(client.api(), log);  // neither observer nor trace context
    ASSERT_TRUE(log.waitFor(4));
    client.settle();
    sandbox.stop();  // every log line written

    const auto events = observer->events();
    std::map<std::string, std::vector<Event>> byOperation;  // by span: each operation has its own
    for (const Event& event : events) byOperation[event.spanID].push_back(event);
    ASSERT_EQ(byOperation.size(), 3u);
    std::vector<std::string> shapes;  // "operation route: start attempt(status) ... end(status)"
    for (const auto& [identity, list] : byOperation) {
        std::string shape = list.front().operation + " " + list.front().route + ":";
        for (const Event& event : list) {
            shape += " " + event.kind;
            if (event.kind != "start") shape += "(" + std::to_string(event.status) + ")";
            EXPECT_EQ(event.traceID, host.traceID);
            EXPECT_EQ(event.parentSpanID, host.spanID);
            EXPECT_NE(event.spanID, host.spanID);
        }
        shapes.push_back(shape);
    }
    std::sort(shapes.begin(), shapes.end());
    EXPECT_EQ(shapes, (std::vector<std::string>{
                          "fetchMasterBill guest/reservations/{id}/folio: start attempt(200) end(200)",
                          "fetchReservation guest/reservations/{id}: start attempt(404) end(404)",
                          "fetchReservation guest/reservations/{id}: start attempt(503) attempt(200) end(200)"}));
    // A guest's identifiers never reach telemetry.
    for (const Event& event : events) EXPECT_EQ(event.route.find("rsv_"), std::string::npos) << event.route;

    // The failure carries the service's request id, the same one its attempt reported.
    const VLMErrorPtr notFound = log.at(2).error;
    ASSERT_TRUE(notFound);
    ASSERT_TRUE(notFound->requestID());
    EXPECT_EQ(notFound->requestID()->rfind("req_", 0), 0u) << *notFound->requestID();
    const auto attemptOf404 = std::find_if(events.begin(), events.end(),
                                           [](const Event& e) { return e.kind == "attempt" && e.status == 404; });
    ASSERT_NE(attemptOf404, events.end());
    EXPECT_EQ(attemptOf404->requestID, *notFound->requestID());

    // The service's log joins the host's trace: every traced request (four: one retried) names it; the
    // untraced one names none.
    std::size_t traced_lines = 0;
    for (const std::string& line : serviceLog) {
        if (line.find(" trace " + host.traceID) != std::string::npos) ++traced_lines;
        else EXPECT_EQ(line.find(" trace "), std::string::npos) << line;
    }
    EXPECT_EQ(traced_lines, 4u);
    EXPECT_EQ(serviceLog.size(), 5u);
}
