// vlmsdk-bench-fetch: the kit's fetchReservationWithID end to end against raw libcurl and against
// hand-written libcurl + JSON parse + mapping, at the same concurrency, on a loopback server; and, to show
// where the difference goes, the HTTP request manager without the kit's frame and the two thread
// hand-offs without HTTP.

#include "BenchReplies.h"
#include "BenchSupport.h"
#include "LoopbackServer.h"

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
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#ifndef VLMSDK_BENCH_BUILD_TYPE
#define VLMSDK_BENCH_BUILD_TYPE "unknown"
#endif

namespace {

using namespace vlmsdk::bench;
using Json = nlohmann::json;

// ---------------------------------------------------------------------------------------------------------
// What one measured stretch produced.

struct Measurement {
    std::size_t requests = 0;
    std::size_t failures = 0;
    double seconds = 0;
    ProcessUsage client;
    ThreadSplit threads;   // microseconds, main thread and the others
    double serverCPU = 0;  // microseconds
    std::uint64_t connections = 0;
    std::vector<double> latencies;  // microseconds

    void record(Clock::time_point started, bool ok) {
        latencies.push_back(std::chrono::duration<double, std::micro>(Clock::now() - started).count());
        ++requests;
        if (!ok) ++failures;
    }
    double perSecond() const { return seconds > 0 ? static_cast<double>(requests) / seconds : 0; }
    double perRequest(double total) const { return requests ? total / static_cast<double>(requests) : 0; }
    double serverBusy() const { return seconds > 0 ? serverCPU / (seconds * 1e6) : 0; }
};

// How many more requests a stretch may start: until a deadline or a count, whichever comes first.
class Budget {
public:
    Budget(double seconds, std::size_t maximum)
        : deadline_(Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))),
          maximum_(maximum) {}

    bool another() {
        if (issued_ >= maximum_ || Clock::now() >= deadline_) return false;
        ++issued_;
        return true;
    }

private:
    Clock::time_point deadline_;
    std::size_t maximum_;
    std::size_t issued_ = 0;
};

class Driver {
public:
    virtual ~Driver() = default;
    virtual const char* name() const = 0;
    /// Keeps `inFlight` requests outstanding while `budget` allows, then waits for the last answer.
    virtual void run(std::size_t inFlight, Budget& budget, Measurement& measurement) = 0;
};

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
    CurlDriver(std::string url, bool parseAndMap) : url_(std::move(url)), parseAndMap_(parseAndMap) {
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
    bool parseAndMap_;
    CURLM* multi_ = nullptr;
    curl_slist* headers_ = nullptr;
    std::vector<std::unique_ptr<Slot>> slots_;
};

// ---------------------------------------------------------------------------------------------------------
// (c): the kit's operation with the HTTP request manager; completions run on the pumped main queue.

class KitDriver final : public Driver {
public:
    explicit KitDriver(const std::string& baseURL)
        : manager_(std::make_shared<VLMSDKHTTPRequestManager>()),
          api_(std::make_shared<VLMSDKRequestBuilder>(baseURL), manager_) {}

    const char* name() const override { return "(c) kit fetchReservationWithID"; }

    void run(std::size_t inFlight, Budget& budget, Measurement& measurement) override {
        budget_ = &budget;
        measurement_ = &measurement;
        active_ = 0;
        for (std::size_t i = 0; i < inFlight && budget.another(); ++i) issue();
        VLMSDKMainQueue::runUntil([this] { return active_ == 0; }, std::chrono::minutes(10));
    }

    std::size_t connectionsOpened() const { return manager_->connectionsOpened(); }

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
    const std::optional<std::string> id_ = std::string(kReservationID);
    Budget* budget_ = nullptr;
    Measurement* measurement_ = nullptr;
    std::size_t active_ = 0;
};

// ---------------------------------------------------------------------------------------------------------
// (m): the request builder and the HTTP request manager without the kit's frame: the reply is parsed on the
// network thread as for (c), then handed to the main queue unmapped. (c) minus (m) is the kit's own share:
// validation, mapping and record delivery.

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
            [this, started](std::shared_ptr<const VLMSDKJSON> json, std::shared_ptr<const VLMSDKURLResponse> response,
                            VLMErrorPtr error) {
                const bool ok = json && json->contains("reservation") && response && response->statusCode() == 200 &&
                                !error;
                // The reply is released here, on the network thread that made it, as the kit's frame does.
                json.reset();
                VLMSDKMainQueue::async([this, started, ok] {
                    --active_;
                    measurement_->record(started, ok);
                    if (budget_->another()) issue();
                });
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
    std::size_t runs = 3;
    double duration = 3;
    std::size_t requests = 0;  // 0: run for `duration`
    double warmup = 0.5;
    std::vector<std::size_t> inFlight{1, 8};
    std::string clients = "abcmh";
};

Measurement measure(Driver& driver, std::size_t inFlight, const Settings& settings, const LoopbackServer& server) {
    const auto unlimited = std::numeric_limits<std::size_t>::max();
    {
        Measurement discarded;
        Budget warmup(settings.warmup, unlimited);
        driver.run(inFlight, warmup, discarded);
    }
    Measurement m;
    m.latencies.reserve(settings.requests ? settings.requests : 200000);
    Budget budget(settings.requests ? 1e9 : settings.duration, settings.requests ? settings.requests : unlimited);
    const ProcessUsage client0 = processUsage();
    const ThreadSplit threads0 = threadSplit();
    const double server0 = server.cpuMicroseconds();
    const auto connections0 = server.connectionsAccepted();
    const auto t0 = Clock::now();
    driver.run(inFlight, budget, m);
    const auto t1 = Clock::now();
    m.client = processUsage() - client0;
    const ThreadSplit threads1 = threadSplit();
    m.threads = {threads1.mainMicroseconds - threads0.mainMicroseconds,
                 threads1.otherMicroseconds - threads0.otherMicroseconds};
    m.serverCPU = server.cpuMicroseconds() - server0;
    m.connections = server.connectionsAccepted() - connections0;
    m.seconds = secondsBetween(t0, t1);
    return m;
}

struct Figures {
    double perSecond, p50, p99, cpu, user, system, switches, mainThread, otherThreads, serverCPU, serverBusy;
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
            m.serverBusy()};
}

void printFigures(const char* label, const Figures& f) {
    std::printf("  %-36s %6.0f req/s  p50 %6.1f us  p99 %7.1f us  client CPU %5.1f us/op (user %4.1f, sys %4.1f; "
                "main thread %4.1f, others %4.1f; %4.2f context switches)  server %4.1f us/req, %3.0f%% of a core\n",
                label, f.perSecond, f.p50, f.p99, f.cpu, f.user, f.system, f.mainThread, f.otherThreads, f.switches,
                f.serverCPU, 100 * f.serverBusy);
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

constexpr const char* kUsage =
    "usage: vlmsdk-bench-fetch [--runs N] [--duration SECONDS | --requests N] [--warmup SECONDS]\n"
    "                          [--in-flight 1,8] [--clients abcmh]\n"
    "  Measures (a) raw libcurl multi, (b) libcurl + nlohmann::json + a hand-written mapping and (c) the kit's\n"
    "  fetchReservationWithID against a loopback server at each in-flight count; for the breakdown also\n"
    "  (m) the HTTP request manager without the kit's frame and (h) the kit's two thread hand-offs without\n"
    "  HTTP. Prints medians over the runs and the ratios c/a and c/b. --clients picks some of a, b, c, m\n"
    "  and h (to profile one, say).\n"
    "  Defaults: --runs 3 --duration 3 --warmup 0.5 --in-flight 1,8 --clients abcmh.\n";

}  // namespace

int main(int argc, char** argv) {
    CommandLine commandLine(argc, argv);
    Settings settings;
    settings.runs = static_cast<std::size_t>(commandLine.number("runs", 3));
    settings.duration = commandLine.number("duration", 3);
    settings.requests = static_cast<std::size_t>(commandLine.number("requests", 0));
    settings.warmup = commandLine.number("warmup", 0.5);
    bool listOK = true;
    settings.inFlight = parseList(commandLine.text("in-flight", "1,8"), &listOK);
    settings.clients = commandLine.text("clients", "abcmh");
    auto problems = commandLine.problems();
    if (!listOK) problems.push_back("--in-flight wants a comma-separated list of counts of at least 1");
    if (settings.clients.empty() || settings.clients.find_first_not_of("abcmh") != std::string::npos) {
        problems.push_back("--clients wants letters among a, b, c, m and h");
    }
    if (settings.runs == 0) problems.push_back("--runs wants at least 1");
    if (commandLine.wantsHelp() || !problems.empty()) {
        for (const auto& problem : problems) std::fprintf(stderr, "vlmsdk-bench-fetch: %s\n", problem.c_str());
        std::fputs(kUsage, problems.empty() ? stdout : stderr);
        return problems.empty() ? 0 : 2;
    }

    // The server process is forked before anything here starts a thread.
    std::string error;
    const auto server = LoopbackServer::start(reservationReply(), &error);
    if (!server) {
        std::fprintf(stderr, "vlmsdk-bench-fetch: cannot start the loopback server: %s\n", error.c_str());
        return 1;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);

    printMachine("vlmsdk-bench-fetch");
    std::printf("build type %s; reply %zu bytes from %s; %zu run(s) of ", VLMSDK_BENCH_BUILD_TYPE,
                reservationReply().size(), server->baseURL().c_str(), settings.runs);
    if (settings.requests) {
        std::printf("%zu requests", settings.requests);
    } else {
        std::printf("%.1f s", settings.duration);
    }
    std::printf(" per client and in-flight count, each after %.1f s of warm-up\n", settings.warmup);

    const std::string url = server->baseURL() + "guest/reservations/" + kReservationID;
    CurlDriver raw(url, false);
    CurlDriver hand(url, true);
    KitDriver kit(server->baseURL());
    ManagerDriver managerOnly(server->baseURL());
    HandOffDriver handOff;
    Driver* const drivers[] = {&raw, &hand, &kit, &managerOnly, &handOff};
    constexpr std::size_t kDrivers = 5;
    constexpr const char kLetters[kDrivers + 1] = "abcmh";

    // figures[inFlight index][driver][run]
    std::vector<std::vector<std::vector<Figures>>> figures(
        settings.inFlight.size(), std::vector<std::vector<Figures>>(kDrivers));
    std::size_t failures = 0;
    for (std::size_t run = 0; run < settings.runs; ++run) {
        std::printf("run %zu (load average %s)\n", run + 1, loadAverage().c_str());
        for (std::size_t f = 0; f < settings.inFlight.size(); ++f) {
            for (std::size_t d = 0; d < kDrivers; ++d) {
                if (settings.clients.find(kLetters[d]) == std::string::npos) continue;
                Measurement m = measure(*drivers[d], settings.inFlight[f], settings, *server);
                failures += m.failures;
                const Figures fig = figuresOf(m);
                figures[f][d].push_back(fig);
                char label[64];
                std::snprintf(label, sizeof label, "%zu in flight %s", settings.inFlight[f], drivers[d]->name());
                printFigures(label, fig);
                if (m.connections) std::printf("    (%" PRIu64 " new connection(s) during the run)\n", m.connections);
            }
        }
    }

    std::printf("\nmedians over %zu run(s) (load average now %s)\n", settings.runs, loadAverage().c_str());
    for (std::size_t f = 0; f < settings.inFlight.size(); ++f) {
        std::printf("%zu in flight\n", settings.inFlight[f]);
        auto medianOf = [&](std::size_t d, double Figures::*field) {
            std::vector<double> values;
            for (const auto& fig : figures[f][d]) values.push_back(fig.*field);
            return median(values);
        };
        // Ratios are taken within each run, where the clients ran side by side, then their median.
        auto ratioOf = [&](std::size_t top, std::size_t bottom, double Figures::*field) {
            std::vector<double> values;
            for (std::size_t r = 0; r < figures[f][top].size(); ++r) {
                values.push_back(figures[f][top][r].*field / figures[f][bottom][r].*field);
            }
            return median(values);
        };
        for (std::size_t d = 0; d < kDrivers; ++d) {
            if (figures[f][d].empty()) continue;
            printFigures(drivers[d]->name(),
                         {medianOf(d, &Figures::perSecond), medianOf(d, &Figures::p50), medianOf(d, &Figures::p99),
                          medianOf(d, &Figures::cpu), medianOf(d, &Figures::user), medianOf(d, &Figures::system),
                          medianOf(d, &Figures::switches), medianOf(d, &Figures::mainThread),
                          medianOf(d, &Figures::otherThreads), medianOf(d, &Figures::serverCPU),
                          medianOf(d, &Figures::serverBusy)});
        }
        // Where (c)'s extra client CPU goes: the kit's frame over the bare manager, the manager over (b).
        auto differenceOf = [&](std::size_t top, std::size_t bottom) {
            std::vector<double> values;
            for (std::size_t r = 0; r < figures[f][top].size(); ++r) {
                values.push_back(figures[f][top][r].cpu - figures[f][bottom][r].cpu);
            }
            return median(values);
        };
        if (!figures[f][1].empty() && !figures[f][2].empty() && !figures[f][3].empty()) {
            std::printf("  client CPU per op: c-b %+.1f us = kit frame (c-m) %+.1f us + manager and hand-offs (m-b) "
                        "%+.1f us\n",
                        differenceOf(2, 1), differenceOf(2, 3), differenceOf(3, 1));
        }
        for (std::size_t base = 0; base < 2; ++base) {
            if (figures[f][2].empty() || figures[f][base].empty()) continue;
            std::printf("  c/%c: throughput %.2f  p50 %.2f  p99 %.2f  client CPU %.2f\n", base ? 'b' : 'a',
                        ratioOf(2, base, &Figures::perSecond), ratioOf(2, base, &Figures::p50),
                        ratioOf(2, base, &Figures::p99), ratioOf(2, base, &Figures::cpu));
        }
    }
    std::printf("\ntargets: at 8 in flight c/b throughput >= 0.95 and c/a >= 0.75; at 1 in flight c/b p50 <= 1.1;\n"
                "         kit client CPU <= 35 us per fetch\n");
    std::printf("server: %" PRIu64 " requests answered on %" PRIu64 " connection(s); kit manager opened %zu\n",
                server->requestsAnswered(), server->connectionsAccepted(), kit.connectionsOpened());
    if (failures) std::printf("WARNING: %zu request(s) failed or returned an unexpected reply\n", failures);
    return failures ? 1 : 0;
}
