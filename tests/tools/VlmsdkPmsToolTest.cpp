// The vlmsdk-pms tool as a user runs it: a process, its exit status and its two output streams.
#include "ToolProcess.h"

#include <pmssandbox/SandboxServer.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace {

using Arguments = std::vector<std::string>;

ToolRun tool(const Arguments& arguments) { return runTool(VLMSDK_PMS_EXE, arguments); }

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
    expectInOrder(run.out, {"[1/8] Create the reservation", "[2/8] Confirm rsv_0001", "[3/8] Mobile check-in",
                            "[4/8] Charge", "[5/8] Read the master bill", "[6/8] Pay the balance",
                            "[7/8] Mobile check-out", "[8/8] Read the reservation after check-out",
                            "Status:           checked out", "Stay complete: reservation rsv_0001"});
}

TEST(VlmsdkPmsToolTest, DemoWithJSONPrintsOneDocumentHoldingEveryStep) {
    const ToolRun run = tool({"demo", "--json"});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.err, "");
    const nlohmann::json document = parsedDocument(run.out);
    ASSERT_TRUE(document.is_object());
    EXPECT_EQ(document.at("completed"), true);
    const auto& steps = document.at("steps");
    const std::vector<std::string> expected{"create", "confirm", "checkin", "charge", "folio", "pay", "checkout", "fetch"};
    ASSERT_EQ(steps.size(), expected.size());
    for (std::size_t index = 0; index < expected.size(); ++index) {
        SCOPED_TRACE(expected[index]);
        EXPECT_EQ(steps[index].at("operation"), expected[index]);
        EXPECT_TRUE(steps[index].at("result").is_object());
    }
    EXPECT_EQ(steps[7].at("result").at("status"), "checked_out");
}

TEST(VlmsdkPmsToolTest, AFailingFetchExitsOneWithTheServersMessageOnStandardError) {
    const ToolRun run = tool({"fetch", "rsv_nope"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    expectInOrder(run.err, {"vlmsdk-pms: fetch failed:", "HTTP status:    404",
                            "Server message: No reservation has the id 'rsv_nope'."});
}

TEST(VlmsdkPmsToolTest, UsageErrorsExitTwoWithoutRunningAnything) {
    const Arguments rows[] = {
        {},
        {"nonsense"},
        {"fetch"},
        {"charge", "rsv_0003", "itm_breakfast:two"},
    };
    for (const Arguments& arguments : rows) {
        SCOPED_TRACE(arguments.empty() ? "(no arguments)" : arguments.back());
        const ToolRun run = tool(arguments);
        EXPECT_EQ(run.exitStatus, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find("Run with --help for more information."), std::string::npos) << run.err;
    }
}

// A service that is not part of the tool: started here, reached only through --base-url and --token.
TEST(VlmsdkPmsToolTest, ToolTalksToTheServiceGivenByURLWithTheGivenToken) {
    pmssandbox::SandboxConfig config;
    config.token = "separate-token";
    config.pathPrefix = "api/v1";
    pmssandbox::SandboxServer service(config);
    ASSERT_TRUE(service.start()) << service.lastError();

    const ToolRun run =
        tool({"--json", "fetch", "rsv_0009", "--base-url", service.baseUrl(), "--token", "separate-token"});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(parsedDocument(run.out).at("velmoraID"), "rsv_0009");
    EXPECT_EQ(service.requestCount("GET", "guest/reservations/rsv_0009"), 1u);

    const ToolRun refused = tool({"fetch", "rsv_0009", "--base-url", service.baseUrl(), "--token", "sandbox-token"});
    EXPECT_EQ(refused.exitStatus, 1);
    expectInOrder(refused.err, {"HTTP status:    401"});
}

}  // namespace
