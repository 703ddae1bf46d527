#include "SandboxProcess.h"
#include "SandboxTestSupport.h"
#include "ToolProcess.h"

#include <pmssandbox/SandboxServer.h>

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pmssandbox {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

/// A running sandbox on the built-in bookings, one per test.
class SandboxTest : public ::testing::Test {
protected:
    void SetUp() override {
        sandbox = std::make_unique<SandboxServer>();
        const auto started = sandbox->start();
        ASSERT_TRUE(started.has_value()) << sandbox->lastError();
        port = *started;
    }
    Reply send(const std::string& method, const std::string& path, const std::string& text = "") {
        return request(port, method, path, text);
    }

    std::unique_ptr<SandboxServer> sandbox;
    int port = 0;
};

// Routes: POST `all` creates; `r` + an id (and more) reaches one reservation.
const std::string all = "guest/reservations";
const std::string r = all + "/";

std::string create(const std::string& reference, const std::string& venue, const std::string& lastName) {
    return json{{"confirmation_id", reference}, {"venue_id", venue}, {"last_name", lastName}}.dump();
}
std::string pay(const json& amount, std::string currency = "USD", std::string card = "card_cassia_visa_0077") {
    return json{{"credit_card_id", card}, {"amount", amount}, {"currency", currency}}.dump();
}
std::string charge(const json& quantity, const std::string& item = "itm_laundry_bag") {
    return json{{"deliverable_items", {{{"item_id", item}, {"quantity", quantity}}}}}.dump();
}

// Steps in order on one sandbox; `expected` maps JSON pointers into the reply to their values.
TEST_F(SandboxTest, EndpointsFindBookingsAndMoveTheirStateUntilTheDataIsReset) {
    struct Step {
        const char* method;
        std::string path;
        std::string body;
        int status;
        json expected;
    };
    const Step steps[] = {
        // Found by reference and venue (case and spaces aside) and the booker's or any guest's last name.
        {"POST", all, create("hli-48213 ", "ven_harborlight", " qUILLFEATHER"), 200, {{"/reservation/id", "rsv_0001"}}},
        {"POST", all, create("HLI-48213", "ven_cobaltridge", "Quillfeather"), 200, {{"/reservation/id", "rsv_0012"}}},
        {"POST", all, create("FHL-20955", "ven_fernhill", "Kettlewell"), 200, {{"/reservation/id", "rsv_0006"}}},
        // Creating again gives the same reservation.
        {"POST", all, create("HLI-48227", "ven_harborlight", "Oddleigh"), 200, {{"/reservation/id", "rsv_0002"}}},
        {"POST", all, create("HLI-48227", "ven_harborlight", "oddleigh"), 200, {{"/reservation/id", "rsv_0002"}}},
        // Check-in hands out the venue's first room nobody holds (802 is taken).
        {"PATCH", r + "rsv_0011/mobile_checkin", "", 200, {{"/reservation/room_number", "801"}}},
        // The balance is the sum of the folio lines; an amount the hotel sent as text stays text.
        {"GET", r + "rsv_0003/folio", "", 200, {{"/outstanding_amount", 129.68}, {"/transactions/1/amount", "22.68"}}},
        // A payment lowers both balances and posts a negative line.
        {"POST", r + "rsv_0003/transactions", pay(29.68), 200, {{"/reservation/outstanding_amount", 100}}},
        {"GET", r + "rsv_0003/folio", "", 200, {{"/outstanding_amount", 100}, {"/transactions/4/amount", -29.68}}},
        // After departure, settling up to exactly nothing owed still works.
        {"PATCH", r + "rsv_0003/mobile_checkout", "", 200, {{"/reservation/status", "checked_out"}}},
        {"POST", r + "rsv_0003/transactions", pay(100), 200, {{"/reservation/outstanding_amount", 0}}},
        {"PATCH", r + "rsv_0005", R"({"notify_me": true})", 200, {{"/reservation/id", "rsv_0005"}}},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(std::string(step.method) + " " + step.path + " " + step.body);
        const Reply reply = send(step.method, step.path, step.body);
        EXPECT_EQ(reply.status, step.status) << reply.text;
        ASSERT_TRUE(reply.body.is_object()) << reply.text;
        for (const auto& [pointer, value] : step.expected.items()) {
            EXPECT_EQ(reply.body.value(json::json_pointer(pointer), json()), value) << pointer;
        }
    }
    // Resetting forgets all of it: flags, check-ins, payments, creations.
    sandbox->resetData();
    EXPECT_EQ(sandbox->notifyMe("rsv_0005"), std::nullopt);
    EXPECT_EQ(send("GET", r + "rsv_0011").body["reservation"]["status"], "reserved");
    EXPECT_EQ(send("GET", r + "rsv_0003").body["reservation"]["outstanding_amount"], 129.68);
    EXPECT_EQ(send("GET", r + "rsv_0001").status, 404);
}

TEST_F(SandboxTest, RefusalsAnswerInTheErrorShapeAndChangeNothing) {
    ASSERT_EQ(send("POST", all, create("HLI-47990", "ven_harborlight", "Lanternfish")).status, 200);  // checked out
    ASSERT_EQ(send("POST", all, create("HLI-48213", "ven_cobaltridge", "Quillfeather")).status, 200);  // not yet open
    const std::optional<std::string> token = "Bearer sandbox-token";
    struct Row {
        const char* method;
        std::string path;
        std::string body;
        std::optional<std::string> authorization;
        int status;
        const char* code;
        const char* allow = "";  // the Allow header
    };
    const Row rows[] = {
        // The token is checked before anything else.
        {"GET", "no/such/route", "", std::nullopt, 401, "missing_token"},
        {"GET", r + "rsv_0003", "", "Basic c2FuZGJveC10b2tlbg==", 401, "invalid_token"},
        {"GET", r + "rsv_0003", "", "sandbox-token", 401, "invalid_token"},
        {"GET", r + "rsv_0003", "", "Bearer sandbox-token-and-more", 401, "invalid_token"},
        {"POST", r + "rsv_0003/transactions", pay(10, "USD", "card_ada_visa_4242"), token, 402, "card_declined"},
        {"GET", "guest", "", token, 404, "route_not_found"},
        {"GET", r + "rsv_0003/unknown", "", token, 404, "route_not_found"},
        {"GET", r + "/folio", "", token, 404, "route_not_found"},
        {"GET", r + "rsv_0003/", "", token, 404, "route_not_found"},
        {"GET", r + "rsv_0001/folio", "", token, 404, "reservation_not_found"},  // not created yet
        {"PATCH", r + "rsv_9999", R"({"notify_me": true})", token, 404, "reservation_not_found"},
        {"POST", all, create("HLI-48240", "ven_harborlight", "Wren"), token, 404, "reservation_not_found"},
        {"POST", all, create("HLI-48240", "ven_fernhill", "Wrenfield"), token, 404, "reservation_not_found"},
        {"GET", all, "", token, 405, "method_not_allowed", "POST"},
        {"DELETE", r + "rsv_0003", "", token, 405, "method_not_allowed", "GET, PATCH"},
        {"POST", r + "rsv_0003/folio", "{}", token, 405, "method_not_allowed", "GET"},
        {"PUT", r + "rsv_0003/mobile_checkin", "{}", token, 405, "method_not_allowed", "PATCH"},
        {"PATCH", r + "rsv_0004/mobile_checkin", "", token, 409, "invalid_status"},
        {"PATCH", r + "rsv_0012/mobile_checkin", "", token, 409, "checkin_unavailable"},
        {"POST", r + "rsv_0004/charge", charge(1, "itm_parking"), token, 409, "reservation_checked_out"},
        {"POST", r + "rsv_0003/transactions", pay(129.69), token, 409, "amount_exceeds_balance"},
        {"POST", all, "not json", token, 422, "invalid_json"},
        {"POST", all, "[1, 2]", token, 422, "invalid_json"},
        {"POST", all, "{}", token, 422, "invalid_request"},
        {"POST", all, R"({"confirmation_id": "HLI-48213", "venue_id": 7, "last_name": "Quillfeather"})", token, 422,
         "invalid_request"},
        {"POST", all, create("HLI-48213", "ven_harborlight", "  "), token, 422, "invalid_request"},
        {"PATCH", r + "rsv_0005", "{}", token, 422, "invalid_request"},
        {"PATCH", r + "rsv_0005", R"({"notify_me": "yes"})", token, 422, "invalid_request"},
        {"PATCH", r + "rsv_0005", R"({"notify_me": 1})", token, 422, "invalid_request"},
        {"POST", r + "rsv_0003/transactions", pay(0), token, 422, "invalid_amount"},
        {"POST", r + "rsv_0003/transactions", pay(1.005), token, 422, "invalid_amount"},
        {"POST", r + "rsv_0003/transactions", pay(10, "EUR"), token, 422, "currency_mismatch"},
        {"POST", r + "rsv_0003/transactions", pay("10.00"), token, 422, "invalid_request"},
        {"POST", r + "rsv_0003/transactions", R"({"amount": 10, "currency": "USD"})", token, 422, "invalid_request"},
        {"POST", r + "rsv_0009/charge", charge(1, "itm_parking"), token, 422, "unknown_item"},  // another venue's
        {"POST", r + "rsv_0009/charge",
         R"({"deliverable_items": [{"item_id": "itm_laundry_bag", "quantity": 1}, {"item_id": "x", "quantity": 1}]})",
         token, 422, "unknown_item"},  // all or nothing
        {"POST", r + "rsv_0009/charge", charge(0), token, 422, "invalid_request"},
        {"POST", r + "rsv_0009/charge", charge(1.5), token, 422, "invalid_request"},
        {"POST", r + "rsv_0009/charge", charge("2"), token, 422, "invalid_request"},
        {"POST", r + "rsv_0009/charge", charge(4294967297ull), token, 422, "invalid_request"},  // 2^32 + 1
        {"POST", r + "rsv_0009/charge", R"({"deliverable_items": [{"item_id": "itm_laundry_bag"}]})", token, 422,
         "invalid_request"},
        {"POST", r + "rsv_0009/charge", R"({"deliverable_items": []})", token, 422, "invalid_request"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.method) + " " + row.path + " " + row.body + " " + row.authorization.value_or(""));
        const Reply reply = request(port, row.method, row.path, row.body, row.authorization);
        EXPECT_EQ(reply.status, row.status) << reply.text;
        EXPECT_EQ(reply.errorCode(), row.code) << reply.text;
        EXPECT_EQ(reply.headers.count("Allow") ? reply.headers.find("Allow")->second : "", row.allow);
    }
    EXPECT_EQ(request(port, "GET", r + "rsv_0003", "", "bearer  sandbox-token ").status, 200);
    const Reply folio = send("GET", r + "rsv_0003/folio");
    EXPECT_EQ(folio.body["outstanding_amount"], 129.68);
    EXPECT_EQ(folio.body["transactions"].size(), 4u);
    EXPECT_EQ(send("GET", r + "rsv_0009/folio").body["transactions"].size(), 2u);
    EXPECT_EQ(sandbox->notifyMe("rsv_0005"), std::nullopt);
}

// What goes over the wire, whole: replies to requests no app client would send, and the fault switches
// (which act before the token check: these requests carry none).
TEST_F(SandboxTest, RawExchangesAndFaultSwitches) {
    const std::string get = "GET /guest/reservations/rsv_0003 HTTP/1.1\r\nConnection: close\r\n\r\n";
    struct Row {
        const char* name;
        std::optional<Fault> fault;
        std::string request;
        std::string statusLine;  // empty: nothing at all comes back
        std::string part;        // of the reply
        std::chrono::milliseconds wait = 10s;
    };
    const Row rows[] = {
        {"no Content-Length means no body to wait for", {},
         "PATCH /guest/reservations/rsv_0005/mobile_checkin HTTP/1.1\r\nConnection: close\r\n"
         "Authorization: Bearer sandbox-token\r\n\r\n",
         "HTTP/1.1 200 OK", "in_house"},
        {"malformed HTTP, in the error shape", {}, "BREW /pot HTTP/1.1\r\nConnection: close\r\n\r\n", "HTTP/1.1 400",
         "bad_request"},
        {"forced status", Fault::forceStatus(503), get, "HTTP/1.1 503", "service_unavailable"},
        {"forced status after a delay", Fault::forceStatus(504).withDelay(1ms), get, "HTTP/1.1 504", ""},
        {"forced status with Retry-After", Fault::forceStatus(429).withRetryAfter(2s), get, "HTTP/1.1 429",
         "Retry-After: 2\r\n"},
        {"not JSON", Fault::notJson(), get, "HTTP/1.1 200", "\r\n\r\n<html>oops</html>"},
        {"dropped connection: not even a status line", Fault::dropConnection(), get, "", ""},
        {"a short delay, then the usual answer", Fault::delay(1ms), get, "HTTP/1.1 401", "missing_token"},
        // Holds a worker until the sandbox stops, which cuts the delay short.
        {"a delay longer than the client waits", Fault::delay(30s), get, "", "", 200ms},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        row.fault ? sandbox->setFault(*row.fault) : sandbox->clearFaults();
        const std::string reply = rawExchange(port, row.request, row.wait);
        EXPECT_EQ(reply.substr(0, row.statusLine.empty() ? std::string::npos : row.statusLine.size()), row.statusLine);
        EXPECT_NE(reply.find(row.part), std::string::npos) << reply;
    }
}

TEST_F(SandboxTest, FaultsHitOnlyMatchingRequestsInOrderAndRunOut) {
    const std::string one = r + "rsv_0003";
    struct Row {
        Fault fault;
        const char* method;
        std::string path;
        bool hit;
    };
    const Row rows[] = {
        {Fault::forceStatus(500), "GET", one, true},
        {Fault::forceStatus(500).matching("post", "/" + all), "POST", all, true},  // any case; a leading slash aside
        {Fault::forceStatus(500).matching("GET", all), "GET", one + "/folio", true},  // a prefix of the path
        {Fault::forceStatus(500).matching("", one + "/folio"), "GET", one, false},
        {Fault::forceStatus(500).matching("PATCH", ""), "GET", one, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.method) + " " + row.path);
        sandbox->setFault(row.fault);
        EXPECT_EQ(send(row.method, row.path, "{}").status == 500, row.hit);
    }
    // The first active fault that matches applies; one limited by times() drops out once used up.
    sandbox->setFault(Fault::forceStatus(502).matching("GET", "").times(2));
    sandbox->addFault(Fault::forceStatus(503));
    EXPECT_EQ(sandbox->activeFaultCount(), 2u);
    for (const int status : {502, 502, 503}) EXPECT_EQ(send("GET", one).status, status);
    EXPECT_EQ(sandbox->activeFaultCount(), 1u);
    sandbox->clearFaults();
    EXPECT_EQ(send("GET", one).status, 200);
}

TEST_F(SandboxTest, RequestLogKeepsWhatArrived) {
    send("POST", all, R"({"confirmation_id": "x"})");
    send("GET", r + "rsv_0003");
    EXPECT_EQ(sandbox->requestCount("post", ""), 1u);
    const RecordedRequest first = sandbox->requests().at(0);
    EXPECT_EQ(first.path + " " + first.body, R"(/guest/reservations {"confirmation_id": "x"})");
    EXPECT_EQ(first.header("AUTHORIZATION"), "Bearer sandbox-token");
    EXPECT_EQ(first.headers.count("remote_addr"), 0u);
    EXPECT_EQ(sandbox->lastRequest()->path, "/guest/reservations/rsv_0003");
    sandbox->clearRequests();
    EXPECT_EQ(sandbox->requestCount(), 0u);
    EXPECT_FALSE(sandbox->lastRequest());
}

// A booking of venue "v1" for user "u1", booked by "Tester", on the platform.
json seedBooking(const std::string& id, std::string reference, std::string status, std::string room) {
    json booking = json::parse(R"({"user_id": "u1", "venue_id": "v1", "currency_code": "USD", "total_stay_amount": 100,
        "booker": {"first_name": "T", "last_name": "Tester"}, "checkin_date": "2030-01-01",
        "checkout_date": "2030-01-02", "guests": [{"first_name": "T", "last_name": "Tester", "profile_code": "P"}],
        "not_synced_amount": 0, "reservation_info": "Room", "on_platform": true})");
    booking.update({{"id", id}, {"checkin_id", "c" + id}, {"confirmation_id", reference}, {"client_number", "C" + id},
                    {"reservation_number", "R" + id}, {"room_number", room}, {"status", status},
                    {"checkin_is_available", status == "reserved"},
                    {"folio", {{"folio_id", "f" + id}, {"transactions", json::array()}}}});
    return booking;
}

// Venue "v1" with rooms "1" and "2", user "u1", and booking "b1" (reference "REF-1"), reserved.
json minimalSeed() {
    json seed = json::parse(R"({"users": [{"id": "u1", "cards": [{"id": "c1", "brand": "Visa", "last4": "1111"}]}],
        "venues": [{"id": "v1", "name": "V", "currency_code": "USD", "rooms": ["1", "2"], "catalog": []}]})");
    seed["bookings"] = json::array({seedBooking("b1", "REF-1", "reserved", "")});
    return seed;
}

TEST(SandboxLifecycle, StopAndStartAgainKeepsTheData) {
    SandboxServer sandbox;
    EXPECT_EQ(sandbox.baseUrl(), "");
    for (int cycle = 0; cycle < 3; ++cycle) {
        SCOPED_TRACE(cycle);
        auto port = sandbox.start();
        ASSERT_TRUE(port) << sandbox.lastError();
        EXPECT_EQ(sandbox.start(), port);  // already running: same port
        EXPECT_EQ(sandbox.baseUrl(), "http://127.0.0.1:" + std::to_string(*port) + "/");
        // Checked in during the first cycle, still in house in the later ones.
        const Reply reply = cycle == 0 ? request(*port, "PATCH", r + "rsv_0011/mobile_checkin")
                                       : request(*port, "GET", r + "rsv_0011");
        EXPECT_EQ(reply.body["reservation"]["status"], "in_house") << reply.text;
        sandbox.stop();
        sandbox.stop();
        EXPECT_FALSE(sandbox.isRunning());
        EXPECT_EQ(sandbox.port(), 0);
        EXPECT_EQ(request(*port, "GET", r + "rsv_0011").error, httplib::Error::Connection);
    }
}

TEST(SandboxLifecycle, StartRefusesABadSetupWithTheReason) {
    SandboxServer running;
    const int taken = running.start().value_or(0);
    const auto seed = [](std::function<void(json&)> change) {
        return [change](SandboxConfig& config) {
            json edited = minimalSeed();
            change(edited);
            config.seedJson = edited.dump();
        };
    };
    const json line = {{"posting_name", "X"}, {"posting_code", "X"}, {"amount", "1.234"}, {"currency_code", "USD"}};
    const std::vector<std::pair<std::function<void(SandboxConfig&)>, std::string>> rows = {
        {[&](SandboxConfig& c) { c.port = taken; }, std::to_string(taken)},
        {[](SandboxConfig& c) { c.token.clear(); }, "token"},
        {[](SandboxConfig& c) { c.pathPrefix = "/_sandbox/v1"; }, "_sandbox"},
        {[](SandboxConfig& c) { c.seedFile = "/nonexistent/seed.json"; }, "cannot read"},
        {[](SandboxConfig& c) { c.seedJson = "{ not json"; }, "not valid JSON"},
        {seed([](json& s) { s.erase("venues"); }), "venues"},
        {seed([](json& s) { s["bookings"][0]["venue_id"] = "v9"; }), "bookings[0].venue_id"},
        {seed([](json& s) { s["bookings"][0]["user_id"] = "u9"; }), "bookings[0].user_id"},
        {seed([](json& s) { s["bookings"][0]["status"] = "gone"; }), "bookings[0].status"},
        {seed([](json& s) { s["bookings"][0]["currency_code"] = "EUR"; }), "bookings[0].currency_code"},
        {seed([](json& s) { s["bookings"][0]["checkout_date"] = "2030-13-01"; }), "checkout_date"},
        {seed([](json& s) { s["bookings"][0]["guests"] = json::array(); }), "bookings[0].guests"},
        {seed([](json& s) { s["bookings"].push_back(seedBooking("b2", "ref-1", "reserved", "")); }),
         "bookings[1].confirmation_id"},
        {seed([&](json& s) { s["bookings"][0]["folio"]["transactions"].push_back(line); }), "transactions[0].amount"},
    };
    for (const auto& [configure, reason] : rows) {
        SCOPED_TRACE(reason);
        SandboxConfig config;
        configure(config);
        SandboxServer sandbox(config);
        EXPECT_FALSE(sandbox.start());
        EXPECT_NE(sandbox.lastError().find(reason), std::string::npos) << sandbox.lastError();
    }
    EXPECT_EQ(request(taken, "GET", r + "rsv_0003").status, 200);
}

TEST(SandboxLifecycle, ASeedFileReplacesTheBookingsAndCheckinTakesTheFirstFreeRoom) {
    json seed = minimalSeed();
    seed["bookings"].push_back(seedBooking("b2", "REF-2", "reserved", "1"));  // room 1 promised already
    seed["bookings"].push_back(seedBooking("b3", "REF-3", "reserved", ""));
    seed["bookings"].push_back(seedBooking("b4", "REF-4", "in_house", "9"));  // a room outside the pool
    const auto path = std::filesystem::temp_directory_path() / ("pms-sandbox-" + std::to_string(getpid()) + ".json");
    std::ofstream(path) << seed.dump();
    SandboxConfig config;
    config.seedFile = path.string();
    SandboxServer sandbox(config);
    const int port = sandbox.start().value_or(0);
    std::filesystem::remove(path);
    ASSERT_NE(port, 0) << sandbox.lastError();
    EXPECT_EQ(request(port, "GET", r + "rsv_0003").status, 404);
    EXPECT_EQ(request(port, "PATCH", r + "b1/mobile_checkin").body["reservation"]["room_number"], "2");
    const Reply none = request(port, "PATCH", r + "b3/mobile_checkin");
    EXPECT_EQ(none.status, 409);
    EXPECT_EQ(none.errorCode(), "no_room_available");
    EXPECT_EQ(request(port, "GET", r + "b3").body["reservation"]["status"], "reserved");
    ASSERT_EQ(request(port, "PATCH", r + "b1/mobile_checkout").status, 200);  // frees room 2
    EXPECT_EQ(request(port, "PATCH", r + "b3/mobile_checkin").body["reservation"]["room_number"], "2");
}

TEST(SandboxExecutable, UsageErrorsAreOneLineAndStatusTwo) {
    SandboxServer running;
    const std::string taken = std::to_string(running.start().value_or(0));
    struct Row {
        std::vector<std::string> arguments;
        int status;
        std::string out;  // the start of standard output
        std::string err;  // the start of standard error, which then holds one line
    };
    const Row rows[] = {
        {{"--version"}, 0, "pms-sandbox " PMS_SANDBOX_VERSION "\n", ""},
        {{"--help"}, 0, "Local reservation service", ""},
        {{"--port", "70000"}, 2, "", "pms-sandbox: --port: Value 70000 not in range"},
        {{"--bogus"}, 2, "", "pms-sandbox: The following argument was not expected: --bogus"},
        {{"--state", "x.db", "--in-memory"}, 2, "", "pms-sandbox: --state excludes --in-memory"},
        {{"--in-memory", "--port", taken}, 1, "", "pms-sandbox: cannot listen on 127.0.0.1:" + taken},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments.front());
        const ToolRun run = runTool(PMS_SANDBOX_EXE, row.arguments);
        EXPECT_EQ(run.exitStatus, row.status);
        EXPECT_EQ(run.out.substr(0, row.out.size()), row.out);
        EXPECT_EQ(run.err.substr(0, row.err.size()), row.err);
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), row.err.empty() ? 0 : 1) << run.err;
    }
    EXPECT_NE(runTool(PMS_SANDBOX_EXE, {"--help"}).out.find("Usage: pms-sandbox [OPTIONS]"), std::string::npos);
}

TEST(SandboxExecutable, ServesWritesALinePerRequestAndClosesTheStateFileOnSIGTERM) {
    TemporaryStateFile file;
    SandboxProcess sandbox({"--state", file.path(), "--token", "exe-token", "--prefix", "p"});
    const int port = sandbox.port();
    ASSERT_NE(port, 0) << sandbox.output() << sandbox.errors();
    EXPECT_NE(sandbox.output().find("/p/\n"), std::string::npos) << sandbox.output();
    EXPECT_EQ(request(port, "GET", "p/guest/reservations/rsv_0003", "", "Bearer exe-token").status, 200);
    EXPECT_EQ(request(port, "GET", r + "rsv_0003", "", "Bearer exe-token").status, 404);
    EXPECT_EQ(request(port, "PATCH", "p/guest/reservations/rsv_0011/mobile_checkin", "", "Bearer exe-token").status,
              200);
    sandbox.signal(SIGTERM);
    EXPECT_EQ(sandbox.wait(), 0);
    const std::string lines = sandbox.errors();
    EXPECT_NE(lines.find("GET /p/guest/reservations/rsv_0003 200 "), std::string::npos) << lines;
    EXPECT_NE(lines.find("GET /guest/reservations/rsv_0003 404 "), std::string::npos) << lines;
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 3) << lines;
    // Closed cleanly: the write-ahead log is folded back and gone, and the check-in is in the file.
    EXPECT_FALSE(std::filesystem::exists(file.path() + "-wal"));
    SandboxProcess again({"--state", file.path(), "--quiet"});
    EXPECT_EQ(request(again.port(), "GET", r + "rsv_0011").body["reservation"]["status"], "in_house");
}

}  // namespace
}  // namespace pmssandbox
