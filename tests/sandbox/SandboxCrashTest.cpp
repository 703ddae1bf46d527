// pms-sandbox killed in the middle of a burst of charges and payments: every change it made is whole.
#include "SandboxProcess.h"
#include "SandboxTestSupport.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace pmssandbox {
namespace {

using namespace std::chrono_literals;

// The first column of the first row of `sql`, as an integer.
std::int64_t scalar(sqlite3* database, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    std::int64_t value = -1;
    if (sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) == SQLITE_OK && sqlite3_step(statement) == SQLITE_ROW)
        value = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return value;
}

TEST(SandboxCrash, AKillDuringABurstLeavesEveryPostingWholeAndTheFileServable) {
    TemporaryStateFile file;
    SandboxProcess first({"--state", file.path(), "--port", "0", "--quiet"});
    ASSERT_NE(first.port(), 0) << first.output() << first.errors();
    ASSERT_EQ(request(first.port(), "GET", "guest/reservations/rsv_0003").status, 200);

    constexpr int kConnections = 8;
    constexpr int kMostEach = 2000;  // far more than get sent before the kill
    constexpr int kKillAfter = 150;
    std::mutex mutex;
    std::condition_variable progressed;
    int answered = 0;
    {
        std::vector<std::jthread> connections;
        for (int c = 0; c < kConnections; ++c) {
            connections.emplace_back([&, c] {
                httplib::Client client("127.0.0.1", first.port());
                client.set_keep_alive(true);
                client.set_read_timeout(10s);
                for (int i = 0; i < kMostEach; ++i) {
                    const bool charging = i % 2 == 0;
                    const httplib::Headers headers{
                        {"Authorization", "Bearer sandbox-token"},
                        {"Idempotency-Key", (charging ? "c-" : "p-") + std::to_string(c) + "-" + std::to_string(i)}};
                    const auto result =
                        charging ? client.Post("/guest/reservations/rsv_0003/charge", headers,
                                               R"({"deliverable_items": [{"item_id": "itm_parking", "quantity": 1}]})",
                                               "application/json")
                                 : client.Post("/guest/reservations/rsv_0003/transactions", headers,
                                               R"({"credit_card_id": "card_cassia_visa_0077", "amount": 25, "currency": "USD"})",
                                               "application/json");
                    if (!result) return;  // the service is gone
                    {
                        std::lock_guard lock(mutex);
                        ++answered;
                    }
                    progressed.notify_all();
                }
            });
        }
        std::unique_lock lock(mutex);
        progressed.wait_for(lock, 60s, [&] { return answered >= kKillAfter; });
        first.signal(SIGKILL);
    }
    EXPECT_EQ(first.wait(), 128 + SIGKILL);
    EXPECT_GE(answered, kKillAfter);

    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open_v2(file.path().c_str(), &database, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
    EXPECT_EQ(scalar(database, "SELECT COUNT(*) FROM pragma_integrity_check WHERE integrity_check != 'ok'"), 0);
    // Every payment has its folio line, and every line recording a payment has its payment.
    EXPECT_EQ(scalar(database, "SELECT COUNT(*) FROM payments WHERE id NOT IN "
                               "(SELECT payment_id FROM postings WHERE payment_id IS NOT NULL)"),
              0);
    EXPECT_EQ(scalar(database, "SELECT COUNT(*) FROM postings WHERE payment_id IS NOT NULL AND payment_id NOT IN "
                               "(SELECT id FROM payments)"),
              0);
    // Each balance is the sum of its lines.
    EXPECT_EQ(scalar(database, "SELECT COUNT(*) FROM bookings b WHERE outstanding_cents != "
                               "(SELECT COALESCE(SUM(cents), 0) FROM postings p WHERE p.booking_id = b.id)"),
              0);
    // A stored key and the change it reports committed together: one new line per success kept.
    const std::int64_t lines = scalar(database, "SELECT COUNT(*) FROM postings WHERE booking_id = 'rsv_0003'");
    const std::int64_t succeeded = scalar(database, "SELECT COUNT(*) FROM idempotency_keys WHERE status = 200");
    EXPECT_EQ(lines, 4 + succeeded);
    EXPECT_EQ(scalar(database, "SELECT COUNT(*) FROM payments"),
              scalar(database, "SELECT COUNT(*) FROM idempotency_keys WHERE status = 200 AND key LIKE 'p-%'"));
    EXPECT_GE(succeeded, kKillAfter);
    sqlite3_close(database);

    SandboxProcess second({"--state", file.path(), "--port", "0", "--quiet"});
    ASSERT_NE(second.port(), 0) << second.errors();
    const Reply folio = request(second.port(), "GET", "guest/reservations/rsv_0003/folio");
    EXPECT_EQ(folio.status, 200);
    EXPECT_EQ(folio.body["transactions"].size(), static_cast<std::size_t>(lines));
    const Reply replayed =
        request(second.port(), "POST", "guest/reservations/rsv_0003/charge",
                R"({"deliverable_items": [{"item_id": "itm_parking", "quantity": 1}]})", "Bearer sandbox-token",
                {{"Idempotency-Key", "c-0-0"}});
    EXPECT_EQ(replayed.header("Idempotency-Replayed"), "true") << replayed.text;
}

}  // namespace
}  // namespace pmssandbox
