// vlmsdk-bench-memory: what requests cost while they wait. Issues many fetches at once through the kit
// while the loopback server holds its answers back, so that the HTTP request manager has its live
// transfers on the wire and queues the rest; reads the heap in use, the resident set and the thread count
// before, while queued, while the answers stream in, and after.

#include "BenchReplies.h"
#include "BenchSupport.h"
#include "LoopbackServer.h"

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <malloc.h>

#ifndef VLMSDK_BENCH_BUILD_TYPE
#define VLMSDK_BENCH_BUILD_TYPE "unknown"
#endif

namespace {

using namespace vlmsdk::bench;

struct Snapshot {
    double heapKB = 0;  // bytes the allocator has handed out and not taken back
    long rssKB = 0;
    long threads = 0;
};

Snapshot snapshot() {
    const struct mallinfo2 info = mallinfo2();
    Snapshot s;
    s.heapKB = static_cast<double>(info.uordblks + info.hblkhd) / 1024;
    s.rssKB = procStatusField("VmRSS").value_or(0);
    s.threads = procStatusField("Threads").value_or(0);
    return s;
}

void printSnapshot(const char* label, const Snapshot& s) {
    std::printf("  %-44s heap in use %9.0f KB  RSS %7ld KB  threads %ld\n", label, s.heapKB, s.rssKB, s.threads);
}

// Fetches `count` reservations at once and pumps the main queue until every completion has run.
class Batch {
public:
    explicit Batch(const VLMSDKAPIManager& api) : api_(api) {}

    void issue(std::size_t count) {
        expected_ += count;
        for (std::size_t i = 0; i < count; ++i) {
            fetchReservationWithID(api_, id_, [this](std::shared_ptr<VLMSDKReservation> reservation, VLMErrorPtr error) {
                ++done_;
                if (!reservation || error || reservation->guests().size() != 3) ++failed_;
                // Sampled while the answers stream in: the thread count must stay where it was.
                if (done_ % 250 == 0) {
                    const Snapshot s = snapshot();
                    peakThreads_ = std::max(peakThreads_, s.threads);
                    peakRSS_ = std::max(peakRSS_, s.rssKB);
                }
            });
        }
    }

    void wait() {
        VLMSDKMainQueue::runUntil([this] { return done_ == expected_; }, std::chrono::minutes(5));
    }

    std::size_t failed() const { return failed_; }
    std::size_t unanswered() const { return expected_ - done_; }
    long peakThreads() const { return peakThreads_; }
    long peakRSS() const { return peakRSS_; }

private:
    const VLMSDKAPIManager& api_;
    const std::optional<std::string> id_ = std::string(kReservationID);
    std::size_t expected_ = 0;
    std::size_t done_ = 0;
    std::size_t failed_ = 0;
    long peakThreads_ = 0;
    long peakRSS_ = 0;
};

constexpr const char* kUsage =
    "usage: vlmsdk-bench-memory [--requests N] [--mode automatic|pumped|threaded] [--json FILE]\n"
    "  Issues N fetches at once (default 10000) while the loopback server holds its answers, then lets them\n"
    "  through; prints heap in use, resident set and thread count before, while queued, during and after.\n"
    "  --mode is the request manager's (default automatic: pumped here, as no executor is installed).\n";

}  // namespace

int main(int argc, char** argv) {
    CommandLine commandLine(argc, argv);
    const auto requests = static_cast<std::size_t>(commandLine.number("requests", 10000));
    const std::string modeName = commandLine.text("mode", "automatic");
    const std::string jsonPath = commandLine.text("json", "");
    auto problems = commandLine.problems();
    if (requests == 0) problems.push_back("--requests wants at least 1");
    VLMSDKHTTPRequestManagerOptions options;
    if (modeName == "pumped") {
        options.mode = VLMSDKHTTPRequestManagerOptions::Mode::Pumped;
    } else if (modeName == "threaded") {
        options.mode = VLMSDKHTTPRequestManagerOptions::Mode::Threaded;
    } else if (modeName != "automatic") {
        problems.push_back("--mode wants automatic, pumped or threaded");
    }
    if (commandLine.wantsHelp() || !problems.empty()) {
        for (const auto& problem : problems) std::fprintf(stderr, "vlmsdk-bench-memory: %s\n", problem.c_str());
        std::fputs(kUsage, problems.empty() ? stdout : stderr);
        return problems.empty() ? 0 : 2;
    }

    std::string error;
    const auto server = LoopbackServer::start(reservationReply(), &error);
    if (!server) {
        std::fprintf(stderr, "vlmsdk-bench-memory: cannot start the loopback server: %s\n", error.c_str());
        return 1;
    }
    printMachine("vlmsdk-bench-memory");

    const Snapshot start = snapshot();
    auto manager = std::make_shared<VLMSDKHTTPRequestManager>(options);
    const std::size_t live = manager->options().maximumLiveTransfers;
    VLMSDKAPIManager api(std::make_shared<VLMSDKRequestBuilder>(server->baseURL()), manager);
    std::printf("build type %s; %zu fetches at once; the manager (mode %s) keeps at most %zu on the wire\n",
                VLMSDK_BENCH_BUILD_TYPE, requests, modeName.c_str(), live);

    Batch batch(api);
    // Warm-up at full width: every transfer, connection, mapping and allocator arena the load needs exists
    // before the first reading.
    for (int round = 0; round < 3; ++round) {
        batch.issue(4 * live);
        batch.wait();
    }
    const Snapshot before = snapshot();

    server->pause();
    const std::size_t sent0 = manager->statistics().requestsSent;
    const auto issueStart = Clock::now();
    batch.issue(requests);
    const double issueSeconds = secondsBetween(issueStart, Clock::now());
    // Pump (the pumped mode moves only then) until the manager has put its share on the wire and queued
    // the rest, and a little longer.
    const std::size_t onWire = std::min(requests, live);
    VLMSDKMainQueue::runUntil([&] { return manager->statistics().requestsSent - sent0 >= onWire; },
                              std::chrono::seconds(5));
    VLMSDKMainQueue::runFor(std::chrono::milliseconds(200));
    const Snapshot queued = snapshot();
    const std::size_t sentWhileQueued = manager->statistics().requestsSent - sent0;

    server->resume();
    batch.wait();
    const Snapshot after = snapshot();

    std::printf("\n");
    printSnapshot("at start (before the request manager)", start);
    printSnapshot("after warm-up, nothing in flight", before);
    printSnapshot("all issued, server holding its answers", queued);
    std::printf("  %-44s RSS %7ld KB  threads %ld (peaks sampled every 250 completions)\n",
                "while the answers stream in", batch.peakRSS(), batch.peakThreads());
    printSnapshot("after every completion ran", after);

    const double n = static_cast<double>(requests);
    std::printf("\n%zu requests issued in %.1f ms (%.2f us each); %zu on the wire, %zu queued in the manager\n",
                requests, issueSeconds * 1e3, issueSeconds * 1e6 / n, sentWhileQueued, requests - sentWhileQueued);
    std::printf("per queued request (no reply body exists yet): heap %.0f bytes, RSS %.0f bytes\n",
                (queued.heapKB - before.heapKB) * 1024 / n, static_cast<double>(queued.rssKB - before.rssKB) * 1024 / n);
    std::printf("threads: %ld before, %ld queued, %ld at most while answering, %ld after\n", before.threads,
                queued.threads, std::max(batch.peakThreads(), queued.threads), after.threads);
    std::printf("server: %llu requests answered on %llu connection(s)\n",
                static_cast<unsigned long long>(server->requestsAnswered()),
                static_cast<unsigned long long>(server->connectionsAccepted()));
    std::printf("\ntarget: at most 4 KB per queued request beyond the reply bodies; thread count flat (the pumped\n"
                "        mode runs no thread of its own)\n");

    nlohmann::json report = reportHeader("vlmsdk-bench-memory", VLMSDK_BENCH_BUILD_TYPE);
    report["settings"] = {{"requests", requests}, {"mode", modeName}, {"live_transfers", live}};
    report["results"] = {
        {"heap_bytes_per_queued_request", (queued.heapKB - before.heapKB) * 1024 / n},
        {"rss_bytes_per_queued_request", static_cast<double>(queued.rssKB - before.rssKB) * 1024 / n},
        {"issue_us_per_request", issueSeconds * 1e6 / n},
        {"threads", {{"at_start", start.threads}, {"before", before.threads}, {"queued", queued.threads},
                     {"peak_answering", std::max(batch.peakThreads(), queued.threads)}, {"after", after.threads}}},
        {"failed", batch.failed()},
        {"unanswered", batch.unanswered()}};
    const bool written = writeReport(jsonPath, report);
    if (batch.failed() || batch.unanswered()) {
        std::printf("WARNING: %zu fetch(es) failed, %zu unanswered\n", batch.failed(), batch.unanswered());
        return 1;
    }
    return written ? 0 : 1;
}
