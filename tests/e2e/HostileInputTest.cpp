// Hostile input through the whole kit over real HTTP on 127.0.0.1: identifiers that try to reroute a
// request, replies nested deep enough to exhaust a stack, bodies JSON cannot carry, and secrets that must
// stay out of every message and log line.
#include "EndToEndSupport.h"
#include "LogCapture.h"
#include "TestHTTPServer.h"

#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>
#include <VLMSDKCoreKit/VLMSDKRemoteLogger.h>
#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <string_view>

namespace e2e {
namespace {

/// Every request line the server received, answered 404 or with the reply the test set.
class RecordingService {
public:
    struct Seen {
        std::string method;
        std::string target;
    };

    RecordingService()
        : server_([this](httplib::Server& server) {
              // Routes that match every path, rather than a pre-routing handler: those read the request's body
              // before answering, so that a kept connection stays in step.
              const auto record = [this](const httplib::Request& request, httplib::Response& response) {
                  std::lock_guard lock(mutex_);
                  seen_.push_back({request.method, request.target});
                  response.status = reply_.empty() ? 404 : 200;
                  response.set_content(reply_.empty() ? R"({"error": {"code": "not_found", "message": "No."}})"
                                                      : reply_,
                                       "application/json");
              };
              constexpr const char* kAnyPath = R"([\s\S]*)";
              server.Get(kAnyPath, record);
              server.Post(kAnyPath, record);
              server.Patch(kAnyPath, record);
          }) {}

    std::string url(const std::string& path) const { return server_.url(path); }
    void setReply(std::string reply) {
        std::lock_guard lock(mutex_);
        reply_ = std::move(reply);
    }
    std::vector<Seen> take() {
        std::lock_guard lock(mutex_);
        return std::exchange(seen_, {});
    }

private:
    std::mutex mutex_;
    std::vector<Seen> seen_;
    std::string reply_;
    TestHTTPServer server_;
};

// An operation that puts an identifier into its path.
struct Route {
    const char* name;
    const char* method;
    const char* pathFormat;
    std::function<Call(std::string)> call;
};

const std::vector<Route>& identifierRoutes() {
    static const std::vector<Route> routes = {
        {"fetch", "GET", "guest/reservations/%@", [](std::string id) { return fetch(id); }},
        {"confirm", "PATCH", "guest/reservations/%@", [](std::string id) { return confirm(id, true); }},
        {"checkin", "PATCH", "guest/reservations/%@/mobile_checkin", [](std::string id) { return checkin(id); }},
        {"checkout", "PATCH", "guest/reservations/%@/mobile_checkout", [](std::string id) { return checkout(id); }},
        {"pay", "POST", "guest/reservations/%@/transactions",
         [](std::string id) { return pay(id, 10, "USD", "card_1"); }},
        {"folio", "GET", "guest/reservations/%@/folio", [](std::string id) { return folio(id); }},
        {"charge", "POST", "guest/reservations/%@/charge",
         [](std::string id) { return charge(id, {{"itm_breakfast", 1}}); }},
    };
    return routes;
}

// Runs `call` and gives its one delivery, which must come on the main thread.
Delivery deliveryOf(const Call& call, const Client& client, DeliveryLog& log) {
    const std::size_t before = log.count();
    call(client.api(), log);
    if (!log.waitFor(before + 1)) {
        ADD_FAILURE() << "nothing was delivered";
        return {};
    }
    EXPECT_TRUE(log.at(before).onMainThread);
    return log.at(before);
}

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    for (std::size_t start = 0;;) {
        const auto end = text.find(separator, start);
        parts.emplace_back(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        if (end == std::string_view::npos) return parts;
        start = end + 1;
    }
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            decoded += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

E2E_SUITE_ON_EACH_TRANSPORT(HostileInput);

TEST_P(HostileInput, NoIdentifierTakesARequestToAnotherRoute) {
    const std::vector<std::string> identifiers = {
        "rsv_0001/mobile_checkin", "rsv_0005/mobile_checkin?", "abc/folio", "../../admin/users", "/", "rsv_0003#typo",
        "rsv_0005#", "rsv?x=1", "..", ".", "%2e%2e", "%2F..%2F", "a b", "\xC3\xA9t\xC3\xA9", "a\r\nX-Injected: 1",
        std::string("a\0b", 3), "\x7f", "\t", "", "...", "~!$&'()*+,;=:@", "[::1]", "rsv_0003"};
    RecordingService service;
    Client client(service.url("/api/"), kSandboxToken, transport());
    DeliveryLog log;
    std::size_t reroutes = 0;
    std::size_t sent = 0;
    for (const auto& route : identifierRoutes()) {
        for (const auto& id : identifiers) {
            SCOPED_TRACE(std::string(route.name) + " " + testing::PrintToString(id));
            const Delivery delivery = deliveryOf(route.call(id), client, log);
            ASSERT_NE(delivery.error, nullptr);
            const auto seen = service.take();

            const bool dotSegment = id == "." || id == "..";
            const bool control = std::any_of(id.begin(), id.end(), [](char c) {
                return static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) == 0x7F;
            });
            // An empty identifier would name the collection's route.
            const bool refusedByKit = id.find('/') != std::string::npos || id.empty();
            if (refusedByKit || dotSegment || control) {
                // Refused before anything was sent, with an error that says why.
                EXPECT_TRUE(seen.empty());
                EXPECT_EQ(delivery.error->code(),
                          refusedByKit ? VLMErrorCode::RequiredArgument : VLMErrorCode::InvalidRequest)
                    << delivery.error->developerMessage();
                continue;
            }
            ++sent;
            EXPECT_EQ(delivery.error->httpStatusCode(), 404) << delivery.error->developerMessage();
            ASSERT_EQ(seen.size(), 1u);
            // The route the server sees: no query or fragment, and the template's segments once decoded.
            std::vector<std::string> expected = split(std::string("/api/") + route.pathFormat, '/');
            for (auto& segment : expected) {
                if (segment == "%@") segment = id;
            }
            std::vector<std::string> actual = split(seen[0].target, '/');
            for (auto& segment : actual) segment = percentDecoded(segment);
            const bool same = seen[0].method == route.method && seen[0].target.find_first_of("?#") == std::string::npos &&
                              actual == expected;
            EXPECT_TRUE(same) << seen[0].method << " " << seen[0].target;
            reroutes += same ? 0 : 1;
        }
    }
    client.settle();
    EXPECT_EQ(reroutes, 0u);
    EXPECT_GT(sent, identifierRoutes().size() * 10);
    EXPECT_EQ(log.count(), identifierRoutes().size() * identifiers.size());
}

// 250,000 arrays around a number: 500 KB, far under the reply size limit, and once deep enough to
// overflow a stack in any code that walked it recursively.
std::string deepValue() {
    constexpr std::size_t kLevels = 250000;
    return std::string(kLevels, '[') + "1" + std::string(kLevels, ']');
}

std::vector<std::string> mappedKeys(const std::shared_ptr<const VLMSDKObjectMapping>& mapping) {
    std::vector<std::string> keys;
    for (const auto& entry : mapping->entries()) keys.push_back(entry.jsonKey);
    return keys;
}

TEST_P(HostileInput, AReplyNestedBeyondTheLimitEndsInOneClearErrorWhicheverMappedKeyHoldsIt) {
    struct Case {
        std::string name;
        Call call;
        std::string reply;
    };
    const std::string deep = deepValue();
    auto member = [](const std::string& key, const std::string& value) {
        std::string text = "{";
        return text.append(VLMSDKJSON(key).dump()).append(":").append(value).append("}");
    };
    std::vector<Case> cases;
    for (const auto& key : mappedKeys(VLMSDKReservation::objectMapping())) {
        cases.push_back({"reservation." + key, fetch("rsv_0003"), R"({"reservation":)" + member(key, deep) + "}"});
    }
    for (const auto& key : mappedKeys(VLMSDKReservationGuest::objectMapping())) {
        cases.push_back(
            {"guest." + key, fetch("rsv_0003"), R"({"reservation":{"guests":[)" + member(key, deep) + "]}}"});
    }
    for (const auto& key : mappedKeys(VLMSDKFolio::objectMapping())) {
        cases.push_back({"folio." + key, folio("rsv_0003"), member(key, deep)});
    }
    for (const auto& key : mappedKeys(VLMSDKFolioDeliverableItem::objectMapping())) {
        cases.push_back({"posting." + key, folio("rsv_0003"), R"({"transactions":[)" + member(key, deep) + "]}"});
    }
    for (const auto& key : mappedKeys(VLMSDKPaymentTransaction::objectMapping())) {
        cases.push_back({"transaction." + key, pay("rsv_0003", 10, "USD", "card_1"),
                         R"({"reservation":{},"transaction":)" + member(key, deep) + "}"});
    }
    RecordingService service;
    Client client(service.url("/"), kSandboxToken, transport());
    DeliveryLog log;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        service.setReply(c.reply);
        const Delivery delivery = deliveryOf(c.call, client, log);
        EXPECT_EQ(delivery.record, nullptr);
        ASSERT_NE(delivery.error, nullptr);
        EXPECT_EQ(delivery.error->code(), VLMErrorCode::InvalidResponse);
        EXPECT_NE(delivery.error->developerMessage().find("nested deeper than 256 levels"), std::string::npos)
            << delivery.error->developerMessage();
    }
    client.settle();
    EXPECT_EQ(log.count(), cases.size());
    EXPECT_GT(cases.size(), 30u);
}

TEST_P(HostileInput, ABodyJSONCannotCarryIsNeverSent) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    struct Row {
        const char* name;
        Call call;
        const char* argument;
    };
    const Row rows[] = {
        {"pay NaN", pay("rsv_0003", nan, "USD", "card_1"), "amount"},
        {"pay infinity", pay("rsv_0003", -inf, "USD", "card_1"), "amount"},
        {"pay beyond double", pay("rsv_0003", std::strtod("1e309", nullptr), "USD", "card_1"), "amount"},
        {"charge NaN", charge("rsv_0003", {{"itm_breakfast", 1}, {"itm_parking", nan}}), "velmoraDeliverables"},
        {"charge infinity", charge("rsv_0003", {{"itm_breakfast", inf}}), "velmoraDeliverables"},
    };
    RecordingService service;
    Client client(service.url("/"), kSandboxToken, transport());
    DeliveryLog log;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const VLMErrorPtr error = deliveryOf(row.call, client, log).error;
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->code(), VLMErrorCode::RequiredArgument);
        EXPECT_EQ(error->argumentName(), row.argument);
        EXPECT_NE(error->developerMessage().find("finite"), std::string::npos) << error->developerMessage();
    }
    client.settle();
    EXPECT_TRUE(service.take().empty());
    EXPECT_EQ(log.count(), std::size(rows));
}

TEST_P(HostileInput, NeitherTokenNorCardNorPasswordReachesAnErrorOrALogLineAtAnyLevel) {
    constexpr const char* kPassword = "pa55-w0rd";
    constexpr const char* kCard = "card_cassia_visa_0077";
    LogCapture capture;
    auto& remote = VLMSDKRemoteLogger::sharedLogger();
    const int remoteLevel = remote.maximumLevel();
    remote.setMaximumLevel(static_cast<int>(VLMSDKLogLevel::Debug));

    auto sandbox = startSandbox();
    const std::string withPassword = "http://guest:" + std::string(kPassword) + "@" + sandbox->baseUrl().substr(7);
    std::vector<std::string> texts;
    {
        Client client(withPassword, kSandboxToken, transport());
        DeliveryLog log;
        const Call calls[] = {
            pay("rsv_0003", 12.5, "USD", kCard),           // paid
            charge("rsv_0003", {{"itm_breakfast", 2}}),    // charged
            pay("rsv_0003", 1, "USD", "card_ada_visa_4242"),  // not this guest's card: 402
            pay("rsv_0003", 1, "USD", ""),                    // refused before sending, and logged
            fetch("rsv_9999"),                                // 404
        };
        for (std::size_t i = 0; i < std::size(calls); ++i) {
            const VLMErrorPtr error = deliveryOf(calls[i], client, log).error;
            if (error) texts.push_back(error->description() + " " + error->userMessage());
            EXPECT_EQ(error == nullptr, i < 2) << i;
        }
    }
    {
        // A connection nobody answers makes the transport describe the request itself.
        int closedPort = 0;
        { closedPort = TestHTTPServer([](httplib::Server&) {}).port(); }
        Client client("http://guest:" + std::string(kPassword) + "@127.0.0.1:" + std::to_string(closedPort) + "/",
                      kSandboxToken, transport());
        DeliveryLog log;
        const VLMErrorPtr error = deliveryOf(fetch("rsv_0003"), client, log).error;
        ASSERT_NE(error, nullptr);
        texts.push_back(error->description());
        EXPECT_NE(texts.back().find("guest:***@127.0.0.1"), std::string::npos) << texts.back();
    }
    for (const auto& record : capture.consoleRecords()) texts.push_back(record.formatted());
    for (const auto& record : capture.drainRemote()) texts.push_back(record.formatted());
    remote.setMaximumLevel(remoteLevel);

    EXPECT_GT(texts.size(), 8u);
    for (const auto& text : texts) {
        for (const char* secret : {kPassword, kSandboxToken, kCard}) {
            EXPECT_EQ(text.find(secret), std::string::npos) << secret << " in: " << text;
        }
    }
}

}  // namespace
}  // namespace e2e
