#include "SandboxTestSupport.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

extern char** environ;

namespace pmssandbox::testing {
namespace {

using nlohmann::json;

TEST(SandboxLifecycle, StopAndStartAgainKeepsTheData) {
    SandboxServer sandbox;
    EXPECT_FALSE(sandbox.isRunning());
    EXPECT_EQ(sandbox.baseUrl(), "");
    for (int cycle = 0; cycle < 3; ++cycle) {
        SCOPED_TRACE(cycle);
        auto port = sandbox.start();
        ASSERT_TRUE(port) << sandbox.lastError();
        EXPECT_EQ(sandbox.start(), port);  // already running: same port
        EXPECT_EQ(sandbox.port(), *port);
        EXPECT_EQ(sandbox.baseUrl(), "http://127.0.0.1:" + std::to_string(*port) + "/");
        SandboxClient client(*port);
        Reply reply = client.send("GET", "guest/reservations/rsv_0011");
        ASSERT_EQ(reply.status, 200);
        // Checked in during the first cycle, still in house in the later ones.
        if (cycle == 0) EXPECT_EQ(client.send("PATCH", "guest/reservations/rsv_0011/mobile_checkin").status, 200);
        else EXPECT_EQ(reply.json["reservation"]["status"], "in_house");

        sandbox.stop();
        sandbox.stop();
        EXPECT_FALSE(sandbox.isRunning());
        EXPECT_EQ(sandbox.port(), 0);
        EXPECT_EQ(client.send("GET", "guest/reservations/rsv_0011").error, httplib::Error::Connection);
    }
}

TEST(SandboxLifecycle, DestructorStopsTheServer) {
    int port = 0;
    {
        SandboxServer sandbox;
        port = sandbox.start().value_or(0);
        ASSERT_NE(port, 0);
        SandboxClient(port).send("GET", "guest/reservations/rsv_0003");
    }
    EXPECT_EQ(SandboxClient(port).send("GET", "guest/reservations/rsv_0003").error, httplib::Error::Connection);
}

TEST(SandboxLifecycle, TakenPortFailsToStart) {
    SandboxServer first;
    auto port = first.start();
    ASSERT_TRUE(port);
    SandboxConfig config;
    config.port = *port;
    SandboxServer second(config);
    EXPECT_FALSE(second.start());
    EXPECT_NE(second.lastError().find(std::to_string(*port)), std::string::npos) << second.lastError();
    EXPECT_EQ(SandboxClient(*port).send("GET", "guest/reservations/rsv_0003").status, 200);
}

TEST(SandboxLifecycle, BadSeedsAreRefusedWithTheReason) {
    auto edited = [](auto change) {
        json seed = minimalSeed();
        change(seed);
        return seed.dump();
    };
    struct Case {
        std::string seed;
        const char* reason;
    };
    const Case cases[] = {
        {"{ not json", "not valid JSON"},
        {edited([](json& s) { s.erase("venues"); }), "venues"},
        {edited([](json& s) { s["bookings"][0]["venue_id"] = "v9"; }), "bookings[0].venue_id"},
        {edited([](json& s) { s["bookings"][0]["user_id"] = "u9"; }), "bookings[0].user_id"},
        {edited([](json& s) { s["bookings"][0]["status"] = "gone"; }), "bookings[0].status"},
        {edited([](json& s) { s["bookings"][0]["currency_code"] = "EUR"; }), "bookings[0].currency_code"},
        {edited([](json& s) { s["bookings"][0]["checkout_date"] = "2030-13-01"; }), "checkout_date"},
        {edited([](json& s) { s["bookings"][0]["guests"] = json::array(); }), "bookings[0].guests"},
        {edited([](json& s) {
             for (int i = 0; i < 3; ++i) s["bookings"][0]["guests"].push_back(s["bookings"][0]["guests"][0]);
         }),
         "bookings[0].guests"},
        {edited([](json& s) { s["bookings"].push_back(seedBooking("b1", "REF-9", "reserved", "")); }), "bookings[1].id"},
        {edited([](json& s) { s["bookings"].push_back(seedBooking("b2", "ref-1", "reserved", "")); }),
         "bookings[1].confirmation_id"},
        {edited([](json& s) { s["bookings"][0]["folio"]["transactions"].push_back({{"posting_name", "X"},
                                                                                    {"posting_code", "X"},
                                                                                    {"amount", "1.234"},
                                                                                    {"currency_code", "USD"}}); }),
         "transactions[0].amount"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.seed);
        SandboxConfig config;
        config.seedJson = c.seed;
        SandboxServer sandbox(config);
        EXPECT_FALSE(sandbox.start());
        EXPECT_NE(sandbox.lastError().find(c.reason), std::string::npos) << sandbox.lastError();
    }
}

TEST(SandboxLifecycle, SeedFileReplacesTheBuiltInBookings) {
    const auto path = std::filesystem::temp_directory_path() / ("pms-sandbox-seed-" + std::to_string(getpid()) + ".json");
    std::ofstream(path) << minimalSeed().dump();
    SandboxConfig config;
    config.seedFile = path.string();
    SandboxServer sandbox(config);
    auto port = sandbox.start();
    std::filesystem::remove(path);
    ASSERT_TRUE(port) << sandbox.lastError();
    SandboxClient client(*port);
    EXPECT_EQ(client.send("GET", "guest/reservations/b1").status, 200);
    EXPECT_EQ(client.send("GET", "guest/reservations/rsv_0003").status, 404);

    config.seedFile = path.string() + ".missing";
    SandboxServer missing(config);
    EXPECT_FALSE(missing.start());
    EXPECT_NE(missing.lastError().find("cannot read"), std::string::npos);
}

TEST_F(SandboxTest, ConcurrentClientsLoseNoUpdate) {
    constexpr int kThreads = 6;
    constexpr int kChargesEach = 10;
    const json gymPass{{"deliverable_items", {{{"item_id", "itm_gym_pass"}, {"quantity", 1}}}}};
    // The HTTP client keeps function-local statics in an uninstrumented library; building them here,
    // before any thread starts, gives ThreadSanitizer an ordering it could not see otherwise.
    ASSERT_EQ(client->send("POST", "guest/reservations/rsv_0011/charge", gymPass).status, 200);
    std::vector<std::thread> threads;
    std::vector<int> failures(kThreads, 0);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            SandboxClient own(port);
            for (int i = 0; i < kChargesEach; ++i) {
                if (own.send("POST", "guest/reservations/rsv_0011/charge", gymPass).status != 200) ++failures[t];
                if (own.send("GET", "guest/reservations/rsv_0011").status != 200) ++failures[t];
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;

    constexpr int kCharges = kThreads * kChargesEach + 1;
    EXPECT_DOUBLE_EQ(client->outstanding("rsv_0011"), kCharges * 10.0);
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0011/folio").json["transactions"].size(),
              static_cast<std::size_t>(kCharges));
    EXPECT_EQ(sandbox->requestCount("POST", ""), static_cast<std::size_t>(kCharges));
}

#ifdef PMS_SANDBOX_EXE
TEST(SandboxExecutable, ServesUntilTerminated) {
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    std::vector<std::string> args{PMS_SANDBOX_EXE, "--token", "exe-token", "--prefix", "p"};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_t child = 0;
    ASSERT_EQ(posix_spawn(&child, PMS_SANDBOX_EXE, &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);

    std::string line;
    pollfd readable{out[0], POLLIN, 0};
    char c = 0;
    // The bound only stops a broken binary from hanging the suite.
    while (line.find('\n') == std::string::npos && poll(&readable, 1, 10000) > 0 && read(out[0], &c, 1) == 1)
        line += c;
    close(out[0]);

    const std::string prefix = "pms-sandbox listening on http://127.0.0.1:";
    ASSERT_EQ(line.substr(0, prefix.size()), prefix) << line;
    const int port = std::stoi(line.substr(prefix.size()));
    EXPECT_EQ(line.substr(line.find('/', prefix.size())), "/p/\n");
    EXPECT_EQ(SandboxClient(port, "/p/", "exe-token").send("GET", "guest/reservations/rsv_0003").status, 200);

    kill(child, SIGTERM);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
#endif

}  // namespace
}  // namespace pmssandbox::testing
