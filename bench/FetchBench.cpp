// vlmsdk-bench-fetch: the kit's fetchReservationWithID end to end, on its own HTTP/1.1 connections and on
// libcurl, against raw libcurl, hand-written libcurl + JSON parse + mapping and a generated-style cpprestsdk
// client, at the same concurrency, on a loopback server; and, to show where the difference goes, the HTTP
// request manager without the kit's frame and two thread hand-offs without HTTP.

#include "BenchReplies.h"
#include "AllocationCounter.h"
#include "BenchSupport.h"
#include "FetchDriver.h"
#include "LoopbackServer.h"
#if VLMSDK_BENCH_HAVE_CPPREST
#include "GeneratedStyleClient.h"
#endif

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <curl/curl.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#ifndef VLMSDK_BENCH_BUILD_TYPE
#define VLMSDK_BENCH_BUILD_TYPE "unknown"
#endif

namespace {

using namespace vlmsdk::bench;
using Json = nlohmann::json;

// ---------------------------------------------------------------------------------------------------------
// (b)'s hand-written mapping: what a careful programmer writes without the kit.

struct PlainGuest {
    std::optional<std::string> firstName;
    std::optional<std::string> lastName;
    std::optional<std::string> profileCode;
};

struct PlainReservation {
    std::optional<std::string> id, checkinID, userID, venueID, confirmationID, reservationNumber, currencyCode,
        roomNumber, reservationInfo, status, clientNumber;
    std::optional<std::chrono::sys_days> checkinDate, checkoutDate;
    std::optional<double> totalStayAmount, notSyncedAmount, outstandingAmount;
    bool checkinIsAvailable = false;
    std::vector<PlainGuest> guests;
};

const Json* present(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

bool text(const Json& object, const char* key, std::optional<std::string>& out) {
    const Json* value = present(object, key);
    if (!value) return true;
    if (!value->is_string()) return false;
    out = value->get_ref<const std::string&>();
    return true;
}

bool identifier(const Json& object, const char* key, std::optional<std::string>& out) {
    const Json* value = present(object, key);
    if (!value) return true;
    if (value->is_string()) {
        out = value->get_ref<const std::string&>();
    } else if (value->is_number_integer()) {
        out = value->dump();
    } else {
        return false;
    }
    return true;
}

bool number(const Json& object, const char* key, std::optional<double>& out) {
    const Json* value = present(object, key);
    if (!value) return true;
    if (value->is_number()) {
        out = value->get<double>();
        return true;
    }
    if (!value->is_string()) return false;
    const auto& digits = value->get_ref<const std::string&>();
    double parsed = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), parsed);
    if (error != std::errc() || end != digits.data() + digits.size()) return false;
    out = parsed;
    return true;
}

bool date(const Json& object, const char* key, std::optional<std::chrono::sys_days>& out) {
    const Json* value = present(object, key);
    if (!value) return true;
    if (!value->is_string()) return false;
    const auto& t = value->get_ref<const std::string&>();
    if (t.size() != 10 || t[4] != '-' || t[7] != '-') return false;
    int y = 0;
    unsigned m = 0, d = 0;
    if (std::from_chars(t.data(), t.data() + 4, y).ptr != t.data() + 4 ||
        std::from_chars(t.data() + 5, t.data() + 7, m).ptr != t.data() + 7 ||
        std::from_chars(t.data() + 8, t.data() + 10, d).ptr != t.data() + 10) {
        return false;
    }
    const std::chrono::year_month_day ymd{std::chrono::year(y), std::chrono::month(m), std::chrono::day(d)};
    if (!ymd.ok()) return false;
    out = std::chrono::sys_days(ymd);
    return true;
}

bool handMap(const std::string& body, PlainReservation& r) {
    const Json reply = Json::parse(body, nullptr, false);
    if (reply.is_discarded() || !reply.is_object()) return false;
    const Json* object = present(reply, "reservation");
    if (!object || !object->is_object()) return false;
    const Json& o = *object;
    bool ok = identifier(o, "id", r.id) && identifier(o, "checkin_id", r.checkinID) &&
              identifier(o, "user_id", r.userID) && identifier(o, "venue_id", r.venueID) &&
              text(o, "confirmation_id", r.confirmationID) && text(o, "reservation_number", r.reservationNumber) &&
              text(o, "currency_code", r.currencyCode) && text(o, "room_number", r.roomNumber) &&
              text(o, "reservation_info", r.reservationInfo) && text(o, "status", r.status) &&
              text(o, "client_number", r.clientNumber) && date(o, "checkin_date", r.checkinDate) &&
              date(o, "checkout_date", r.checkoutDate) && number(o, "total_stay_amount", r.totalStayAmount) &&
              number(o, "not_synced_amount", r.notSyncedAmount) &&
              number(o, "outstanding_amount", r.outstandingAmount);
    if (!ok) return false;
    if (r.currencyCode) {
        for (char& c : *r.currencyCode) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
    if (r.notSyncedAmount) r.notSyncedAmount = *r.notSyncedAmount > 0 ? *r.notSyncedAmount : -*r.notSyncedAmount;
    if (const Json* open = present(o, "checkin_is_available")) {
        if (!open->is_boolean()) return false;
        r.checkinIsAvailable = open->get<bool>();
    }
    if (const Json* guests = present(o, "guests")) {
        if (!guests->is_array()) return false;
        r.guests.reserve(guests->size());
        for (const Json& g : *guests) {
            if (!g.is_object()) return false;
            PlainGuest& guest = r.guests.emplace_back();
            if (!text(g, "first_name", guest.firstName) || !text(g, "last_name", guest.lastName) ||
                !text(g, "profile_code", guest.profileCode)) {
                return false;
            }
        }
    }
    return r.status == "in_house" && r.guests.size() == 3;
}

// ---------------------------------------------------------------------------------------------------------
// (a) and (b): one libcurl multi handle driven on the calling thread, a fixed easy handle per slot.

class CurlDriver final : public Driver {
public:
    CurlDriver(std::string url, bool parseAndMap, std::string caFile = {})
        : url_(std::move(url)), caFile_(std::move(caFile)), parseAndMap_(parseAndMap) {
        multi_ = curl_multi_init();
        // The kit's default headers, so that both sides send the same request.
        for (const auto& [name, value] : VLMSDKRequestBuilder("http://127.0.0.1/").defaultHeaders()) {
            headers_ = curl_slist_append(headers_, (name + ": " + value).c_str());
        }
    }
    ~CurlDriver() override {
        for (auto& slot : slots_) curl_easy_cleanup(slot->easy);
        curl_multi_cleanup(multi_);
        curl_slist_free_all(headers_);
    }
    CurlDriver(const CurlDriver&) = delete;
    CurlDriver& operator=(const CurlDriver&) = delete;

    const char* name() const override {
        return parseAndMap_ ? "(b) curl + nlohmann + hand map" : "(a) raw curl multi, body kept";
    }

    void run(std::size_t inFlight, Budget& budget, Measurement& measurement) override {
        while (slots_.size() < inFlight) slots_.push_back(makeSlot());
        std::size_t active = 0;
        for (std::size_t i = 0; i < inFlight && budget.another(); ++i, ++active) start(*slots_[i]);
        while (active > 0) {
            int running = 0;
            curl_multi_perform(multi_, &running);
            bool restarted = false;
            int left = 0;
            while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
                if (message->msg != CURLMSG_DONE) continue;
                CURL* easy = message->easy_handle;
                const CURLcode result = message->data.result;
                Slot* slot = nullptr;
                curl_easy_getinfo(easy, CURLINFO_PRIVATE, &slot);
                long status = 0;
                curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
                curl_multi_remove_handle(multi_, easy);
                --active;
                bool ok = result == CURLE_OK && status == 200;
                if (parseAndMap_) {
                    PlainReservation reservation;
                    ok = ok && handMap(slot->body, reservation);
                    keep(reservation);
                } else {
                    ok = ok && slot->body.size() == reservationReply().size();
                }
                measurement.record(slot->started, ok);
                slot->body.clear();
                if (budget.another()) {
                    start(*slot);
                    ++active;
                    restarted = true;
                }
            }
            if (active > 0 && !restarted) curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
        }
    }

private:
    struct Slot {
        CURL* easy = nullptr;
        std::string body;
        Clock::time_point started;
    };

    static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* slot) {
        static_cast<Slot*>(slot)->body.append(data, size * count);
        return size * count;
    }

    std::unique_ptr<Slot> makeSlot() {
        auto slot = std::make_unique<Slot>();
        slot->easy = curl_easy_init();
        slot->body.reserve(4096);
        curl_easy_setopt(slot->easy, CURLOPT_URL, url_.c_str());
        if (!caFile_.empty()) curl_easy_setopt(slot->easy, CURLOPT_CAINFO, caFile_.c_str());
        curl_easy_setopt(slot->easy, CURLOPT_HTTPHEADER, headers_);
        curl_easy_setopt(slot->easy, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(slot->easy, CURLOPT_WRITEFUNCTION, &CurlDriver::onBody);
        curl_easy_setopt(slot->easy, CURLOPT_WRITEDATA, static_cast<void*>(slot.get()));
        curl_easy_setopt(slot->easy, CURLOPT_PRIVATE, static_cast<void*>(slot.get()));
        return slot;
    }

    void start(Slot& slot) {
        slot.started = Clock::now();
        curl_multi_add_handle(multi_, slot.easy);
    }

    std::string url_;
    std::string caFile_;  // a test authority's certificate, for a TLS target
    bool parseAndMap_;
    CURLM* multi_ = nullptr;
    curl_slist* headers_ = nullptr;
    std::vector<std::unique_ptr<Slot>> slots_;
};

// ---------------------------------------------------------------------------------------------------------
// (c) and (t): the kit's operation with the HTTP request manager; completions run on the pumped main queue.
// (c) keeps the default mode, which drives the transfers where the main queue is pumped; (t) forces the
// network thread a host with its own executor gets.

class KitDriver final : public Driver {
public:
    KitDriver(const std::string& baseURL, VLMSDKHTTPRequestManagerOptions options, const char* label,
              std::shared_ptr<VLMSDKCredentialsProvider> credentials = nullptr)
        : manager_(std::make_shared<VLMSDKHTTPRequestManager>(std::move(options))),
          api_(
              [&] {
                  auto builder = std::make_shared<VLMSDKRequestBuilder>(baseURL);
                  if (credentials) builder->setCredentialsProvider(std::move(credentials));
                  return builder;
              }(),
              manager_),
          label_(label) {}

    const char* name() const override { return label_; }

    void run(std::size_t inFlight, Budget& budget, Measurement& measurement) override {
        budget_ = &budget;
        measurement_ = &measurement;
        active_ = 0;
        for (std::size_t i = 0; i < inFlight && budget.another(); ++i) issue();
        VLMSDKMainQueue::runUntil([this] { return active_ == 0; }, std::chrono::minutes(10));
    }

private:
    void issue() {
        ++active_;
        const auto started = Clock::now();
        fetchReservationWithID(api_, id_, [this, started](std::shared_ptr<VLMSDKReservation> reservation, VLMErrorPtr error) {
            --active_;
            measurement_->record(started, reservation && !error && reservation->status() == VLMSDKReservationStatusInHouse &&
                                              reservation->guests().size() == 3);
            if (budget_->another()) issue();
        });
    }

    std::shared_ptr<VLMSDKHTTPRequestManager> manager_;
    VLMSDKAPIManager api_;
    const char* label_;
    const std::optional<std::string> id_ = std::string(kReservationID);
    Budget* budget_ = nullptr;
    Measurement* measurement_ = nullptr;
    std::size_t active_ = 0;
};

// ---------------------------------------------------------------------------------------------------------
// (m): the request builder and the HTTP request manager without the kit's frame: the reply is parsed as for
// (c), then the completion runs unmapped, on the main thread (at once when the reply was handled there, as
// the kit's frame does). (c) minus (m) is the kit's own share: validation, mapping and record delivery.

class ManagerDriver final : public Driver {
public:
    explicit ManagerDriver(const std::string& baseURL)
        : builder_(std::make_shared<VLMSDKRequestBuilder>(baseURL)),
          manager_(std::make_shared<VLMSDKHTTPRequestManager>()),
          path_(std::string("guest/reservations/") + kReservationID) {}

    const char* name() const override { return "(m) request manager, no mapping"; }

    void run(std::size_t inFlight, Budget& budget, Measurement& measurement) override {
        budget_ = &budget;
        measurement_ = &measurement;
        active_ = 0;
        for (std::size_t i = 0; i < inFlight && budget.another(); ++i) issue();
        VLMSDKMainQueue::runUntil([this] { return active_ == 0; }, std::chrono::minutes(10));
    }

private:
    void issue() {
        ++active_;
        const auto started = Clock::now();
        manager_->performDataTaskRequest(
            builder_->GETWithPath(path_, std::nullopt),
            [this, started](std::shared_ptr<const VLMSDKJSONReply> json,
                            std::shared_ptr<const VLMSDKURLResponse> response, VLMErrorPtr error) {
                const bool ok = json && json->hasMember("reservation") && response && response->statusCode() == 200 &&
                                !error;
                // The reply is released where it was made, as the kit's frame does.
                json.reset();
                auto complete = [this, started, ok] {
                    --active_;
                    measurement_->record(started, ok);
                    if (budget_->another()) issue();
                };
                if (VLMSDKMainQueue::isMainThread()) {
                    complete();
                } else {
                    VLMSDKMainQueue::async(std::move(complete));
                }
            });
    }

    std::shared_ptr<VLMSDKRequestBuilder> builder_;
    std::shared_ptr<VLMSDKHTTPRequestManager> manager_;
    const std::string path_;
    Budget* budget_ = nullptr;
    Measurement* measurement_ = nullptr;
    std::size_t active_ = 0;
};

// ---------------------------------------------------------------------------------------------------------
// (h): no HTTP at all, only the two thread hand-offs every kit request makes: the calling thread queues
// work and wakes a thread blocked in curl_multi_poll with curl_multi_wakeup, as the request manager does;
// that thread posts the completion to the main queue. Its figures are the floor under (c) minus (b).

class HandOffDriver final : public Driver {
public:
    HandOffDriver() : multi_(curl_multi_init()), thread_([this] { loop(); }) {}
    ~HandOffDriver() override {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        curl_multi_wakeup(multi_);
        thread_.join();
        curl_multi_cleanup(multi_);
    }
    HandOffDriver(const HandOffDriver&) = delete;
    HandOffDriver& operator=(const HandOffDriver&) = delete;

    const char* name() const override { return "(h) thread hand-offs only, no HTTP"; }

    void run(std::size_t inFlight, Budget& budget, Measurement& measurement) override {
        budget_ = &budget;
        measurement_ = &measurement;
        active_ = 0;
        for (std::size_t i = 0; i < inFlight && budget.another(); ++i) issue();
        VLMSDKMainQueue::runUntil([this] { return active_ == 0; }, std::chrono::minutes(10));
    }

private:
    void issue() {
        ++active_;
        const auto started = Clock::now();
        std::lock_guard lock(mutex_);
        tasks_.push_back([this, started] {
            --active_;
            measurement_->record(started, true);
            if (budget_->another()) issue();
        });
        if (!wakeRequested_) {
            wakeRequested_ = true;
            curl_multi_wakeup(multi_);
        }
    }

    void loop() {
        std::vector<VLMSDKMainQueue::Task> batch;
        for (;;) {
            {
                std::lock_guard lock(mutex_);
                if (stop_) return;
                batch.swap(tasks_);
                wakeRequested_ = false;
            }
            for (auto& task : batch) VLMSDKMainQueue::async(std::move(task));
            batch.clear();
            curl_multi_poll(multi_, nullptr, 0, 10000, nullptr);
        }
    }

    CURLM* multi_;
    std::mutex mutex_;
    std::vector<VLMSDKMainQueue::Task> tasks_;
    bool wakeRequested_ = false;
    bool stop_ = false;
    Budget* budget_ = nullptr;
    Measurement* measurement_ = nullptr;
    std::size_t active_ = 0;
    std::thread thread_;  // last: starts once everything it uses exists
};

// ---------------------------------------------------------------------------------------------------------

struct Settings {
    std::size_t runs = 5;
    double duration = 2;
    std::size_t requests = 0;  // 0: run for `duration`
    double warmup = 0.3;
    std::vector<std::size_t> inFlight{1, 8};
    std::string clients;
    std::string json;
    std::string baseURL;  // a target of the caller's instead of the loopback server (https://localhost:PORT/)
    std::string caFile;   // its authority's certificate
};

// Every client, in the order a run takes them. (q) runs in a process of its own: cpprestsdk's pool is
// sized once per process, and (p) sets it to two threads.
constexpr std::string_view kLetters = "abcdktmhpq";
#if VLMSDK_BENCH_HAVE_CPPREST
constexpr const char* kDefaultClients = "abcdktmhpq";
#else
constexpr const char* kDefaultClients = "abcdktmh";
#endif

// `server` is nullptr for a target of the caller's (--base-url): its CPU and connections are not known here.
Measurement measure(Driver& driver, std::size_t inFlight, const Settings& settings, const LoopbackServer* server) {
    const auto unlimited = std::numeric_limits<std::size_t>::max();
    {
        Measurement discarded;
        Budget warmup(settings.warmup, unlimited);
        driver.run(inFlight, warmup, discarded);
    }
    Measurement m;
    m.latencies.reserve(settings.requests ? settings.requests : 400000);
    Budget budget(settings.requests ? 1e9 : settings.duration, settings.requests ? settings.requests : unlimited);
    const ProcessUsage client0 = processUsage();
    const ThreadSplit threads0 = threadSplit();
    const double server0 = server ? server->cpuMicroseconds() : 0;
    const auto connections0 = server ? server->connectionsAccepted() : 0;
    const auto allocations0 = allocationsSoFar();
    const auto t0 = Clock::now();
    driver.run(inFlight, budget, m);
    const auto t1 = Clock::now();
    m.allocations = allocationsSoFar() - allocations0;
    m.client = processUsage() - client0;
    const ThreadSplit threads1 = threadSplit();
    m.threads = {threads1.mainMicroseconds - threads0.mainMicroseconds,
                 threads1.otherMicroseconds - threads0.otherMicroseconds};
    m.serverCPU = server ? server->cpuMicroseconds() - server0 : 0;
    m.connections = server ? server->connectionsAccepted() - connections0 : 0;
    m.seconds = secondsBetween(t0, t1);
    return m;
}

// Plain doubles only: (q)'s figures cross a pipe from its process.
struct Figures {
    double perSecond, p50, p99, cpu, user, system, switches, mainThread, otherThreads, serverCPU, serverBusy,
        allocations, failures;
};

Figures figuresOf(Measurement& m) {
    return {m.perSecond(),
            quantile(m.latencies, 0.50),
            quantile(m.latencies, 0.99),
            m.perRequest(m.client.cpuMicroseconds()),
            m.perRequest(m.client.userMicroseconds),
            m.perRequest(m.client.systemMicroseconds),
            m.perRequest(m.client.contextSwitches),
            m.perRequest(m.threads.mainMicroseconds),
            m.perRequest(m.threads.otherMicroseconds),
            m.perRequest(m.serverCPU),
            m.serverBusy(),
            m.perRequest(static_cast<double>(m.allocations)),
            static_cast<double>(m.failures)};
}

void printFigures(const char* label, const Figures& f) {
    std::printf("  %-38s %6.0f req/s  p50 %6.1f us  p99 %7.1f us  CPU %5.1f us/op (user %4.1f, sys %4.1f; main %4.1f, "
                "others %4.1f)  %5.1f allocs/op  %4.2f ctx sw/op  server %4.1f us/req, %3.0f%%\n",
                label, f.perSecond, f.p50, f.p99, f.cpu, f.user, f.system, f.mainThread, f.otherThreads, f.allocations,
                f.switches, f.serverCPU, 100 * f.serverBusy);
}

std::vector<std::size_t> parseList(const std::string& text, bool* ok) {
    std::vector<std::size_t> values;
    std::stringstream stream(text);
    std::string item;
    *ok = true;
    while (std::getline(stream, item, ',')) {
        std::size_t value = 0;
        const auto [end, error] = std::from_chars(item.data(), item.data() + item.size(), value);
        if (error != std::errc() || end != item.data() + item.size() || value == 0) *ok = false;
        values.push_back(value);
    }
    if (values.empty()) *ok = false;
    return values;
}

// figures[in-flight index][client letter][run]
using FigureTable = std::vector<std::map<char, std::vector<Figures>>>;

#if VLMSDK_BENCH_HAVE_CPPREST
// Runs (q), cpprestsdk with its default pool, in a child process forked while this one has no thread yet, and
// adds its figures to `table`. False when the child cannot run or dies.
bool measureDefaultPool(const Settings& settings, const LoopbackServer& server, FigureTable& table) {
    int channel[2];
    if (pipe(channel) != 0) return false;
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
        close(channel[0]);
        const auto driver = makeGeneratedStyleDriver(server.baseURL(), "(q) cpprestsdk, default pool");
        for (std::size_t run = 0; run < settings.runs; ++run) {
            for (std::size_t f = 0; f < settings.inFlight.size(); ++f) {
                Measurement m = measure(*driver, settings.inFlight[f], settings, &server);
                const Figures fig = figuresOf(m);
                if (write(channel[1], &fig, sizeof fig) != static_cast<ssize_t>(sizeof fig)) _exit(1);
            }
        }
        _exit(0);  // no destructor: the server belongs to the parent
    }
    close(channel[1]);
    bool complete = true;
    for (std::size_t run = 0; run < settings.runs && complete; ++run) {
        for (std::size_t f = 0; f < settings.inFlight.size() && complete; ++f) {
            Figures fig{};
            complete = read(channel[0], &fig, sizeof fig) == static_cast<ssize_t>(sizeof fig);
            if (complete) table[f]['q'].push_back(fig);
        }
    }
    close(channel[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return complete && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
#endif

double medianOf(const std::vector<Figures>& runs, double Figures::*field) {
    std::vector<double> values;
    for (const auto& fig : runs) values.push_back(fig.*field);
    return median(values);
}

Figures mediansOf(const std::vector<Figures>& runs) {
    Figures f{};
    for (double Figures::*field : {&Figures::perSecond, &Figures::p50, &Figures::p99, &Figures::cpu, &Figures::user,
                                   &Figures::system, &Figures::switches, &Figures::mainThread, &Figures::otherThreads,
                                   &Figures::serverCPU, &Figures::serverBusy, &Figures::allocations,
                                   &Figures::failures}) {
        f.*field = medianOf(runs, field);
    }
    return f;
}

// Ratios are taken within each run, where the clients ran side by side, then their median.
double ratioOf(const std::vector<Figures>& top, const std::vector<Figures>& bottom, double Figures::*field) {
    std::vector<double> values;
    for (std::size_t r = 0; r < top.size() && r < bottom.size(); ++r) values.push_back(top[r].*field / bottom[r].*field);
    return median(values);
}

nlohmann::json figuresJSON(const Figures& f) {
    return {{"req_per_s", f.perSecond}, {"p50_us", f.p50},          {"p99_us", f.p99},
            {"cpu_us_per_op", f.cpu},   {"allocations_per_op", f.allocations}, {"context_switches_per_op", f.switches},
            {"server_us_per_req", f.serverCPU}};
}

constexpr const char* kUsage =
    "usage: vlmsdk-bench-fetch [--runs N] [--duration SECONDS | --requests N] [--warmup SECONDS]\n"
    "                          [--in-flight 1,8] [--clients abcdktmhpq] [--json FILE]\n"
    "                          [--base-url https://localhost:PORT/ --ca-file FILE] [--print-reply yes]\n"
    "  Fetches one reservation from a loopback server with: (a) raw libcurl multi, (b) libcurl + nlohmann::json\n"
    "  + a hand-written mapping, (c) the kit's fetchReservationWithID with default options (transfers driven\n"
    "  where the main queue is pumped, on libcurl), (d) the same on the core's own HTTP/1.1 connections,\n"
    "  (t) the same with the request manager's network thread, (m) the request manager without the kit's\n"
    "  frame, (h) two thread hand-offs without HTTP, (p) a generated-style cpprestsdk client with a 2-thread\n"
    "  pool and (q) the same with cpprestsdk's default pool (in a process of its own; p and q only when built\n"
    "  with cpprestsdk). Prints medians over the runs and the ratios c/a, c/b, c/p, c/q, d/c; --json writes\n"
    "  them. Defaults: --runs 5 --duration 2 --warmup 0.3 --in-flight 1,8, every client. --base-url measures\n"
    "  against a loopback target of the caller's serving --print-reply's body (scripts/tls-bench.sh: TLS with\n"
    "  a host name), libcurl clients only.\n";

}  // namespace

int main(int argc, char** argv) {
    CommandLine commandLine(argc, argv);
    Settings settings;
    settings.runs = static_cast<std::size_t>(commandLine.number("runs", 5));
    settings.duration = commandLine.number("duration", 2);
    settings.requests = static_cast<std::size_t>(commandLine.number("requests", 0));
    settings.warmup = commandLine.number("warmup", 0.3);
    bool listOK = true;
    settings.inFlight = parseList(commandLine.text("in-flight", "1,8"), &listOK);
    settings.clients = commandLine.text("clients", kDefaultClients);
    settings.json = commandLine.text("json", "");
    settings.baseURL = commandLine.text("base-url", "");
    settings.caFile = commandLine.text("ca-file", "");
    if (commandLine.text("print-reply", "") == "yes") {
        std::fputs(reservationReply().c_str(), stdout);  // for a target of the caller's to serve
        return 0;
    }
    auto problems = commandLine.problems();
    if (!listOK) problems.push_back("--in-flight wants a comma-separated list of counts of at least 1");
    if (settings.clients.empty() ||
        settings.clients.find_first_not_of(std::string_view(kDefaultClients)) != std::string::npos) {
        problems.push_back(std::string("--clients wants letters among ") + kDefaultClients);
    }
    if (settings.runs == 0) problems.push_back("--runs wants at least 1");
    if (!settings.baseURL.empty() && !isLoopbackTarget(settings.baseURL)) {
        problems.push_back("--base-url wants a loopback target (https://localhost:PORT/ or 127.0.0.1)");
    }
    if (!settings.baseURL.empty() && settings.baseURL.back() != '/') settings.baseURL.push_back('/');
    if (!settings.baseURL.empty() && settings.clients.find_first_of("dmpq") != std::string::npos) {
        problems.push_back("--base-url takes the clients that can be given its authority: a, b, c, k, t, h");
    }
    if (commandLine.wantsHelp() || !problems.empty()) {
        for (const auto& problem : problems) std::fprintf(stderr, "vlmsdk-bench-fetch: %s\n", problem.c_str());
        std::fputs(kUsage, problems.empty() ? stdout : stderr);
        return problems.empty() ? 0 : 2;
    }
    const auto wants = [&](char letter) { return settings.clients.find(letter) != std::string::npos; };

    // The server process, and (q)'s, are forked before anything here starts a thread.
    std::string error;
    const auto server = settings.baseURL.empty() ? LoopbackServer::start(reservationReply(), &error) : nullptr;
    if (!server && settings.baseURL.empty()) {
        std::fprintf(stderr, "vlmsdk-bench-fetch: cannot start the loopback server: %s\n", error.c_str());
        return 1;
    }
    const std::string base = server ? server->baseURL() : settings.baseURL;
    printMachine("vlmsdk-bench-fetch");
    std::printf("build type %s; reply %zu bytes from %s; %zu run(s) of ", VLMSDK_BENCH_BUILD_TYPE,
                reservationReply().size(), base.c_str(), settings.runs);
    if (settings.requests) {
        std::printf("%zu requests", settings.requests);
    } else {
        std::printf("%.1f s", settings.duration);
    }
    std::printf(" per client and in-flight count, each after %.1f s of warm-up; allocations %s\n", settings.warmup,
                allocationCountingWorks() ? "counted" : "not counted in this build");
    std::fflush(stdout);

    FigureTable table(settings.inFlight.size());
    bool childFailed = false;
#if VLMSDK_BENCH_HAVE_CPPREST
    if (wants('q')) {
        std::printf("(q) cpprestsdk with its default pool, in a process of its own, first\n");
        std::fflush(stdout);
        childFailed = !measureDefaultPool(settings, *server, table);
        if (childFailed) std::printf("WARNING: (q)'s process failed\n");
    }
#endif
    curl_global_init(CURL_GLOBAL_DEFAULT);

    const std::string url = base + "guest/reservations/" + kReservationID;
    std::map<char, std::unique_ptr<Driver>> drivers;
    if (wants('a')) drivers['a'] = std::make_unique<CurlDriver>(url, false, settings.caFile);
    if (wants('b')) drivers['b'] = std::make_unique<CurlDriver>(url, true, settings.caFile);
    using Options = VLMSDKHTTPRequestManagerOptions;
    // The kit's defaults, but for the test authority of a TLS target.
    const auto defaults = [&] {
        Options options;
        if (!settings.caFile.empty()) options.caFile = settings.caFile;
        return options;
    };
    if (wants('c')) drivers['c'] = std::make_unique<KitDriver>(base, defaults(), "(c) kit, defaults");
    if (wants('d')) {
        Options options;
        options.transport = Options::Transport::HTTP1;
        drivers['d'] = std::make_unique<KitDriver>(base, options, "(d) kit, HTTP/1.1 adapter");
    }
    if (wants('k')) {
        // A token that never expires: after the first fetch every request takes it from the cache.
        struct LastingToken final : VLMSDKCredentialsProvider {
            void fetchToken(Completion completion) override { completion(VLMSDKAccessToken{"bench-token"}, nullptr); }
        };
        drivers['k'] = std::make_unique<KitDriver>(base, defaults(), "(k) kit, token from credentials",
                                                   std::make_shared<LastingToken>());
    }
    if (wants('t')) {
        Options options = defaults();
        options.mode = Options::Mode::Threaded;
        drivers['t'] = std::make_unique<KitDriver>(base, options, "(t) kit, network thread");
    }
    if (wants('m')) drivers['m'] = std::make_unique<ManagerDriver>(base);
    if (wants('h')) drivers['h'] = std::make_unique<HandOffDriver>();
#if VLMSDK_BENCH_HAVE_CPPREST
    if (wants('p')) {
        sizeGeneratedStylePool(2);
        drivers['p'] = makeGeneratedStyleDriver(base, "(p) cpprestsdk, 2-thread pool");
    }
#endif

    double failures = 0;
    for (std::size_t run = 0; run < settings.runs; ++run) {
        std::printf("run %zu (load average %s)\n", run + 1, loadAverage().c_str());
        for (std::size_t f = 0; f < settings.inFlight.size(); ++f) {
            for (const char letter : kLetters) {
                if (!drivers.count(letter)) continue;
                Driver& driver = *drivers[letter];
                Measurement m = measure(driver, settings.inFlight[f], settings, server.get());
                const Figures fig = figuresOf(m);
                table[f][letter].push_back(fig);
                char label[64];
                std::snprintf(label, sizeof label, "%zu in flight %s", settings.inFlight[f], driver.name());
                printFigures(label, fig);
                if (m.connections) std::printf("    (%" PRIu64 " new connection(s) during the run)\n", m.connections);
                std::fflush(stdout);
            }
        }
    }

    nlohmann::json report = reportHeader("vlmsdk-bench-fetch", VLMSDK_BENCH_BUILD_TYPE);
    report["settings"] = {{"runs", settings.runs}, {"duration_s", settings.duration}, {"requests", settings.requests},
                          {"warmup_s", settings.warmup}, {"reply_bytes", reservationReply().size()},
                          {"allocations_counted", allocationCountingWorks()}};
    report["results"] = nlohmann::json::array();
    std::printf("\nmedians over %zu run(s) (load average now %s)\n", settings.runs, loadAverage().c_str());
    for (std::size_t f = 0; f < settings.inFlight.size(); ++f) {
        std::printf("%zu in flight\n", settings.inFlight[f]);
        nlohmann::json entry = {{"in_flight", settings.inFlight[f]}};
        for (const char letter : kLetters) {
            const auto found = table[f].find(letter);
            if (found == table[f].end() || found->second.empty()) continue;
            const Figures medians = mediansOf(found->second);
            failures += medianOf(found->second, &Figures::failures) * static_cast<double>(found->second.size());
            const char* label = letter == 'q' ? "(q) cpprestsdk, default pool" : drivers[letter]->name();
            printFigures(label, medians);
            entry["clients"][std::string(1, letter)] = figuresJSON(medians);
            entry["clients"][std::string(1, letter)]["name"] = label;
        }
        const auto has = [&](char letter) { return table[f].count(letter) && !table[f][letter].empty(); };
        if (has('b') && has('c') && has('m')) {
            std::vector<double> frame, manager;
            for (std::size_t r = 0; r < table[f]['c'].size(); ++r) {
                frame.push_back(table[f]['c'][r].cpu - table[f]['m'][r].cpu);
                manager.push_back(table[f]['m'][r].cpu - table[f]['b'][r].cpu);
            }
            std::printf("  client CPU per op: kit frame (c-m) %+.1f us, manager (m-b) %+.1f us\n", median(frame),
                        median(manager));
        }
        if (has('k') && has('c')) {
            // What a cached token costs a request, run by run (the two run side by side in each).
            std::vector<double> token;
            for (std::size_t r = 0; r < table[f]['k'].size() && r < table[f]['c'].size(); ++r) {
                token.push_back(table[f]['k'][r].cpu - table[f]['c'][r].cpu);
            }
            std::printf("  client CPU per op: cached token (k-c) %+.2f us\n", median(token));
            entry["cachedTokenCPU"] = median(token);
        }
        // The kit against each other client, and the HTTP/1.1 adapter against the default and (b).
        constexpr std::pair<char, char> kRatios[] = {{'c', 'a'}, {'c', 'b'}, {'c', 'p'}, {'c', 'q'},
                                                     {'d', 'c'}, {'d', 'b'}};
        for (const auto& [kit, base] : kRatios) {
            if (!has(kit) || !has(base)) continue;
            const auto& top = table[f][kit];
            const auto& bottom = table[f][base];
            const double throughput = ratioOf(top, bottom, &Figures::perSecond);
            const double p50 = ratioOf(top, bottom, &Figures::p50);
            const double p99 = ratioOf(top, bottom, &Figures::p99);
            const double cpu = ratioOf(top, bottom, &Figures::cpu);
            const double allocations = ratioOf(top, bottom, &Figures::allocations);
            std::printf("  %c/%c: throughput %.2f  p50 %.2f  p99 %.2f  client CPU %.2f  allocations %.2f\n", kit, base,
                        throughput, p50, p99, cpu, allocations);
            entry["ratios"][std::string{kit, '/', base}] = {{"throughput", throughput}, {"p50", p50}, {"p99", p99},
                                                          {"cpu", cpu}, {"allocations", allocations}};
        }
        report["results"].push_back(std::move(entry));
    }
    std::printf("\ntargets: at 8 in flight c/b throughput >= 1.5 and (c)'s client CPU <= 1.1 x (a)'s; at 1 in flight\n"
                "         c/b p50 <= 1.0; kit allocations per fetch <= (b)'s\n");
    if (server) {
        std::printf("server: %" PRIu64 " requests answered on %" PRIu64 " connection(s)\n", server->requestsAnswered(),
                    server->connectionsAccepted());
    }
    if (failures > 0) std::printf("WARNING: requests failed or returned an unexpected reply\n");
    const bool written = writeReport(settings.json, report);
    return failures > 0 || childFailed || !written ? 1 : 0;
}
