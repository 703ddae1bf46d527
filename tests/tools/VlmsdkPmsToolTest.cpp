// The vlmsdk-pms tool as a user runs it: a process, its exit status and its two output streams.
#include "ToolProcess.h"

#include <pmssandbox/SandboxServer.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using Arguments = std::vector<std::string>;

const std::string fallbackNotice =
    "vlmsdk-pms: no background pms-sandbox is running, so this command has one of its own, whose changes end "
    "with it (keep one running with: vlmsdk-pms sandbox start)\n";

// Every run keeps its state in a directory of its own, never in the user's, and leaves no service behind.
class VlmsdkPmsToolTest : public ::testing::Test {
protected:
    void TearDown() override {
        tool({"sandbox", "stop"});
        std::filesystem::remove_all(stateHome_);
    }
    ToolRun tool(const Arguments& arguments) const {
        return runTool(VLMSDK_PMS_EXE, arguments, {"XDG_STATE_HOME=" + stateHome_.string()});
    }

private:
    std::filesystem::path stateHome_ =
        std::filesystem::temp_directory_path() /
        ("vlmsdk-pms-test-" + std::to_string(getpid()) + "-" +
         ::testing::UnitTest::GetInstance()->current_test_info()->name());
};

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

TEST_F(VlmsdkPmsToolTest, DemoWalksTheWholeStayAndPrintsEveryStep) {
    const ToolRun run = tool({"demo"});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.err, fallbackNotice);
    expectInOrder(run.out, {"[1/8] Create the reservation", "[2/8] Confirm rsv_0001", "[3/8] Mobile check-in",
                            "[4/8] Charge", "[5/8] Read the master bill", "[6/8] Pay the balance",
                            "[7/8] Mobile check-out", "[8/8] Read the reservation after check-out",
                            "Status:           checked out", "Stay complete: reservation rsv_0001"});
}

TEST_F(VlmsdkPmsToolTest, DemoWithJSONPrintsOneDocumentHoldingEveryStep) {
    const ToolRun run = tool({"demo", "--json"});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.err, fallbackNotice);
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

TEST_F(VlmsdkPmsToolTest, AFailingFetchExitsOneWithTheServersMessageOnStandardError) {
    const ToolRun run = tool({"fetch", "rsv_nope"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    expectInOrder(run.err, {"vlmsdk-pms: fetch failed:", "HTTP status:    404",
                            "Server message: No reservation has the id 'rsv_nope'."});
}

TEST_F(VlmsdkPmsToolTest, UsageErrorsExitTwoWithoutRunningAnything) {
    const Arguments rows[] = {
        {},
        {"nonsense"},
        {"fetch"},
        {"charge", "rsv_0003", "itm_breakfast:two"},
        {"sandbox"},
        {"sandbox", "start", "--port", "http"},
        {"sandbox", "fault"},
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
TEST_F(VlmsdkPmsToolTest, ToolTalksToTheServiceGivenByURLWithTheGivenToken) {
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

// The background service: five commands, five processes, one stay; its admin API through the tool.
TEST_F(VlmsdkPmsToolTest, SeparateCommandsShareTheBackgroundServiceUntilItStops) {
    EXPECT_EQ(tool({"sandbox", "status"}).exitStatus, 3);
    const ToolRun started = tool({"sandbox", "start", "--port", "0"});
    ASSERT_EQ(started.exitStatus, 0) << started.err;
    expectInOrder(started.out, {"running at http://127.0.0.1:", "dashboard: http://127.0.0.1:", "#token=sandbox-token"});

    const Arguments stay[] = {
        {"create", "--confirmation", "FHL-20931", "--venue", "ven_fernhill", "--last-name", "Moorhen"},
        {"checkin", "rsv_0005"},
        {"pay", "rsv_0005", "--card", "card_elspeth_mc_4444", "--amount", "7.50", "--currency", "EUR"},
        {"charge", "rsv_0005", "itm_spa_pass:2"},
        {"checkout", "rsv_0005"},
    };
    for (const Arguments& command : stay) {
        SCOPED_TRACE(command.front());
        const ToolRun run = tool(command);
        EXPECT_EQ(run.exitStatus, 0) << run.err;
        EXPECT_EQ(run.err, "");
    }
    const nlohmann::json listed = parsedDocument(tool({"--json", "sandbox", "list"}).out);
    EXPECT_EQ(listed.at("reservations").at(4).at("status"), "checked_out");
    EXPECT_EQ(listed.at("reservations").at(4).at("folio").at("outstanding"), 90.0);
    const nlohmann::json log = parsedDocument(tool({"--json", "sandbox", "log"}).out);
    ASSERT_EQ(log.at("requests").size(), 5u);
    EXPECT_EQ(log.at("requests").at(2).at("path"), "/guest/reservations/rsv_0005/transactions");

    // A fault set through the tool hits the next matching command, then runs out.
    EXPECT_EQ(tool({"sandbox", "fault", "add"}).exitStatus, 2);
    ASSERT_EQ(tool({"sandbox", "fault", "add", "--status", "503", "--retry-after", "1", "--method", "GET", "--times", "1"})
                  .exitStatus,
              0);
    expectInOrder(tool({"sandbox", "fault", "list"}).out, {"1. status 503 with Retry-After 1 s on GET any path, 1 left"});
    expectInOrder(tool({"fetch", "rsv_0005"}).err, {"HTTP status:    503"});
    EXPECT_EQ(tool({"fetch", "rsv_0005"}).exitStatus, 0);

    ASSERT_EQ(tool({"sandbox", "reset"}).exitStatus, 0);
    EXPECT_EQ(parsedDocument(tool({"--json", "fetch", "rsv_0005"}).out).at("status"), "reserved");
    expectInOrder(tool({"sandbox", "stop"}).out, {"pms-sandbox stopped (pid "});
    EXPECT_EQ(tool({"sandbox", "status"}).exitStatus, 3);
    EXPECT_EQ(tool({"sandbox", "list"}).exitStatus, 3);
}

}  // namespace
