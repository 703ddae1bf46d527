// vlmsdk-bench-mapping: a folio reply parsed and mapped into records (nlohmann parse, then the core
// mapper with VLMSDKFolio's object mapping) against the parse alone, in MB of reply text per second.

#include "BenchReplies.h"
#include "BenchSupport.h"

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
    double parse;     // MB/s, parse alone
    double parseMap;  // MB/s, parse then map
    double mapOnly;   // nanoseconds per posting, mapping an already parsed reply
    double handOnly;  // nanoseconds per posting, the hand-written mapping of an already parsed reply
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

// The folio mapped from `json`, checked; false when the mapping failed or lost postings.
bool mapFolio(const VLMSDKJSON& json, std::size_t postings) {
    const auto mapped = VLMSDKMapper::objectFromJSON(json, VLMSDKFolio::objectMapping());
    const auto folio = mapped->resultAs<VLMSDKFolio>();
    keep(folio);
    return folio && folio->deliverables().size() == postings &&
           (postings < 2 || (folio->deliverables()[1]->price() && *folio->deliverables()[1]->price() == 1.25));
}

constexpr const char* kUsage =
    "usage: vlmsdk-bench-mapping [--runs N] [--min-time SECONDS]\n"
    "  Folio replies of 10, 1,000 and 100,000 postings: nlohmann parse alone against parse + VLMSDKMapper into\n"
    "  VLMSDKFolio, in MB/s of reply text, and the ratio; also the mapping alone per posting, beside a\n"
    "  hand-written mapping into plain structs. Medians over the runs. Defaults: --runs 5 --min-time 0.5.\n";

}  // namespace

int main(int argc, char** argv) {
    CommandLine commandLine(argc, argv);
    const auto runs = static_cast<std::size_t>(commandLine.number("runs", 5));
    const double minimumSeconds = commandLine.number("min-time", 0.5);
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
    for (const auto size : sizes) replies.push_back(folioReply(size));

    bool allMapped = true;
    std::vector<std::vector<Sample>> samples(std::size(sizes));
    for (std::size_t run = 0; run < runs; ++run) {
        std::printf("run %zu (load average %s)\n", run + 1, loadAverage().c_str());
        for (std::size_t s = 0; s < std::size(sizes); ++s) {
            const std::string& text = replies[s];
            const double megabytes = static_cast<double>(text.size()) / 1e6;
            const std::size_t minimumCalls = 3;
            const double parse = secondsPerCall(minimumSeconds, minimumCalls, [&] {
                const auto json = VLMSDKJSON::parse(text);
                keep(json);
            });
            const double parseMap = secondsPerCall(minimumSeconds, minimumCalls, [&] {
                const auto json = VLMSDKJSON::parse(text);
                allMapped = mapFolio(json, sizes[s]) && allMapped;
            });
            const auto parsed = VLMSDKJSON::parse(text);
            const double map = secondsPerCall(minimumSeconds, minimumCalls,
                                              [&] { allMapped = mapFolio(parsed, sizes[s]) && allMapped; });
            const double hand = secondsPerCall(minimumSeconds, minimumCalls,
                                               [&] { allMapped = handMapFolio(parsed, sizes[s]) && allMapped; });
            const auto perPosting = [&](double seconds) { return seconds * 1e9 / static_cast<double>(sizes[s]); };
            const Sample sample{megabytes / parse, megabytes / parseMap, perPosting(map), perPosting(hand)};
            samples[s].push_back(sample);
            std::printf("  %6zu postings (%9zu bytes): parse %6.1f MB/s  parse+map %6.1f MB/s  ratio %.2f  "
                        "map alone %4.0f ns/posting (by hand %4.0f)\n",
                        sizes[s], text.size(), sample.parse, sample.parseMap, sample.parseMap / sample.parse,
                        sample.mapOnly, sample.handOnly);
        }
    }

    std::printf("\nmedians over %zu run(s) (load average now %s)\n", runs, loadAverage().c_str());
    for (std::size_t s = 0; s < std::size(sizes); ++s) {
        std::vector<double> parse, parseMap, ratio, mapOnly, handOnly;
        for (const auto& sample : samples[s]) {
            parse.push_back(sample.parse);
            parseMap.push_back(sample.parseMap);
            ratio.push_back(sample.parseMap / sample.parse);
            mapOnly.push_back(sample.mapOnly);
            handOnly.push_back(sample.handOnly);
        }
        std::printf("  %6zu postings (%9zu bytes): parse %6.1f MB/s  parse+map %6.1f MB/s  ratio %.2f  "
                    "map alone %4.0f ns/posting (by hand %4.0f)\n",
                    sizes[s], replies[s].size(), median(parse), median(parseMap), median(ratio), median(mapOnly),
                    median(handOnly));
    }
    std::printf("\ntarget: parse+map at least 0.8 x parse alone at 1,000 and 100,000 postings\n");
    if (!allMapped) std::printf("WARNING: a mapping failed or lost postings\n");
    return allMapped ? 0 : 1;
}
