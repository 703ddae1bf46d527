#pragma once

#include <pmssandbox/SandboxServer.h>

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace pmssandbox::testing {

/// What came back for one request. `status` is 0 when no HTTP reply arrived (see `error`).
struct Reply {
    int status = 0;
    httplib::Error error = httplib::Error::Success;
    std::string text;
    nlohmann::json json;  // discarded when `text` is not JSON
    httplib::Headers headers;

    std::string errorCode() const;
};

/// Talks to a sandbox over HTTP the way an app would, with the bearer token set.
class SandboxClient {
public:
    explicit SandboxClient(int port, std::string base = "/", std::string token = "sandbox-token");

    /// `path` is relative to the base, e.g. "guest/reservations". A null `body` sends none.
    Reply send(const std::string& method, const std::string& path, const std::optional<nlohmann::json>& body = {});
    /// Sends `body` verbatim; `authorization` replaces the header, nullopt leaves it out.
    Reply sendText(const std::string& method, const std::string& path, const std::string& body,
                   const std::optional<std::string>& authorization);
    void setReadTimeout(std::chrono::milliseconds timeout);

    /// Creates the reservation through the API and returns its id (empty and a test failure otherwise).
    std::string create(const std::string& confirmationId, const std::string& venueId, const std::string& lastName);
    /// The reservation's outstanding amount as served, or NaN.
    double outstanding(const std::string& reservationId);

private:
    httplib::Client client_;
    std::string base_;
    std::string token_;
};

/// A running sandbox on the built-in bookings, one per test.
class SandboxTest : public ::testing::Test {
protected:
    void SetUp() override;

    std::unique_ptr<SandboxServer> sandbox;
    std::unique_ptr<SandboxClient> client;
    int port = 0;
};

/// A small valid seed for tests to edit: venue "v1" (rooms "1", "2"; item "i1" at 1.25 USD), user "u1" with
/// card "c1", and reserved booking "b1" (reference "REF-1", last name "Tester", check-in open, no room).
nlohmann::json minimalSeed();
/// A booking like "b1" of minimalSeed() with another id, reference and status.
nlohmann::json seedBooking(const std::string& id, const std::string& reference, const std::string& status,
                           const std::string& room);

/// Writes `request` to a fresh connection and returns what comes back: one whole reply, or everything
/// read until the server closes the connection.
std::string rawExchange(int port, const std::string& request);

}  // namespace pmssandbox::testing
