// The outbox's costs, against the local service run in this process (127.0.0.1 only):
//  1. enqueue: the wall time of `--items` enqueues, each a synchronous commit to the file (p50, p99, mean);
//  2. the file: its size (database and write-ahead log) per pending item;
//  3. drain: the same items sent to the local service once the outbox resumes, over `--reservations`
//     reservations (one item of each on the wire at a time): items per second until empty.
// Bounded in count (at most 5000 items) and time (the drain gives up after 120 s).
//
//   vlmsdk-bench-outbox [--items 500] [--reservations 4] [--directory DIR] [--json FILE]
#include "BenchSupport.h"

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKMainQueue.h>
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>
#include <pmssandbox/SandboxServer.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

using namespace vlmsdk::bench;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

constexpr const char* kUsage =
    "usage: vlmsdk-bench-outbox [--items N] [--reservations N] [--directory DIR] [--json FILE]\n";

// Reservations of the seed on the platform and not checked out: each takes charges.
// (reservation, an item its venue sells)
const std::pair<const char*, const char*> kInHouse[] = {{"rsv_0003", "itm_breakfast"},
                                                        {"rsv_0005", "itm_spa_pass"},
                                                        {"rsv_0009", "itm_afternoon_tea"},
                                                        {"rsv_0011", "itm_airport_shuttle"}};

std::uintmax_t sizeOr0(const fs::path& path) {
    std::error_code ignored;
    const auto size = fs::file_size(path, ignored);
    return ignored ? 0 : size;
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine commandLine(argc, argv);
    const auto items = static_cast<std::size_t>(commandLine.number("items", 500));
    const auto reservations = static_cast<std::size_t>(commandLine.number("reservations", 4));
    const std::string directoryOption = commandLine.text("directory", "");
    const std::string jsonPath = commandLine.text("json", "");
    auto problems = commandLine.problems();
    if (items == 0 || items > 5000) problems.push_back("--items wants 1 to 5000");
    if (reservations == 0 || reservations > std::size(kInHouse)) problems.push_back("--reservations wants 1 to 4");
    if (commandLine.wantsHelp() || !problems.empty()) {
        for (const auto& problem : problems) std::fprintf(stderr, "vlmsdk-bench-outbox: %s\n", problem.c_str());
        std::fputs(kUsage, problems.empty() ? stdout : stderr);
        return problems.empty() ? 0 : 2;
    }
    printMachine("vlmsdk-bench-outbox");
    pmssandbox::SandboxServer service;
    if (!service.start()) {
        std::fprintf(stderr, "vlmsdk-bench-outbox: the local service did not start: %s\n", service.lastError().c_str());
        return 1;
    }
    // The file goes where the caller says (the disk being measured); a fresh directory under /tmp otherwise.
    std::string directory = directoryOption;
    if (directory.empty()) {
        char pattern[] = "/tmp/vlmsdk-bench-outbox-XXXXXX";
        directory = mkdtemp(pattern);
    }
    const fs::path file = fs::path(directory) / "bench-outbox.db";
    fs::remove(file);
    fs::remove(file.string() + "-wal");

    auto builder = std::make_shared<VLMSDKRequestBuilder>(service.baseUrl());
    builder->setAccessToken(std::string("sandbox-token"));
    auto manager = std::make_shared<VLMSDKHTTPRequestManager>();
    VLMSDKOutboxOptions options;
    options.path = file.string();
    VLMErrorPtr error;
    auto outbox = VLMSDKOutbox::open(VLMSDKAPIManager(builder, manager), options, &error);
    if (!outbox) {
        std::fprintf(stderr, "vlmsdk-bench-outbox: %s\n", error->developerMessage().c_str());
        return 1;
    }
    std::size_t succeeded = 0, failed = 0;
    outbox->setOutcomeHandler([&](const VLMSDKOutboxOutcome& outcome) {
        ++(outcome.kind == VLMSDKOutboxOutcome::Kind::Succeeded ? succeeded : failed);
        if (failed == 1 && outcome.error) std::printf("  failed: %s\n", outcome.error->developerMessage().c_str());
    });
    nlohmann::json report = reportHeader("vlmsdk-bench-outbox", VLMSDK_BENCH_BUILD_TYPE);

    // 1. Enqueue, nothing sent meanwhile: what a caller waits for before `enqueue...` returns.
    outbox->suspend();
    std::vector<double> microseconds;
    const auto cpuBefore = processUsage();
    for (std::size_t i = 0; i < items; ++i) {
        const auto started = Clock::now();
        const auto& [reservation, item] = kInHouse[i % reservations];
        if (!outbox->enqueueCharge(reservation, {{item, 1}}, &error)) {
            std::fprintf(stderr, "vlmsdk-bench-outbox: %s\n", error->developerMessage().c_str());
            return 1;
        }
        microseconds.push_back(secondsBetween(started, Clock::now()) * 1e6);
    }
    const double cpu = (processUsage() - cpuBefore).cpuMicroseconds() / static_cast<double>(items);
    double total = 0;
    for (double value : microseconds) total += value;
    const double p50 = quantile(microseconds, 0.5), p99 = quantile(microseconds, 0.99);
    std::printf("enqueue: %zu charges, each a synchronous commit: p50 %.0f us, p99 %.0f us, mean %.0f us; CPU %.0f us "
                "per enqueue\n",
                items, p50, p99, total / static_cast<double>(items), cpu);
    report["enqueue"] = {{"items", items}, {"p50Microseconds", p50}, {"p99Microseconds", p99},
                         {"meanMicroseconds", total / static_cast<double>(items)}, {"cpuMicroseconds", cpu}};

    // 2. The file while they are pending.
    const auto bytes = sizeOr0(file) + sizeOr0(file.string() + "-wal");
    std::printf("file: %ju bytes (database and log) for %zu pending items: %.0f bytes per item\n", bytes, items,
                static_cast<double>(bytes) / static_cast<double>(items));
    report["file"] = {{"bytes", bytes}, {"bytesPerItem", static_cast<double>(bytes) / static_cast<double>(items)}};

    // 3. Drain: resumed, until every outcome is handed over.
    const auto started = Clock::now();
    outbox->resume();
    VLMSDKMainQueue::runUntil([&] { return succeeded + failed == items; }, 120s);
    const double seconds = secondsBetween(started, Clock::now());
    std::printf("drain: %zu items over %zu reservation(s) in %.2f s: %.0f items/s (%zu succeeded, %zu failed)\n",
                succeeded + failed, reservations, seconds, static_cast<double>(succeeded + failed) / seconds,
                succeeded, failed);
    report["drain"] = {{"items", succeeded + failed}, {"reservations", reservations}, {"seconds", seconds},
                       {"itemsPerSecond", static_cast<double>(succeeded + failed) / seconds},
                       {"succeeded", succeeded}, {"failed", failed}};
    outbox.reset();
    manager->shutdown();
    VLMSDKMainQueue::drain();
    if (directoryOption.empty()) fs::remove_all(directory);
    if (!writeReport(jsonPath, report)) return 1;
    return succeeded == items ? 0 : 1;
}
