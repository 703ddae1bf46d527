#pragma once

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManagerOptions.h>

#include <chrono>
#include <optional>
#include <string>

/// The options that apply to every subcommand of vlmsdk-pms.
struct PMSSettings {
    /// The reservation service, checked as PMSServiceURL reads it; absent: the background local service, else
    /// one started in-process.
    std::optional<std::string> baseURL;
    /// The bearer token sent; absent: the local service's own token, or none for a service given by URL.
    std::optional<std::string> token;
    /// A file of CA certificates (PEM) to trust instead of the system's, for a service with its own CA.
    std::optional<std::string> caFile;
    /// One JSON document on standard output instead of text.
    bool json = false;
    /// 0: nothing but the outcome; 1: a line per HTTP attempt on standard error; 2 or more: its headers and
    /// bodies too (see PMSWireLog).
    int verbosity = 0;
    /// Who speaks HTTP: libcurl (the default, as in a host app), or the core's own HTTP/1.1 connections for
    /// plain http to an address.
    VLMSDKHTTPRequestManagerOptions::Transport transport = VLMSDKHTTPRequestManagerOptions::Transport::LibCurl;
    /// Attempts after the first, where sending again cannot do anything twice (see VLMSDKRetryPolicy).
    unsigned retries = 2;
    /// Whether POST and PATCH carry an Idempotency-Key (and may then be sent again): absent, on for the local
    /// service, which honours keys, and off for a service given by URL.
    std::optional<bool> idempotencyKeys;
    /// How long the tokens the tool asks the local service for live (without --token); refreshed as they expire.
    std::chrono::seconds tokenLifetime{3600};
    /// How long one operation may take before the tool gives up on it.
    std::chrono::milliseconds timeout{std::chrono::seconds(30)};
    /// The outbox file (--outbox, VLMSDK_PMS_OUTBOX); absent: outbox.db in the state directory (see PMSOutboxFile).
    std::optional<std::string> outboxFile;
};
