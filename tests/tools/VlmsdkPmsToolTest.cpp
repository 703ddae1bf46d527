// The vlmsdk-pms tool as a user runs it: a process, its exit status and its two output streams.
#include "ToolProcess.h"

#include <pmssandbox/SandboxServer.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace {

using Arguments = std::vector<std::string>;

ToolRun tool(const Arguments& arguments) { return runTool(VLMSDK_PMS_EXE, arguments); }

std::string joined(const Arguments& arguments) {
    std::string text;
    for (const auto& argument : arguments) text += (text.empty() ? "" : " ") + argument;
    return text;
}

// Each of `parts` appears in `text`, in this order.
void expectInOrder(const std::string& text, const std::vector<std::string>& parts) {
    std::size_t from = 0;
    for (const auto& part : parts) {
        const std::size_t at = text.find(part, from);
        EXPECT_NE(at, std::string::npos) << "missing (in order): " << part << "\n--- output ---\n" << text;
        if (at != std::string::npos) from = at + part.size();
    }
}

nlohmann::json parsedDocument(const std::string& text) {
    // The whole output must be one document: parse() rejects anything after it.
    nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << "not one JSON document:\n" << text;
    return document;
}

TEST(VlmsdkPmsToolTest, DemoWalksTheWholeStayAndPrintsEveryStep) {
    const ToolRun run = tool({"demo"});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.err, "");
    expectInOrder(run.out, {
                               "against the local reservation service at http://127.0.0.1:",
                               "[1/8] Create the reservation from booking HLI-48213",
                               "Reservation:           rsv_0001",
                               "Guests:                Ada Quillfeather (profile PRF-10001)",
                               "[2/8] Confirm rsv_0001, asking to be told when mobile check-in opens",
                               "[3/8] Mobile check-in",
                               "Status:           in house",
                               "[4/8] Charge 2 x itm_breakfast and 1 x itm_parking to the master bill",
                               "FB-BRK  Breakfast buffet   36.00 USD",
                               "PRK     Overnight parking  25.00 USD",
                               "[5/8] Read the master bill",
                               "Outstanding:  61.00 USD",
                               "[6/8] Pay the balance of 61.00 USD with card card_ada_visa_4242",
                               "Payment status:  succeeded",
                               "Left to pay:     0.00 USD",
                               "[7/8] Mobile check-out",
                               "Checked out.",
                               "[8/8] Read the reservation after check-out",
                               "Status:           checked out",
                               "Stay complete: reservation rsv_0001",
                           });
}

TEST(VlmsdkPmsToolTest, DemoWithJSONPrintsOneDocumentHoldingEveryStep) {
    const ToolRun run = tool({"demo", "--json"});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.err, "");
    const nlohmann::json document = parsedDocument(run.out);
    ASSERT_TRUE(document.is_object());
    EXPECT_EQ(document.at("completed"), true);
    EXPECT_EQ(document.at("embeddedService"), true);
    EXPECT_EQ(document.at("reservationID"), "rsv_0001");

    const auto& steps = document.at("steps");
    const std::vector<std::string> expected{"create", "confirm", "checkin", "charge", "folio", "pay", "checkout", "fetch"};
    ASSERT_EQ(steps.size(), expected.size());
    for (std::size_t index = 0; index < expected.size(); ++index) {
        SCOPED_TRACE(expected[index]);
        EXPECT_EQ(steps[index].at("step"), index + 1);
        EXPECT_EQ(steps[index].at("operation"), expected[index]);
        EXPECT_FALSE(steps[index].at("title").get<std::string>().empty());
    }
    EXPECT_EQ(steps[0].at("result").at("status"), "reserved");
    EXPECT_EQ(steps[0].at("result").at("guests").size(), 1u);
    EXPECT_EQ(steps[2].at("result").at("status"), "in_house");
    const double balance = steps[4].at("result").at("outstandingAmount");
    EXPECT_DOUBLE_EQ(balance, 61.0);
    EXPECT_EQ(steps[4].at("result").at("deliverables").size(), 2u);
    EXPECT_DOUBLE_EQ(steps[5].at("result").at("paymentTransaction").at("amount").get<double>(), balance);
    EXPECT_EQ(steps[5].at("result").at("paymentTransaction").at("creditCardID"), "card_ada_visa_4242");
    EXPECT_DOUBLE_EQ(steps[5].at("result").at("reservation").at("remainPriceAmountToPay").get<double>(), 0.0);
    EXPECT_EQ(steps[6].at("result").at("checkedOut"), true);
    EXPECT_EQ(steps[7].at("result").at("status"), "checked_out");
}

struct OperationRow {
    Arguments arguments;
    std::vector<std::string> output;  // in order
};

TEST(VlmsdkPmsToolTest, EachOperationPrintsItsRecordAgainstTheEmbeddedService) {
    const OperationRow rows[] = {
        {{"fetch", "rsv_0003"},
         {"Reservation:           rsv_0003", "Status:                in house", "Room:                  214",
          "Total stay price:      567.00 USD", "Paid, not yet synced:  22.68 USD",
          "Guests:                Cassia Wrenfield (profile PRF-10004)", "Theo Wrenfield (profile PRF-10005)"}},
        {{"create", "--confirmation", "hli-48240", "--venue", "ven_harborlight", "--last-name", "WRENFIELD"},
         {"Reservation:           rsv_0003", "Confirmation number:   HLI-48240"}},
        {{"confirm", "rsv_0005", "--no-notify"}, {"Reservation:           rsv_0005", "Status:                reserved"}},
        {{"checkin", "rsv_0005"}, {"Reservation:           rsv_0005", "Status:                in house", "Room:                  B10"}},
        {{"checkout", "rsv_0003"}, {"Reservation rsv_0003 is checked out."}},
        {{"folio", "rsv_0003"},
         {"Folio:        fol_0003", "Outstanding:  129.68 USD", "Code", "Posting", "Amount",
          "RM      Room charge - night 1   189.00 USD", "TAX     Room tax - night 1       22.68 USD",
          "PAY     Deposit payment        -100.00 USD"}},
        {{"pay", "rsv_0003", "--card", "card_cassia_visa_0077", "--amount", "29.68"},
         {"Payment status:  succeeded", "Amount:          29.68 USD", "Card:            card_cassia_visa_0077",
          "Left to pay:     100.00 USD"}},
        {{"charge", "rsv_0009", "itm_picnic_hamper:2", "itm_laundry_bag"},
         {"Outstanding:  320.50 GBP", "FB-PIC  Picnic hamper           70.00 GBP",
          "LDY     Laundry bag             12.50 GBP"}},
    };
    for (const OperationRow& row : rows) {
        SCOPED_TRACE(joined(row.arguments));
        const ToolRun run = tool(row.arguments);
        EXPECT_EQ(run.exitStatus, 0) << run.err;
        EXPECT_EQ(run.err, "");
        expectInOrder(run.out, row.output);
    }
}

TEST(VlmsdkPmsToolTest, JSONOfASingleOperationIsTheRecord) {
    const ToolRun run = tool({"--json", "folio", "rsv_0003"});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    const nlohmann::json folio = parsedDocument(run.out);
    EXPECT_EQ(folio.at("folioID"), "fol_0003");
    EXPECT_EQ(folio.at("paymentCurrency"), "USD");
    ASSERT_EQ(folio.at("deliverables").size(), 4u);
    EXPECT_EQ(folio.at("deliverables")[1].at("code"), "TAX");
    EXPECT_DOUBLE_EQ(folio.at("deliverables")[1].at("price").get<double>(), 22.68);  // sent as text
    EXPECT_DOUBLE_EQ(folio.at("deliverables")[3].at("price").get<double>(), -100.0);
}

struct FailureRow {
    Arguments arguments;
    std::vector<std::string> err;
};

TEST(VlmsdkPmsToolTest, FailuresExitOneWithTheServersMessageOnStandardError) {
    const FailureRow rows[] = {
        {{"fetch", "rsv_nope"},
         {"vlmsdk-pms: fetch failed:", "HTTP status:    404", "Server message: No reservation has the id 'rsv_nope'."}},
        {{"--token", "wrong", "fetch", "rsv_0003"},
         {"HTTP status:    401", "Server message: The bearer token is not valid for this service."}},
        {{"checkin", "rsv_0003"}, {"checkin failed:", "HTTP status:    409", "needs a reserved booking"}},
        {{"charge", "rsv_0003", "itm_unicorn"},
         {"charge failed:", "HTTP status:    422", "Server message: This venue sells no item 'itm_unicorn'."}},
        {{"pay", "rsv_0003", "--card", "card_cassia_visa_0077", "--amount", "5", "--currency", "EUR"},
         {"pay failed:", "HTTP status:    422", "This reservation is paid in USD, not EUR."}},
        {{"checkout", "rsv_0011"}, {"checkout failed:", "HTTP status:    409"}},
    };
    for (const FailureRow& row : rows) {
        SCOPED_TRACE(joined(row.arguments));
        const ToolRun run = tool(row.arguments);
        EXPECT_EQ(run.exitStatus, 1);
        EXPECT_EQ(run.out, "");
        expectInOrder(run.err, row.err);
    }

    const ToolRun json = tool({"--json", "fetch", "rsv_nope"});
    EXPECT_EQ(json.exitStatus, 1);
    expectInOrder(json.err, {"No reservation has the id 'rsv_nope'."});
    const nlohmann::json document = parsedDocument(json.out);
    EXPECT_EQ(document.at("operation"), "fetch");
    EXPECT_EQ(document.at("error").at("code"), "HTTPStatus");
    EXPECT_EQ(document.at("error").at("httpStatusCode"), 404);
    EXPECT_EQ(document.at("error").at("serverMessage"), "No reservation has the id 'rsv_nope'.");
}

TEST(VlmsdkPmsToolTest, UsageErrorsExitTwoWithoutRunningAnything) {
    const Arguments rows[] = {
        {},
        {"nonsense"},
        {"fetch"},
        {"fetch", "a", "b"},
        {"create", "--confirmation", "HLI-48213", "--venue", "ven_harborlight"},
        {"pay", "rsv_0003", "--amount", "5"},
        {"pay", "rsv_0003", "--card", "card", "--amount", "lots"},
        {"charge", "rsv_0003"},
        {"charge", "rsv_0003", "itm_breakfast:0"},
        {"charge", "rsv_0003", "itm_breakfast:two"},
        {"charge", "rsv_0003", ":2"},
        {"demo", "--item", "itm_breakfast:1000"},
        {"--timeout", "0", "fetch", "rsv_0003"},
        {"--no-such-option", "fetch", "rsv_0003"},
    };
    for (const Arguments& arguments : rows) {
        SCOPED_TRACE(joined(arguments));
        const ToolRun run = tool(arguments);
        EXPECT_EQ(run.exitStatus, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find("Run with --help for more information."), std::string::npos) << run.err;
    }

    const ToolRun help = tool({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    expectInOrder(help.out, {"--base-url", "--token", "--json", "create", "fetch", "confirm", "checkin", "checkout",
                             "pay", "folio", "charge", "demo"});
}

// A service that is not part of the tool: started here, reached only through --base-url and --token.
class VlmsdkPmsToolSeparateServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        pmssandbox::SandboxConfig config;
        config.token = "separate-token";
        config.pathPrefix = "api/v1";
        service = std::make_unique<pmssandbox::SandboxServer>(config);
        ASSERT_TRUE(service->start()) << service->lastError();
    }

    Arguments against(Arguments arguments, const std::string& token = "separate-token") const {
        arguments.insert(arguments.end(), {"--base-url", service->baseUrl(), "--token", token});
        return arguments;
    }

    std::unique_ptr<pmssandbox::SandboxServer> service;
};

TEST_F(VlmsdkPmsToolSeparateServiceTest, ToolTalksToTheServiceGivenByURLWithTheGivenToken) {
    const ToolRun run = tool(against({"--json", "fetch", "rsv_0009"}));
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(parsedDocument(run.out).at("velmoraID"), "rsv_0009");
    EXPECT_EQ(service->requestCount("GET", "guest/reservations/rsv_0009"), 1u);
    ASSERT_TRUE(service->lastRequest());
    EXPECT_EQ(service->lastRequest()->header("authorization"), "Bearer separate-token");

    // The flag reaches the service both ways.
    for (const auto& [flag, expected] : {std::pair{"--no-notify", false}, std::pair{"--notify", true}}) {
        SCOPED_TRACE(flag);
        const ToolRun confirmed = tool(against({"confirm", "rsv_0009", flag}));
        EXPECT_EQ(confirmed.exitStatus, 0) << confirmed.err;
        EXPECT_EQ(service->notifyMe("rsv_0009"), expected);
    }

    const ToolRun refused = tool(against({"fetch", "rsv_0009"}, "sandbox-token"));
    EXPECT_EQ(refused.exitStatus, 1);
    expectInOrder(refused.err, {"HTTP status:    401"});
}

TEST_F(VlmsdkPmsToolSeparateServiceTest, DemoChangesTheSeparateServicesData) {
    const ToolRun run = tool(against({"demo", "--json"}));
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    const nlohmann::json document = parsedDocument(run.out);
    EXPECT_EQ(document.at("completed"), true);
    EXPECT_EQ(document.at("embeddedService"), false);
    EXPECT_EQ(document.at("service"), service->baseUrl());
    EXPECT_EQ(service->notifyMe("rsv_0001"), true);
    EXPECT_EQ(service->requestCount(), 8u);

    // The stay is over on that service, so a second walk stops at check-in, saying why.
    const ToolRun again = tool(against({"demo"}));
    EXPECT_EQ(again.exitStatus, 1);
    expectInOrder(again.out, {"[3/8] Mobile check-in", "Failed:"});
    expectInOrder(again.err, {"checkin failed:", "HTTP status:    409"});
    EXPECT_EQ(again.out.find("[4/8]"), std::string::npos);
}

TEST_F(VlmsdkPmsToolSeparateServiceTest, AServiceThatDoesNotAnswerInTimeGivesAClearError) {
    // Far longer than the tool waits; stopping the service cuts it short.
    service->setFault(pmssandbox::Fault::delay(std::chrono::minutes(2)));
    const ToolRun run = tool(against({"--timeout", "0.2", "fetch", "rsv_0009"}));
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    expectInOrder(run.err, {"vlmsdk-pms: fetch failed:", "Timeout"});
}

}  // namespace
