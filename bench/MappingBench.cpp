// vlmsdk-bench-mapping: a folio reply read and mapped into records the way the kit does it (its reply
// reader, then the core mapper with VLMSDKFolio's object mapping) against nlohmann's parse alone, in MB of
// reply text per second.

#include "BenchReplies.h"
#include "AllocationCounter.h"
#include "BenchSupport.h"

#include <JSON/VLMSDKJSONReader.h>

#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#ifndef VLMSDK_BENCH_BUILD_TYPE
#define VLMSDK_BENCH_BUILD_TYPE "unknown"
#endif

namespace {

using namespace vlmsdk::bench;

// Seconds per call of `body`, over at least `minimumSeconds` and `minimumCalls` calls.
double secondsPerCall(double minimumSeconds, std::size_t minimumCalls, const std::function<void()>& body) {
    std::size_t calls = 0;
    const auto start = Clock::now();
    double elapsed = 0;
    do {
        body();
        ++calls;
        elapsed = secondsBetween(start, Clock::now());
    } while (elapsed < minimumSeconds || calls < minimumCalls);
    return elapsed / static_cast<double>(calls);
}

struct Sample {
    double parse;     // MB/s, nlohmann's parse alone
    double read;      // MB/s, the kit's reader alone
    double readMap;   // MB/s, the kit's reader, then the mapping
    double mapOnly;   // nanoseconds per posting, mapping an already parsed reply
    double handOnly;  // nanoseconds per posting, the hand-written mapping of an already parsed reply
    double allocationsPerPosting;  // read + map, every allocation counted
};

// For comparison: the same folio mapped by hand into plain structs, with the same conversions.
struct PlainPosting {
    std::optional<std::string> name, code, currency;
    std::optional<double> price;
};

struct PlainFolio {
    std::optional<std::string> folioID, currency;
    std::optional<double> outstandingAmount;
    std::vector<PlainPosting> postings;
};

std::optional<std::string> upperText(const VLMSDKJSON& value) {
    std::string text = value.get<std::string>();
    for (char& c : text) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    return text;
}

bool handMapFolio(const VLMSDKJSON& json, std::size_t postings) {
    PlainFolio folio;
    if (const auto id = json.find("folio_id"); id != json.end() && id->is_string()) folio.folioID = id->get<std::string>();
    if (const auto amount = json.find("outstanding_amount"); amount != json.end() && amount->is_number()) {
        folio.outstandingAmount = amount->get<double>();
    }
    if (const auto currency = json.find("currency"); currency != json.end() && currency->is_string()) {
        folio.currency = upperText(*currency);
    }
    const auto transactions = json.find("transactions");
    if (transactions == json.end() || !transactions->is_array()) return false;
    folio.postings.reserve(transactions->size());
    for (const auto& t : *transactions) {
        if (!t.is_object()) return false;
        PlainPosting& posting = folio.postings.emplace_back();
        if (const auto v = t.find("posting_name"); v != t.end() && v->is_string()) posting.name = v->get<std::string>();
        if (const auto v = t.find("posting_code"); v != t.end() && v->is_string()) posting.code = v->get<std::string>();
        if (const auto v = t.find("currency_code"); v != t.end() && v->is_string()) posting.currency = upperText(*v);
        if (const auto v = t.find("amount"); v != t.end()) {
            if (v->is_number()) {
                posting.price = v->get<double>();
            } else if (v->is_string()) {
                posting.price = std::strtod(v->get_ref<const std::string&>().c_str(), nullptr);
            }
        }
    }
    keep(folio);
    return folio.postings.size() == postings &&
           (postings < 2 || (folio.postings[1].price && *folio.postings[1].price == 1.25));
}

// The folio mapped from `reply`, checked; false when the mapping failed or lost postings.
bool mapFolio(const VLMSDKJSONReply& reply, std::size_t postings) {
    const auto mapped = VLMSDKMapper::objectFromReply(reply, VLMSDKFolio::objectMapping());
    const auto folio = mapped->resultAs<VLMSDKFolio>();
    keep(folio);
    return folio && folio->deliverables().size() == postings &&
           (postings < 2 || (folio->deliverables()[1]->price() && *folio->deliverables()[1]->price() == 1.25));
}

constexpr const char* kUsage =
    "usage: vlmsdk-bench-mapping [--runs N] [--min-time SECONDS] [--json FILE]\n"
    "  Folio replies of 10, 1,000 and 100,000 postings: nlohmann::json::parse alone against the kit's reply\n"
    "  reader alone and the reader + VLMSDKMapper into VLMSDKFolio, in MB/s of reply text, and the ratio of\n"
    "  read+map over nlohmann's parse; also the mapping alone per posting, beside a hand-written mapping\n"
    "  into plain structs. Medians over the runs. Defaults: --runs 5 --min-time 0.5.\n";

}  // namespace

int main(int argc, char** argv) {
    CommandLine commandLine(argc, argv);
    const auto runs = static_cast<std::size_t>(commandLine.number("runs", 5));
    const double minimumSeconds = commandLine.number("min-time", 0.5);
    const std::string jsonPath = commandLine.text("json", "");
    auto problems = commandLine.problems();
    if (runs == 0) problems.push_back("--runs wants at least 1");
    if (commandLine.wantsHelp() || !problems.empty()) {
        for (const auto& problem : problems) std::fprintf(stderr, "vlmsdk-bench-mapping: %s\n", problem.c_str());
        std::fputs(kUsage, problems.empty() ? stdout : stderr);
        return problems.empty() ? 0 : 2;
    }

    printMachine("vlmsdk-bench-mapping");
    std::printf("build type %s; %zu run(s), each figure over at least %.2f s\n", VLMSDK_BENCH_BUILD_TYPE, runs,
                minimumSeconds);

    const std::size_t sizes[] = {10, 1000, 100000};
    std::vector<std::string> replies;
    for (const auto size : sizes) {
        // As a transfer leaves it: room past the end that saves the reader a copy.
        std::string reply = folioReply(size);
        reply.reserve(reply.size() + vlmsdk::detail::VLMSDKJSONReader::kSpareCapacity);
        replies.push_back(std::move(reply));
    }

    vlmsdk::detail::VLMSDKJSONReader reader;
    bool allMapped = true;
    // The transport's path: read, map, release.
    const auto readAndMap = [&](std::string& text, std::size_t postings) {
        const auto read = reader.read(text);
        allMapped = read.reply && mapFolio(*read.reply, postings) && allMapped;
    };
    std::vector<std::vector<Sample>> samples(std::size(sizes));
    // `ratio`: read+map over nlohmann's parse; a run's own, or the median of the runs' ratios.
    const auto print = [](std::size_t postings, std::size_t bytes, const Sample& s, double ratio) {
        std::printf("  %6zu postings (%9zu bytes): nlohmann parse %6.1f MB/s  kit read %6.1f MB/s  read+map %6.1f MB/s"
                    "  ratio %.2f  map alone %4.0f ns/posting (by hand %4.0f)  %.1f allocs/posting\n",
                    postings, bytes, s.parse, s.read, s.readMap, ratio, s.mapOnly, s.handOnly,
                    s.allocationsPerPosting);
    };
    for (std::size_t run = 0; run < runs; ++run) {
        std::printf("run %zu (load average %s)\n", run + 1, loadAverage().c_str());
        for (std::size_t s = 0; s < std::size(sizes); ++s) {
            std::string& text = replies[s];
            const double megabytes = static_cast<double>(text.size()) / 1e6;
            const std::size_t minimumCalls = 3;
            const double parse = secondsPerCall(minimumSeconds, minimumCalls, [&] {
                const auto json = VLMSDKJSON::parse(text);
                keep(json);
            });
            const double read = secondsPerCall(minimumSeconds, minimumCalls, [&] {
                const auto result = reader.read(text);
                keep(result.reply);
            });
            const double readMap = secondsPerCall(minimumSeconds, minimumCalls, [&] { readAndMap(text, sizes[s]); });
            const auto allocations0 = allocationsSoFar();
            readAndMap(text, sizes[s]);
            const auto allocations = static_cast<double>(allocationsSoFar() - allocations0);
            const auto parsed = VLMSDKJSON::parse(text);
            const auto readReply = reader.read(text).reply;
            const double map = secondsPerCall(minimumSeconds, minimumCalls, [&] {
                allMapped = readReply && mapFolio(*readReply, sizes[s]) && allMapped;
            });
            const double hand = secondsPerCall(minimumSeconds, minimumCalls,
                                               [&] { allMapped = handMapFolio(parsed, sizes[s]) && allMapped; });
            const auto perPosting = [&](double seconds) { return seconds * 1e9 / static_cast<double>(sizes[s]); };
            const Sample sample{megabytes / parse, megabytes / read, megabytes / readMap, perPosting(map),
                                perPosting(hand), allocations / static_cast<double>(sizes[s])};
            samples[s].push_back(sample);
            print(sizes[s], text.size(), sample, sample.readMap / sample.parse);
        }
    }

    nlohmann::json report = reportHeader("vlmsdk-bench-mapping", VLMSDK_BENCH_BUILD_TYPE);
    report["settings"] = {{"runs", runs}, {"min_time_s", minimumSeconds},
                          {"allocations_counted", allocationCountingWorks()}};
    report["results"] = nlohmann::json::array();
    std::printf("\nmedians over %zu run(s) (load average now %s)\n", runs, loadAverage().c_str());
    for (std::size_t s = 0; s < std::size(sizes); ++s) {
        const auto medianOf = [&](double Sample::*field) {
            std::vector<double> values;
            for (const auto& sample : samples[s]) values.push_back(sample.*field);
            return median(values);
        };
        std::vector<double> ratios;
        for (const auto& sample : samples[s]) ratios.push_back(sample.readMap / sample.parse);
        const Sample m{medianOf(&Sample::parse), medianOf(&Sample::read), medianOf(&Sample::readMap),
                       medianOf(&Sample::mapOnly), medianOf(&Sample::handOnly), medianOf(&Sample::allocationsPerPosting)};
        print(sizes[s], replies[s].size(), m, median(ratios));
        report["results"].push_back({{"postings", sizes[s]},
                                     {"reply_bytes", replies[s].size()},
                                     {"nlohmann_parse_mb_per_s", m.parse},
                                     {"kit_read_mb_per_s", m.read},
                                     {"kit_read_map_mb_per_s", m.readMap},
                                     {"read_map_over_nlohmann_parse", median(ratios)},
                                     {"map_alone_ns_per_posting", m.mapOnly},
                                     {"hand_map_ns_per_posting", m.handOnly},
                                     {"allocations_per_posting", m.allocationsPerPosting}});
    }
    std::printf("\ntarget: read+map at least 2 x nlohmann's parse alone, at each size\n");
    if (!allMapped) std::printf("WARNING: a mapping failed or lost postings\n");
    const bool written = writeReport(jsonPath, report);
    return allMapped && written ? 0 : 1;
}
