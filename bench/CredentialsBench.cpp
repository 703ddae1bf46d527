// Tokens that refresh themselves, against the local service run in this process (127.0.0.1 only):
//  1. a burst: `--requests` fetches started together while the cached token has expired: how many token
//     fetches, completions and authentication errors;
//  2. the CPU a cached token costs each request (the lookup before each send);
//  3. a run: `--threads` callers fetching and charging for `--seconds` with tokens living `--ttl` seconds:
//     authentication errors, and token fetches against the tokens' expiries.
// Both are bounded in count and time.
//
//   vlmsdk-bench-credentials [--requests 1000] [--seconds 10] [--threads 4] [--ttl 2] [--json FILE]
#include "BenchSupport.h"

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKMainQueue.h>
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>
#include <PMSSandboxCredentials.h>
#include <pmssandbox/SandboxServer.h>

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

using namespace vlmsdk::bench;
using namespace std::chrono_literals;

namespace {

constexpr const char* kUsage =
    "usage: vlmsdk-bench-credentials [--requests N] [--seconds S] [--threads N] [--ttl S] [--json FILE]\n";


// Outcomes counted on the main thread, where completions run.
struct Tally {
    std::size_t done = 0, authentication = 0, other = 0;
    void count(const VLMErrorPtr& error) {
        ++done;
        if (!error) return;
        const bool refused = error->code() == VLMErrorCode::Authentication ||
                             (error->httpStatusCode() && *error->httpStatusCode() == 401);
        ++(refused ? authentication : other);
        if (other + authentication <= 3) std::printf("  error: %s\n", error->developerMessage().c_str());
    }
};

std::shared_ptr<VLMSDKRequestBuilder> builderFor(const pmssandbox::SandboxServer& service, const std::string& token,
                                                 int ttl) {
    auto builder = std::make_shared<VLMSDKRequestBuilder>(service.baseUrl());
    builder->setCredentialsProvider(std::make_shared<PMSSandboxCredentials>(service.baseUrl(), token, std::chrono::seconds(ttl)));
    return builder;
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine commandLine(argc, argv);
    const auto requests = static_cast<std::size_t>(commandLine.number("requests", 1000));
    const double seconds = commandLine.number("seconds", 10);
    const auto threads = static_cast<int>(commandLine.number("threads", 4));
    const auto ttl = static_cast<int>(commandLine.number("ttl", 2));
    const std::string jsonPath = commandLine.text("json", "");
    auto problems = commandLine.problems();
    if (requests == 0 || requests > 100000) problems.push_back("--requests wants 1 to 100000");
    if (seconds <= 0 || seconds > 600) problems.push_back("--seconds wants more than 0, at most 600");
    if (threads < 1 || threads > 64) problems.push_back("--threads wants 1 to 64");
    if (ttl < 1 || ttl > 3600) problems.push_back("--ttl wants 1 to 3600");
    if (commandLine.wantsHelp() || !problems.empty()) {
        for (const auto& problem : problems) std::fprintf(stderr, "vlmsdk-bench-credentials: %s\n", problem.c_str());
        std::fputs(kUsage, problems.empty() ? stdout : stderr);
        return problems.empty() ? 0 : 2;
    }
    printMachine("vlmsdk-bench-credentials");
    pmssandbox::SandboxConfig config;
    pmssandbox::SandboxServer service(config);
    if (!service.start()) {
        std::fprintf(stderr, "vlmsdk-bench-credentials: the local service did not start: %s\n",
                     service.lastError().c_str());
        return 1;
    }
    nlohmann::json report = reportHeader("vlmsdk-bench-credentials", VLMSDK_BENCH_BUILD_TYPE);
    const std::optional<std::string> id = std::string("rsv_0003");

    // 1. The burst: the token in the cache has expired (1-second tokens, waited out) when they all start.
    {
        auto manager = std::make_shared<VLMSDKHTTPRequestManager>();
        const VLMSDKAPIManager api(builderFor(service, config.token, 1), manager);
        Tally primed;
        fetchReservationWithID(api, id, [&](auto, VLMErrorPtr error) { primed.count(error); });
        VLMSDKMainQueue::runUntil([&] { return primed.done == 1; }, 30s);
        std::this_thread::sleep_for(1100ms);
        const auto credentials = api.requestBuilder()->credentials();
        const std::size_t fetchesBefore = credentials->fetchCount();
        Tally burst;
        const auto started = Clock::now();
        for (std::size_t i = 0; i < requests; ++i) {
            fetchReservationWithID(api, id, [&](auto, VLMErrorPtr error) { burst.count(error); });
        }
        VLMSDKMainQueue::runUntil([&] { return burst.done == requests; }, 120s);
        const double took = secondsBetween(started, Clock::now());
        const std::size_t fetches = credentials->fetchCount() - fetchesBefore;
        std::printf("burst: %zu fetches started with an expired token: %zu token fetch(es), %zu completions, "
                    "%zu authentication errors, %zu other errors, %.3f s\n",
                    requests, fetches, burst.done, burst.authentication, burst.other, took);
        report["burst"] = {{"requests", requests}, {"tokenFetches", fetches}, {"completions", burst.done},
                           {"authenticationErrors", burst.authentication}, {"otherErrors", burst.other},
                           {"seconds", took}};
        manager->shutdown();
        VLMSDKMainQueue::drain();
    }

    // 2. What a cached token costs the scheduler per request: the lookup it makes before each send (a lock and
    // a clock read).
    {
        struct LastingToken final : VLMSDKCredentialsProvider {
            void fetchToken(Completion completion) override { completion(VLMSDKAccessToken{"bench-token"}, nullptr); }
        };
        const auto credentials = VLMSDKCredentials::make(std::make_shared<LastingToken>());
        std::atomic<bool> ready{false};
        credentials->authorize([&](auto, auto) { ready = true; });
        while (!ready) std::this_thread::sleep_for(1ms);
        constexpr std::size_t kLookups = 2000000;
        const auto cpuBefore = processUsage();
        for (std::size_t i = 0; i < kLookups; ++i) keep(credentials->freshAuthorization());
        const auto cpuAfter = processUsage();
        const double nanoseconds = (cpuAfter - cpuBefore).cpuMicroseconds() * 1000.0 / kLookups;
        std::printf("cached token: %.1f ns of CPU per lookup (%zu lookups)\n", nanoseconds, kLookups);
        report["cachedTokenLookupNanoseconds"] = nanoseconds;
    }

    // 3. The run: callers on `threads` threads, fetching and charging, while tokens expire every `ttl` s.
    {
        auto manager = std::make_shared<VLMSDKHTTPRequestManager>();
        const VLMSDKAPIManager api(builderFor(service, config.token, ttl), manager);
        Tally tally;
        std::atomic<std::size_t> started{0};
        std::atomic<bool> running{true};
        std::vector<std::thread> callers;
        for (int t = 0; t < threads; ++t) {
            callers.emplace_back([&, t] {
                auto charge = std::make_shared<VLMSDKUpdateReservationMasterBillRequestInfo>();
                charge->setReservationID(id);
                charge->setVelmoraDeliverables(
                    {std::make_shared<VLMSDKDeliverableCountableItem>("itm_sparkling_water", 1)});
                for (std::size_t n = 0; running && n < 100000; ++n) {
                    if (t % 2) {
                        fetchReservationWithID(api, id, [&](auto, VLMErrorPtr error) { tally.count(error); });
                    } else {
                        updateReservationMasterBillWithRequest(api, charge,
                                                               [&](auto, VLMErrorPtr error) { tally.count(error); });
                    }
                    ++started;
                    std::this_thread::sleep_for(10ms);
                }
            });
        }
        const auto began = Clock::now();
        VLMSDKMainQueue::runFor(std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(seconds)));
        running = false;
        for (auto& caller : callers) caller.join();
        VLMSDKMainQueue::runUntil([&] { return tally.done == started.load(); }, 60s);
        const double took = secondsBetween(began, Clock::now());
        const std::size_t fetches = api.requestBuilder()->credentials()->fetchCount();
        std::printf("run: %d threads for %.1f s, %d-s tokens: %zu operations, %zu authentication errors, %zu other "
                    "errors, %zu token fetches for %.1f token lifetimes\n",
                    threads, took, ttl, tally.done, tally.authentication, tally.other, fetches, took / ttl);
        report["run"] = {{"threads", threads}, {"seconds", took}, {"ttl", ttl}, {"operations", tally.done},
                         {"authenticationErrors", tally.authentication}, {"otherErrors", tally.other},
                         {"tokenFetches", fetches}};
        manager->shutdown();
        VLMSDKMainQueue::drain();
    }
    service.stop();
    return writeReport(jsonPath, report) ? 0 : 1;
}
