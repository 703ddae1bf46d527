// Fixture files: the documented format loads into a scripted request and reply, and anything else is refused
// with the file, the member and what it wants.
#include <VLMSDKPMSKitTesting/VLMSDKFixture.h>
#include <VLMSDKPMSKitTesting/VLMSDKScriptedRequestManager.h>

#include <VLMSDKCoreKit/VLMSDKMainQueue.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace {

class FixtureTest : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(directory_); }
    void TearDown() override {
        VLMSDKMainQueue::drain();
        std::filesystem::remove_all(directory_);
    }
    std::filesystem::path write(const std::string& name, const std::string& text) const {
        const auto file = directory_ / name;
        std::ofstream(file) << text;
        return file;
    }
    std::filesystem::path path(const std::string& name) const { return directory_ / name; }

private:
    std::filesystem::path directory_ = std::filesystem::temp_directory_path() /
                                       ("vlmsdk-fixture-test-" + std::to_string(getpid()) + "-" +
                                        testing::UnitTest::GetInstance()->current_test_info()->name());
};

TEST_F(FixtureTest, AFixtureFileScriptsTheRequestAndTheReplyTheKitReceives) {
    const auto file = write("001-GET-guest_reservations_rsv_1.json", R"({
        "request": {"method": "GET", "route": "guest/reservations/rsv_1"},
        "reply": {"status": 200, "headers": {"X-Request-Id": "r-1"}, "delayMilliseconds": 1,
                  "body": {"reservation": {"id": "rsv_1", "status": "in_house", "room_number": "412"}}}})");
    auto manager = std::make_shared<VLMSDKScriptedRequestManager>();
    std::string error;
    ASSERT_TRUE(manager->expectFixture(file, &error)) << error;
    std::shared_ptr<VLMSDKReservation> fetched;
    const VLMSDKAPIManager api(std::make_shared<VLMSDKRequestBuilder>("https://pms.invalid/v1/"), manager);
    fetchReservationWithID(api, std::string("rsv_1"), [&](auto reservation, auto) { fetched = reservation; });
    ASSERT_TRUE(manager->runUntilAnswered(std::chrono::seconds(60)));
    ASSERT_NE(fetched, nullptr);
    EXPECT_EQ(fetched->roomNumber(), "412");
    EXPECT_TRUE(manager->verify());

    // A body in the request must be equal; a fault needs no status; a reply alone names no request.
    const auto fault = write("fault.json", R"({"request": {"method": "POST", "route": "r", "body": {"amount": "5.00"}},
                                              "reply": {"fault": "timeout", "delayMilliseconds": 5}})");
    const auto loaded = VLMSDKFixture::load(fault);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->reply.fault, VLMSDKScriptedReply::Fault::Timeout);
    EXPECT_EQ(loaded->reply.delay, std::chrono::milliseconds(5));
    EXPECT_EQ(loaded->request->body->description, "equal to {\"amount\":\"5.00\"}");
    const auto replyOnly = write("reply-only.json", R"({"reply": {"status": 204, "bodyText": "plain"}})");
    ASSERT_TRUE(VLMSDKFixture::load(replyOnly));
    EXPECT_EQ(VLMSDKFixture::load(replyOnly)->reply.body, "plain");
    manager->setFailureReporter(nullptr);
    EXPECT_FALSE(manager->expectFixture(replyOnly, &error));
    EXPECT_NE(error.find("names no request"), std::string::npos) << error;
    EXPECT_EQ(manager->failures().size(), 1u);
}

TEST_F(FixtureTest, AMissingOrMalformedFileIsRefusedWithWhereAndWhat) {
    struct Row {
        const char* name;
        std::optional<std::string> text;  // absent: no such file
        const char* said;
    };
    const Row rows[] = {
        {"missing", std::nullopt, "no such file"},
        {"not JSON", R"({"reply": )", "not JSON: "},
        {"not an object", "[]", "the document: wants an object"},
        {"no reply", R"({"request": {"method": "GET", "route": "r"}})", "reply: is missing"},
        {"status as text", R"({"reply": {"status": "200"}})", "reply.status: wants a whole number from 100 to 599"},
        {"status out of range", R"({"reply": {"status": 42}})", "reply.status: wants a whole number from 100 to 599"},
        {"neither status nor fault", R"({"reply": {"body": {}}})", "reply: wants a status or a fault"},
        {"misspelt member", R"({"reply": {"status": 200, "stauts": 1}})", "reply.stauts: is not a member"},
        {"unknown fault", R"({"reply": {"fault": "reset"}})", "reply.fault: wants \"dropped-connection\" or \"timeout\""},
        {"two bodies", R"({"reply": {"status": 200, "body": {}, "bodyText": ""}})", "reply: takes body or bodyText"},
        {"header not text", R"({"reply": {"status": 200, "headers": {"X-Count": 1}}})", "reply.headers.X-Count: wants a string"},
        {"negative delay", R"({"reply": {"status": 200, "delayMilliseconds": -1}})", "reply.delayMilliseconds: wants"},
        {"request without route", R"({"request": {"method": "GET"}, "reply": {"status": 200}})", "request.route: is missing"},
        {"request with empty method", R"({"request": {"method": "", "route": "r"}, "reply": {"status": 200}})",
         "request.method: wants a method"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto file = row.text ? write("fixture.json", *row.text) : path("absent.json");
        std::string error;
        EXPECT_FALSE(VLMSDKFixture::load(file, &error));
        EXPECT_EQ(error.rfind(file.string() + ": ", 0), 0u) << error;
        EXPECT_NE(error.find(row.said), std::string::npos) << error;

        VLMSDKScriptedRequestManager manager;
        std::string reported;
        manager.setFailureReporter([&](const std::string& message) { reported = message; });
        EXPECT_FALSE(manager.expectFixture(file));
        EXPECT_NE(reported.find(error), std::string::npos) << reported;
    }
}

}  // namespace
