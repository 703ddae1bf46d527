#pragma once

#include <pmssandbox/Fault.h>
#include <pmssandbox/RecordedRequest.h>
#include <pmssandbox/SandboxConfig.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pmssandbox {

/// A reservation service on 127.0.0.1 speaking the kit's guest API, its state in SQLite (a file named by
/// SandboxConfig::stateFile, else in memory). Every request is one transaction; a POST or PATCH sent with
/// an Idempotency-Key is acted on once and its reply served again for a retry. Beside the guest API it
/// serves its own admin routes under /_sandbox/ and a dashboard page at "/" (see the README).
///
///     SandboxServer sandbox;                       // built-in bookings, token "sandbox-token"
///     if (auto port = sandbox.start()) {
///         std::string base = sandbox.baseUrl();    // "http://127.0.0.1:<port>/"
///     }
///
/// Routes (relative to baseUrl()): POST guest/reservations; GET and PATCH guest/reservations/{id};
/// PATCH guest/reservations/{id}/mobile_checkin and .../mobile_checkout; POST .../transactions;
/// GET .../folio; POST .../charge. Bookings become reachable by id once created through
/// POST guest/reservations, except those the seed marks "on_platform". A booking is found by its
/// confirmation number (case-insensitive), its venue, and the last name of the person who booked it
/// or of any guest on it (case-insensitive). A payment above the outstanding amount is refused with 409.
///
/// Every member function is thread-safe and none throws. The server runs its own threads; the
/// destructor stops it.
class SandboxServer {
public:
    explicit SandboxServer(SandboxConfig config = {});
    ~SandboxServer();

    SandboxServer(const SandboxServer&) = delete;
    SandboxServer& operator=(const SandboxServer&) = delete;

    /// Binds and starts serving; returns the bound port, or nullopt (see lastError()).
    /// Data survives stop()/start(); starting a running server returns its port.
    std::optional<int> start();
    /// Stops serving and waits for the server's threads. Cuts pending delays short. Idempotent.
    void stop();
    bool isRunning() const;
    /// The bound port while running, else 0.
    int port() const;
    /// "http://127.0.0.1:<port>/<prefix>/" while running, else empty.
    std::string baseUrl() const;
    /// Why the seed or the state file failed to load or the last start() failed; empty otherwise.
    std::string lastError() const;

    /// Replaces every active fault with `fault`.
    void setFault(const Fault& fault);
    /// Adds `fault` after the active ones; the first active fault matching a request applies.
    void addFault(const Fault& fault);
    void clearFaults();
    /// Faults still active (those limited by times() drop out once used up).
    std::size_t activeFaultCount() const;

    /// Requests received since construction or clearRequests().
    std::size_t requestCount() const;
    /// Of those, the ones with this method (empty: any) whose base-relative path starts with `pathPrefix`.
    std::size_t requestCount(std::string_view method, std::string_view pathPrefix) const;
    std::optional<RecordedRequest> lastRequest() const;
    /// The most recent requests, oldest first (at most the last 1000).
    std::vector<RecordedRequest> requests() const;
    void clearRequests();

    /// The notify_me flag last PATCHed on reservation `reservationId`; nullopt when never set or unknown.
    std::optional<bool> notifyMe(std::string_view reservationId) const;
    /// Puts every booking back as seeded (notify_me flags, payments and charges are forgotten), and forgets
    /// every Idempotency-Key.
    void resetData();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace pmssandbox
