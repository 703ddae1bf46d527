// vlmsdk-bench-first-fetch: how long a guest waits for the first reply, the way a phone's app meets it. One
// process is one sample: it fetches the reservation once right after it starts (or after pre-warming during a
// start-up of --warm-up-ms), once more at once (a kept connection), and once after --idle-ms of quiet (the
// service closed the idle connection: a warm process on a new one). scripts/round-trips.sh runs it through a
// loopback link with a phone's latency and turns the times into round trips.
//
// Clients: the kit with its defaults ("kit"), and (b), a hand-written client on one libcurl easy handle that
// parses the reply with nlohmann::json ("b").

#include "BenchReplies.h"
#include "BenchSupport.h"

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <curl/curl.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace {

using namespace vlmsdk::bench;
using namespace std::chrono_literals;

double millisecondsSince(Clock::time_point from) { return secondsBetween(from, Clock::now()) * 1000.0; }

// A fetch's time, or a negative number when it did not end with the reservation asked for.
class KitClient {
public:
    KitClient(const std::string& baseURL, const std::string& caFile)
        : api_(std::make_shared<VLMSDKRequestBuilder>(baseURL), std::make_shared<VLMSDKHTTPRequestManager>([&] {
                   VLMSDKHTTPRequestManagerOptions options;
                   if (!caFile.empty()) options.caFile = caFile;
                   return options;
               }())) {}

    void prewarm() const { api_.prewarmConnections(); }

    double fetch() const {
        const auto started = Clock::now();
        std::optional<double> took;
        bool good = false;
        fetchReservationWithID(api_, std::string(kReservationID),
                               [&](std::shared_ptr<VLMSDKReservation> reservation, VLMErrorPtr error) {
                                   took = millisecondsSince(started);
                                   good = reservation && !error;
                                   if (error) std::fprintf(stderr, "kit: %s\n", error->description().c_str());
                               });
        VLMSDKMainQueue::runUntil([&] { return took.has_value(); }, 30s);
        return took && good ? *took : -1;
    }

private:
    VLMSDKAPIManager api_;
};

class CurlClient {
public:
    CurlClient(const std::string& baseURL, const std::string& caFile) : handle_(curl_easy_init()) {
        url_ = baseURL + "guest/reservations/" + kReservationID;
        headers_ = curl_slist_append(headers_, "Accept: application/json");
        curl_easy_setopt(handle_, CURLOPT_URL, url_.c_str());
        curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, headers_);
        if (!caFile.empty()) curl_easy_setopt(handle_, CURLOPT_CAINFO, caFile.c_str());
        curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &CurlClient::write);
        curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &body_);
        curl_easy_setopt(handle_, CURLOPT_TIMEOUT, 30L);
    }
    ~CurlClient() {
        curl_easy_cleanup(handle_);
        curl_slist_free_all(headers_);
    }
    CurlClient(const CurlClient&) = delete;
    CurlClient& operator=(const CurlClient&) = delete;

    double fetch() {
        const auto started = Clock::now();
        body_.clear();
        const CURLcode code = curl_easy_perform(handle_);
        long status = 0;
        curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
        const auto reply = nlohmann::json::parse(body_, nullptr, false);
        const double took = millisecondsSince(started);
        const bool good = code == CURLE_OK && status == 200 && reply.is_object() && reply.contains("reservation") &&
                          reply["reservation"].value("id", "") == kReservationID;
        if (!good) std::fprintf(stderr, "b: %s, HTTP %ld\n", curl_easy_strerror(code), status);
        return good ? took : -1;
    }

private:
    static size_t write(char* data, size_t size, size_t count, void* body) {
        static_cast<std::string*>(body)->append(data, size * count);
        return size * count;
    }

    CURL* handle_;
    curl_slist* headers_ = nullptr;
    std::string url_;
    std::string body_;
};

// Quiet time: the main queue keeps turning, as an app's does.
void idle(std::chrono::milliseconds span) { VLMSDKMainQueue::runFor(span); }

}  // namespace

int main(int argc, char** argv) {
    const auto processStarted = Clock::now();
    CommandLine line(argc, argv);
    const std::string client = line.text("client", "kit");
    const std::string baseURL = line.text("base-url", "");
    const std::string caFile = line.text("ca-file", "");
    const bool prewarmed = line.text("prewarm", "no") == "yes";
    const auto warmUp = std::chrono::milliseconds(static_cast<long>(line.number("warm-up-ms", 1000)));
    const auto idleSpan = std::chrono::milliseconds(static_cast<long>(line.number("idle-ms", 0)));
    auto problems = line.problems();
    if (client != "kit" && client != "b") problems.push_back("--client takes kit or b");
    if (prewarmed && client != "kit") problems.push_back("--prewarm yes is the kit's (b) has no such call");
    // Loopback targets only, as every benchmark here.
    if (!isLoopbackTarget(baseURL)) {
        problems.push_back("--base-url wants a loopback target (https://localhost:PORT/ or 127.0.0.1)");
    }
    if (line.wantsHelp() || !problems.empty()) {
        for (const auto& problem : problems) std::fprintf(stderr, "vlmsdk-bench-first-fetch: %s\n", problem.c_str());
        std::fprintf(stderr,
                     "usage: vlmsdk-bench-first-fetch --base-url https://localhost:PORT/ [--ca-file FILE]\n"
                     "                                [--client kit|b] [--prewarm yes --warm-up-ms 1000]\n"
                     "                                [--idle-ms N]\n"
                     "  Prints one JSON line: the first fetch's milliseconds (from the process's start, or from\n"
                     "  the call after pre-warming), the next one's on the kept connection, and with --idle-ms\n"
                     "  one after that much quiet.\n");
        return line.wantsHelp() && problems.empty() ? 0 : 2;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);

    nlohmann::json sample = {{"client", client}, {"prewarmed", prewarmed}};
    bool good = true;
    const auto note = [&](const char* name, double ms) {
        sample[name] = ms;
        good = good && ms >= 0;
    };
    if (client == "kit") {
        KitClient kit(baseURL, caFile);
        if (prewarmed) {
            kit.prewarm();
            idle(warmUp);
            note("first_ms", kit.fetch());
        } else {
            const double fetch = kit.fetch();
            // From the process's start: what the guest waits when the first tap starts the app.
            note("first_ms", fetch < 0 ? fetch : millisecondsSince(processStarted));
        }
        note("kept_ms", kit.fetch());
        if (idleSpan.count() > 0) {
            idle(idleSpan);
            note("after_idle_ms", kit.fetch());
        }
    } else {
        CurlClient b(baseURL, caFile);
        const double fetch = b.fetch();
        note("first_ms", fetch < 0 ? fetch : millisecondsSince(processStarted));
        note("kept_ms", b.fetch());
        if (idleSpan.count() > 0) {
            std::this_thread::sleep_for(idleSpan);
            note("after_idle_ms", b.fetch());
        }
    }
    std::printf("%s\n", sample.dump().c_str());
    curl_global_cleanup();
    return good ? 0 : 1;
}
