#pragma once

#include <chrono>
#include <optional>
#include <string>

/// The options that apply to every subcommand of vlmsdk-pms.
struct PMSSettings {
    /// The reservation service; absent: the local service is started in-process.
    std::optional<std::string> baseURL;
    /// The bearer token sent; absent: the local service's own token, or none for a service given by URL.
    std::optional<std::string> token;
    /// A file of CA certificates (PEM) to trust instead of the system's, for a service with its own CA.
    std::optional<std::string> caFile;
    /// One JSON document on standard output instead of text.
    bool json = false;
    /// 0: the SDK's own log lines are off; 1: up to Info; 2 or more: up to Debug.
    int verbosity = 0;
    /// How long one operation may take before the tool gives up on it.
    std::chrono::milliseconds timeout{std::chrono::seconds(30)};
};
