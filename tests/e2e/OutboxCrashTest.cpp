// A host killed at random moments while its outbox sends 200 operations over 20 reservations through a
// service that drops connections, drops replies after acting and answers 503: once the outbox is empty, the
// service shows every operation exactly once and in order, and every outcome reached the host's handler.
#include "EndToEndSupport.h"
#include "OutboxCrashPlan.h"

#include <pmssandbox/Fault.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <thread>

extern char** environ;

using namespace std::chrono_literals;
using namespace e2e;
using pmssandbox::Fault;
namespace fs = std::filesystem;

namespace {

// The project's seed with twenty fresh bookings of one guest, each with its room and mobile check-in open.
std::string writeSeed(const std::string& directory) {
    nlohmann::json seed = nlohmann::json::parse(std::ifstream(PMS_SANDBOX_SEED_FILE));
    const nlohmann::json model = seed["bookings"][0];
    seed["bookings"] = nlohmann::json::array();
    for (int r = 0; r < kOutboxCrashReservations; ++r) {
        nlohmann::json booking = model;
        const std::string id = outboxCrashReservation(r);
        booking["id"] = id;
        booking["checkin_id"] = "chk_" + id;
        booking["confirmation_id"] = "CRASH-" + id;
        booking["reservation_number"] = "R-" + id;
        std::string room = id.substr(5);  // "c07" -> room "9c07"
        room.insert(room.begin(), '9');
        booking["room_number"] = room;
        booking["status"] = "reserved";
        booking["checkin_is_available"] = true;
        booking["on_platform"] = true;
        booking["folio"] = {{"folio_id", "fol_" + id}, {"transactions", nlohmann::json::array()}};
        seed["bookings"].push_back(booking);
    }
    const std::string path = directory + "/seed.json";
    std::ofstream(path) << seed.dump();
    return path;
}

pid_t spawnHost(const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
    return pid;
}

std::vector<std::string> lines(const std::string& path) {
    std::vector<std::string> all;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) all.push_back(line);
    return all;
}

}  // namespace

TEST(OutboxCrash, EveryOperationTakesEffectOnceInOrderAcrossKillsAndFaultsAndEveryOutcomeIsHandedOver) {
    char pattern[] = "/tmp/vlmsdk-outbox-crash-XXXXXX";
    const std::string directory = mkdtemp(pattern);
    pmssandbox::SandboxConfig config;
    config.seedFile = writeSeed(directory);
    config.token = kSandboxToken;
    pmssandbox::SandboxServer sandbox(config);
    ASSERT_TRUE(sandbox.start()) << sandbox.lastError();
    for (int round = 0; round < 4; ++round) {
        for (const char* method : {"POST", "PATCH"}) {
            sandbox.addFault(Fault::dropReply().matching(method, "guest/reservations").times(3));
            sandbox.addFault(Fault::dropConnection().matching(method, "guest/reservations").times(3));
            sandbox.addFault(Fault::forceStatus(503).matching(method, "guest/reservations").times(3));
        }
    }
    const std::string log = directory + "/host.log";
    const std::vector<std::string> host{OUTBOX_CRASH_HOST, directory + "/outbox.db", sandbox.baseUrl(), log};

    // The plan is stored whole before the first kill.
    pid_t pid = spawnHost(host);
    ASSERT_GT(pid, 0);
    const auto started = std::chrono::steady_clock::now();
    while (lines(log).empty() && std::chrono::steady_clock::now() - started < 30s) std::this_thread::sleep_for(20ms);
    ASSERT_FALSE(lines(log).empty()) << "the host never stored its plan";

    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("random seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> lifetime(5, 150);  // milliseconds until the next kill
    int kills = 0, status = 0;
    bool finished = false;
    while (!finished && std::chrono::steady_clock::now() - started < 100s) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(lifetime(random));
        while (!finished && std::chrono::steady_clock::now() < deadline) {
            finished = waitpid(pid, &status, WNOHANG) == pid;
            if (!finished) std::this_thread::sleep_for(5ms);
        }
        if (finished) break;
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        ++kills;
        pid = spawnHost(host);
        ASSERT_GT(pid, 0);
    }
    if (!finished) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    ASSERT_TRUE(finished) << "the outbox was not empty after " << kills << " kills";
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    RecordProperty("kills", kills);
    std::printf("outbox crash test: %d kills, %zu requests seen by the service\n", kills, sandbox.requestCount());

    // Every item's outcome reached the handler: once, or again after a kill only when marked redelivered.
    std::map<std::int64_t, int> handed;
    int redeliveries = 0;
    for (const std::string& line : lines(log)) {
        std::istringstream words(line);
        std::string word;
        std::int64_t id = 0;
        int kind = -1, redelivered = 0;
        if (!(words >> word) || word != "outcome") continue;
        words >> id >> kind >> redelivered;
        EXPECT_EQ(kind, static_cast<int>(VLMSDKOutboxOutcome::Kind::Succeeded)) << line;
        EXPECT_TRUE(handed[id]++ == 0 || redelivered == 1) << line;
        redeliveries += redelivered;
    }
    EXPECT_EQ(handed.size(), outboxCrashPlan().size());
    std::printf("outbox crash test: %d outcome(s) handed over again after a kill, marked redelivered\n", redeliveries);
    for (std::size_t id = 1; id <= outboxCrashPlan().size(); ++id) EXPECT_GE(handed[static_cast<std::int64_t>(id)], 1) << id;

    // The service shows each operation once, in the order enqueued.
    Client client(sandbox.baseUrl(), kSandboxToken, VLMSDKHTTPRequestManagerOptions::Transport::LibCurl);
    for (int r = 0; r < kOutboxCrashReservations; ++r) {
        const std::string id = outboxCrashReservation(r);
        SCOPED_TRACE(id);
        DeliveryLog delivered;
        folio(id)(client.api(), delivered);
        fetch(id)(client.api(), delivered);
        ASSERT_TRUE(delivered.waitFor(2));
        const auto bill = delivered.record<VLMSDKFolio>(0);
        const auto reservation = delivered.record<VLMSDKReservation>(1);
        ASSERT_TRUE(bill && reservation);
        std::vector<std::string> postings;
        for (const auto& line : bill->deliverables()) postings.push_back(line->code().value_or("?"));
        EXPECT_EQ(postings, outboxCrashPostings());
        EXPECT_EQ(reservation->status(), VLMSDKReservationStatusCheckedOut);
    }
    client.settle();
    fs::remove_all(directory);
}
