#include <pmssandbox/SandboxServer.h>

#include "AdminApi.h"
#include "ApiHandler.h"
#include "ApiReply.h"
#include "AsciiText.h"
#include "BearerToken.h"
#include "BookingTable.h"
#include "ConnectionDropper.h"
#include "EmbeddedDashboard.h"
#include "EmbeddedSeed.h"
#include "FaultSwitch.h"
#include "IdempotencyStore.h"
#include "RequestLog.h"
#include "RequestLogRedactor.h"
#include "ReservationStore.h"
#include "Seed.h"
#include "StateDatabase.h"

#include <httplib.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <utility>

namespace pmssandbox {

namespace {

constexpr const char* kHost = "127.0.0.1";
constexpr std::size_t kMaxBodyBytes = 1 << 20;
// Idle keep-alive connections hold a worker, and stop() waits for workers; keep that wait short.
constexpr time_t kKeepAliveSeconds = 1;
// Requests one connection may carry before the server closes it; reconnecting costs a trip through the
// listen queue, so a busy client should rarely have to.
constexpr std::size_t kRequestsPerConnection = 1000;
// Connections waiting to be accepted, on top of those the workers hold.
constexpr int kListenBacklog = 128;

RecordedRequest record(const httplib::Request& req) {
    RecordedRequest recorded;
    recorded.method = req.method;
    recorded.path = req.path;
    recorded.target = req.target;
    recorded.body = req.body;
    for (const auto& [name, value] : req.headers) {
        // The HTTP library files the connection's addresses among the headers; they were never sent.
        if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT") continue;
        recorded.headers.emplace(lowered(name), value);
    }
    return recorded;
}

void respond(const ApiReply& reply, httplib::Response& res) {
    res.status = reply.status;
    for (const auto& [name, value] : reply.headers) res.set_header(name, value);
    // Text from the request (ids in paths) may not be UTF-8; never let that turn into an exception.
    res.set_content(reply.body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), "application/json");
}

std::optional<std::string> header(const httplib::Request& req, const char* name) {
    if (!req.has_header(name)) return std::nullopt;
    return req.get_header_value(name);
}

// The request target's path as it came, before any decoding; routing to the admin API looks only at it.
std::string_view rawPath(const std::string& target) { return std::string_view(target).substr(0, target.find('?')); }

std::optional<std::string> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) return std::nullopt;
    return text.str();
}

// Told when the listener loop has begun or has ended; httplib's stop() does nothing before the loop runs.
struct ListenerState {
    std::mutex mutex;
    std::condition_variable changed;
    bool started = false;
    bool ended = false;

    void mark(bool ListenerState::*flag) {
        {
            std::lock_guard lock(mutex);
            this->*flag = true;
        }
        changed.notify_all();
    }
};

}  // namespace

struct SandboxServer::Impl {
    explicit Impl(SandboxConfig cfg);

    std::optional<int> start();
    void stop();
    void serve(const httplib::Request& req, httplib::Response& res);
    // Answers a guest request, faults applied; gives the status sent (0: none) and a note for the log.
    std::pair<int, std::string> serveGuest(const httplib::Request& req, httplib::Response& res,
                                           const std::string& routePath);
    void pause(std::chrono::milliseconds duration);
    void configure(httplib::Server& server, const std::shared_ptr<ListenerState>& state);
    void openState(const std::string& seedText);

    const SandboxConfig config;
    BearerToken token;  // issuing tokens changes it
    std::optional<Seed> seed;
    std::string seedError;
    std::unique_ptr<StateDatabase> database;
    std::unique_ptr<BookingTable> bookings;
    std::unique_ptr<ReservationStore> store;
    std::unique_ptr<IdempotencyStore> keys;
    std::unique_ptr<ApiHandler> handler;
    std::unique_ptr<RequestLogRedactor> redactor;
    std::unique_ptr<AdminApi> admin;
    FaultSwitch faults;
    RequestLog log;

    mutable std::mutex lifecycleMutex;  // guards everything below up to the delay members
    std::unique_ptr<httplib::Server> http;
    std::thread listener;
    int port = 0;
    std::string lastError;

    std::mutex delayMutex;
    std::condition_variable delayWake;
    bool stopping = false;
};

SandboxServer::Impl::Impl(SandboxConfig cfg) : config(std::move(cfg)), token(config.token) {
    std::optional<std::string> text;
    if (config.seedJson) {
        text = config.seedJson;
    } else if (config.seedFile) {
        text = readFile(*config.seedFile);
        if (!text) seedError = "cannot read the seed file " + *config.seedFile;
    } else {
        text = EmbeddedSeed::text();
    }
    if (text) seed = Seed::parse(*text, seedError);
    if (seed) {
        try {
            openState(*text);
        } catch (const std::exception& e) {
            seedError = "state file " + config.stateFile.value_or(":memory:") + ": " + e.what();
            seed.reset();
        }
    }
    if (!seed) {
        admin.reset();
        handler.reset();
        store.reset();
        keys.reset();
        bookings.reset();
        database.reset();
    }
    lastError = seedError;
}

void SandboxServer::Impl::openState(const std::string& seedText) {
    database = std::make_unique<StateDatabase>(config.stateFile);
    bookings = std::make_unique<BookingTable>(database->connection());
    keys = std::make_unique<IdempotencyStore>(database->connection());
    const bool explicitSeed = config.seedJson || config.seedFile;
    std::string error;
    database->write([&] {
        bookings->createTables();
        keys->createTables();
        const std::optional<std::string> stored = database->seedText();
        if (!stored) {
            // A new database: the seed goes in once, and stays for resets.
            database->setSeedText(seedText);
            bookings->reset(seed->bookings);
        } else if (*stored != seedText) {
            if (explicitSeed) {
                error = "it was made from another seed; give no seed, or another state file";
                return;
            }
            seed = Seed::parse(*stored, error);
        }
    });
    if (!seed || !error.empty()) throw std::runtime_error(error);

    store = std::make_unique<ReservationStore>(*bookings, *seed);
    handler = std::make_unique<ApiHandler>(*database, *store, *keys, token, config.pathPrefix);
    std::vector<std::string> cardIds;
    for (const StoredCard& card : seed->cards) cardIds.push_back(card.id);
    redactor = std::make_unique<RequestLogRedactor>(config.token, std::move(cardIds));
    admin = std::make_unique<AdminApi>(*database, *store, *keys, faults, log, *redactor, token,
                                       AdminApi::Info{config.stateFile, handler->base()});
}

std::optional<int> SandboxServer::Impl::start() {
    std::lock_guard lock(lifecycleMutex);
    if (http) return port;
    if (!handler) {
        lastError = seedError;
        return std::nullopt;
    }
    if (config.token.empty()) {
        lastError = "the bearer token must not be empty";
        return std::nullopt;
    }
    if (config.port < 0 || config.port > 65535) {
        lastError = "the port must be between 0 and 65535";
        return std::nullopt;
    }
    if (AdminApi::owns(handler->base())) {
        lastError = "the path prefix must not start with _sandbox, where the service's own routes are";
        return std::nullopt;
    }

    auto server = std::make_unique<httplib::Server>();
    auto state = std::make_shared<ListenerState>();
    configure(*server, state);
    const int bound = config.port == 0 ? server->bind_to_any_port(kHost)
                                       : (server->bind_to_port(kHost, config.port) ? config.port : -1);
    if (bound <= 0) {
        lastError = "cannot listen on " + std::string(kHost) + ":" + std::to_string(config.port) +
                    " (is the port in use?)";
        return std::nullopt;
    }
    // The library listens with a backlog of 5: a burst of connections beyond it waits a second or more
    // for a SYN retransmission, or is reset. Listening again on the bound socket widens the queue.
    struct Backlog : httplib::Server {
        static void widen(httplib::Server& s) { ::listen(s.*(&Backlog::svr_sock_), kListenBacklog); }
    };
    Backlog::widen(*server);

    {
        std::lock_guard delayLock(delayMutex);
        stopping = false;
    }
    listener = std::thread([raw = server.get(), state] {
        raw->listen_after_bind();
        state->mark(&ListenerState::ended);
    });
    bool failed = false;
    {
        std::unique_lock stateLock(state->mutex);
        state->changed.wait(stateLock, [&] { return state->started || state->ended; });
        failed = !state->started;
    }
    if (failed) {
        listener.join();
        lastError = "the listener on " + std::string(kHost) + ":" + std::to_string(bound) + " stopped at once";
        return std::nullopt;
    }
    http = std::move(server);
    port = bound;
    lastError.clear();
    return port;
}

void SandboxServer::Impl::stop() {
    std::lock_guard lock(lifecycleMutex);
    if (!http) return;
    {
        std::lock_guard delayLock(delayMutex);
        stopping = true;
    }
    delayWake.notify_all();
    http->stop();
    listener.join();
    http.reset();
    port = 0;
}

void SandboxServer::Impl::configure(httplib::Server& server, const std::shared_ptr<ListenerState>& state) {
    const std::size_t workers = std::max<std::size_t>(1, config.workerThreads);
    // httplib creates the task queue right after it starts accepting, which makes this the ready signal.
    server.new_task_queue = [state, workers]() -> httplib::TaskQueue* {
        state->mark(&ListenerState::started);
        return new httplib::ThreadPool(workers);
    };
    // Without SO_REUSEPORT (httplib's default), a port already taken makes start() fail instead of
    // silently sharing it with another process.
    server.set_socket_options([](socket_t sock) {
        int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    server.set_keep_alive_timeout(kKeepAliveSeconds);
    server.set_keep_alive_max_count(kRequestsPerConnection);
    // Small replies on kept-alive connections would otherwise wait for the delayed ACK.
    server.set_tcp_nodelay(true);
    server.set_payload_max_length(kMaxBodyBytes);

    const httplib::Server::Handler handle = [this](const httplib::Request& req, httplib::Response& res) {
        serve(req, res);
    };
    // Without Content-Length or Transfer-Encoding a request has no body, yet httplib would wait for the
    // peer to close before routing such a POST or PATCH (a bodiless mobile_checkin, say). Answer it first.
    server.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        if (req.has_header("Content-Length") || req.has_header("Transfer-Encoding"))
            return httplib::Server::HandlerResponse::Unhandled;
        serve(req, res);
        return httplib::Server::HandlerResponse::Handled;
    });
    const std::string everything = R"([\s\S]*)";
    server.Get(everything, handle);
    server.Post(everything, handle);
    server.Put(everything, handle);
    server.Patch(everything, handle);
    server.Delete(everything, handle);
    server.Options(everything, handle);

    // Replies httplib makes itself (malformed requests, oversized bodies, unknown methods) get our error shape.
    server.set_error_handler(httplib::Server::HandlerWithResponse(
        [](const httplib::Request&, httplib::Response& res) {
            if (!res.body.empty()) return httplib::Server::HandlerResponse::Unhandled;
            respond(ApiReply::error(res.status, ApiReply::codeForStatus(res.status), "The request could not be served."),
                  res);
            return httplib::Server::HandlerResponse::Handled;
        }));
    server.set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
        respond(ApiReply::error(500, "internal_error", "The sandbox failed while answering."), res);
    });
}

void SandboxServer::Impl::pause(std::chrono::milliseconds duration) {
    std::unique_lock lock(delayMutex);
    delayWake.wait_for(lock, duration, [this] { return stopping; });
}

void SandboxServer::Impl::serve(const httplib::Request& req, httplib::Response& res) {
    try {
        const std::string_view raw = rawPath(req.target);
        if (raw == "/" && req.method == "GET") {
            res.status = 200;
            // The page fetches from this service only; the policy makes the browser hold it to that.
            res.set_header("Content-Security-Policy",
                           "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
                           "connect-src 'self'; img-src data:");
            res.set_content(EmbeddedDashboard::text(), "text/html; charset=utf-8");
            return;
        }
        if (AdminApi::owns(raw)) {
            respond(admin->handle(req.method, raw, req.params, header(req, "Authorization"), req.body), res);
            return;
        }

        const auto started = std::chrono::steady_clock::now();
        std::string_view path = req.path;
        auto relative = handler->routePath(path);
        if (!relative) relative = path.substr(std::min<std::size_t>(1, path.size()));
        const std::string routePath(*relative);
        const std::uint64_t sequence = log.add(record(req), routePath);
        // Every answer names its request, as a production service's does, for support tickets.
        res.set_header("X-Request-Id", log.requestId(sequence));
        auto [status, note] = serveGuest(req, res, routePath);
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - started;
        const auto logged = log.finish(sequence, status, elapsed.count(), std::move(note));
        if (config.requestLine && logged) config.requestLine(redactor->line(*logged));
    } catch (...) {
        respond(ApiReply::error(500, "internal_error", "The sandbox failed while answering."), res);
    }
}

std::pair<int, std::string> SandboxServer::Impl::serveGuest(const httplib::Request& req, httplib::Response& res,
                                                            const std::string& routePath) {
    const auto cutConnection = [&] {
        if (!ConnectionDropper::drop(req.local_addr, req.local_port, req.remote_addr, req.remote_port)) {
            // Not found: promise a body and send none, which still ends the exchange early.
            res.status = 200;
            res.set_content_provider(1, "application/json", [](size_t, size_t, httplib::DataSink&) { return false; });
        }
    };
    const std::optional<Fault> fault = faults.take(req.method, routePath);
    if (fault && fault->delayDuration().count() > 0) pause(fault->delayDuration());
    const Fault::Action action = fault ? fault->action() : Fault::Action::None;
    switch (action) {
    case Fault::Action::DropConnection: cutConnection(); return {0, "connection dropped"};
    case Fault::Action::ForceStatus: {
        ApiReply reply = ApiReply::error(fault->status(), ApiReply::codeForStatus(fault->status()),
                                         "The sandbox was told to fail this request.");
        if (fault->retryAfter().count() > 0)
            reply.headers.emplace_back("Retry-After", std::to_string(fault->retryAfter().count()));
        respond(reply, res);
        return {reply.status, "forced status"};
    }
    case Fault::Action::NotJson:
        res.status = 200;
        res.set_content(fault->body(), "text/html");
        return {200, "not JSON"};
    case Fault::Action::DropReply:
    case Fault::Action::None: break;
    }

    const ApiReply reply = handler->handle(req.method, req.path, header(req, "Authorization"), req.body,
                                           header(req, "Idempotency-Key"));
    const bool replayed = std::any_of(reply.headers.begin(), reply.headers.end(),
                                      [](const auto& h) { return h.first == ApiHandler::kReplayedHeader; });
    if (action == Fault::Action::DropReply) {
        cutConnection();
        return {reply.status, "reply dropped"};
    }
    respond(reply, res);
    return {reply.status, replayed ? "replayed" : ""};
}

SandboxServer::SandboxServer(SandboxConfig config) {
    try {
        impl_ = std::make_unique<Impl>(std::move(config));
    } catch (...) {
        impl_.reset();  // every member function then reports failure
    }
}

SandboxServer::~SandboxServer() { stop(); }

std::optional<int> SandboxServer::start() {
    if (!impl_) return std::nullopt;
    try {
        return impl_->start();
    } catch (const std::exception& e) {
        std::lock_guard lock(impl_->lifecycleMutex);
        impl_->lastError = std::string("start failed: ") + e.what();
    } catch (...) {
        std::lock_guard lock(impl_->lifecycleMutex);
        impl_->lastError = "start failed";
    }
    return std::nullopt;
}

void SandboxServer::stop() {
    if (!impl_) return;
    try {
        impl_->stop();
    } catch (...) {
        // Only joining can throw here, and only if the thread is already gone; nothing left to undo.
    }
}

bool SandboxServer::isRunning() const {
    if (!impl_) return false;
    std::lock_guard lock(impl_->lifecycleMutex);
    return impl_->http != nullptr;
}

int SandboxServer::port() const {
    if (!impl_) return 0;
    std::lock_guard lock(impl_->lifecycleMutex);
    return impl_->port;
}

std::string SandboxServer::baseUrl() const {
    if (!impl_) return {};
    try {
        std::lock_guard lock(impl_->lifecycleMutex);
        if (!impl_->http) return {};
        return "http://" + std::string(kHost) + ":" + std::to_string(impl_->port) + impl_->handler->base();
    } catch (...) {
        return {};
    }
}

std::string SandboxServer::lastError() const {
    if (!impl_) return "the sandbox could not be created";
    try {
        std::lock_guard lock(impl_->lifecycleMutex);
        return impl_->lastError;
    } catch (...) {
        return {};
    }
}

void SandboxServer::setFault(const Fault& fault) {
    if (!impl_) return;
    try {
        impl_->faults.set(fault);
    } catch (...) {
    }
}

void SandboxServer::addFault(const Fault& fault) {
    if (!impl_) return;
    try {
        impl_->faults.add(fault);
    } catch (...) {
    }
}

void SandboxServer::clearFaults() {
    if (impl_) impl_->faults.clear();
}

std::size_t SandboxServer::activeFaultCount() const { return impl_ ? impl_->faults.size() : 0; }

std::size_t SandboxServer::requestCount() const { return impl_ ? impl_->log.count() : 0; }

std::size_t SandboxServer::requestCount(std::string_view method, std::string_view pathPrefix) const {
    if (!impl_) return 0;
    try {
        return impl_->log.count(method, pathPrefix);
    } catch (...) {
        return 0;
    }
}

std::optional<RecordedRequest> SandboxServer::lastRequest() const {
    if (!impl_) return std::nullopt;
    try {
        return impl_->log.last();
    } catch (...) {
        return std::nullopt;
    }
}

std::vector<RecordedRequest> SandboxServer::requests() const {
    if (!impl_) return {};
    try {
        return impl_->log.all();
    } catch (...) {
        return {};
    }
}

void SandboxServer::clearRequests() {
    if (impl_) impl_->log.clear();
}

std::optional<bool> SandboxServer::notifyMe(std::string_view reservationId) const {
    if (!impl_ || !impl_->store) return std::nullopt;
    try {
        return impl_->database->read([&] { return impl_->store->notifyMe(reservationId); });
    } catch (...) {
        return std::nullopt;
    }
}

void SandboxServer::resetData() {
    if (!impl_ || !impl_->store) return;
    try {
        impl_->database->write([&] {
            impl_->store->reset();
            impl_->keys->clear();
        });
    } catch (...) {
    }
}

}  // namespace pmssandbox
