#pragma once

#include "PMSRecordJSON.h"

#include <VLMSDKCoreKit/VLMSDKHTTPExchange.h>

#include <filesystem>
#include <memory>
#include <string>

/// --record DIR: each HTTP exchange of the command written to DIR as one fixture file in the format the
/// testing library loads (VLMSDKFixture): {"request": {"method", "route", "body"}, "reply": {"status", "headers",
/// "body"}}, or a "fault" for an attempt that got no answer. Files are numbered after those DIR holds already, so
/// that several commands record one script in order: "001-GET-guest_reservations_rsv_0001.json".
///
/// The route is the path relative to the service's base URL, without a query. No request header is written (the
/// token and the idempotency key stay out), card ids in either body are hidden as PMSRedaction shows them, and the
/// reply's Set-Cookie and the headers that only describe the wire (Content-Length, ...) are left out.
class PMSRecorder {
public:
    /// A recorder writing into `directory`, made when missing; nullptr, with why in `problem`, when it cannot be.
    static std::unique_ptr<PMSRecorder> open(const std::filesystem::path& directory, std::string* problem);

    /// The service's base URL, whose path the routes are relative to. Set before any request goes out.
    void setBaseURL(const std::string& baseURL);
    /// The observer that writes each exchange, at once, on whichever thread reports it.
    VLMSDKHTTPExchangeObserver observer() const;
    /// "FILE: why" for the first file that could not be written; empty when none.
    std::string writeProblem() const;

    /// The fixture document of `exchange`, its route relative to the URL path `basePath` ("/api/v1/").
    static PMSJSON fixture(const VLMSDKHTTPExchange& exchange, const std::string& basePath);
    /// "001-GET-guest_reservations_rsv_0001.json": the number, the method and the route, in characters any file
    /// system takes.
    static std::string fileName(unsigned number, const std::string& method, const std::string& route);

private:
    struct State;
    explicit PMSRecorder(std::shared_ptr<State> state) : state_(std::move(state)) {}

    std::shared_ptr<State> state_;
};
