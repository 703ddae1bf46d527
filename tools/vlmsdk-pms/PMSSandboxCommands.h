#pragma once

#include "PMSSettings.h"

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <optional>
#include <string>

namespace CLI {
class App;
}

/// The `sandbox` subcommand group of vlmsdk-pms: keeps the local reservation service running in the
/// background (start, stop, status, reset) and looks into it through its admin API (list, cards, log,
/// fault). Admin subcommands reach the service given by --base-url, else the background one.
class PMSSandboxCommands {
public:
    /// Adds the group to `app`; the parsed values live in this object, which must outlive the parse.
    PMSSandboxCommands(CLI::App& app, std::ostream& out, std::ostream& err);

    /// Whether the command line chose a sandbox subcommand.
    bool selected() const;
    /// Runs the chosen subcommand; answers the exit status.
    int run(const PMSSettings& settings);

private:
    struct Target {
        std::string url;
        std::string token;
    };
    std::optional<Target> target(const PMSSettings& settings) const;
    /// Sends one admin request; the reply's JSON, or nullopt after saying why on the error stream.
    std::optional<nlohmann::json> call(const Target& target, const std::string& method, const std::string& route,
                                       const std::string& body = "") const;
    int start(const PMSSettings& settings) const;
    int stop() const;
    int status(const PMSSettings& settings) const;
    int admin(const PMSSettings& settings);
    int follow(const Target& target, const PMSSettings& settings) const;
    std::optional<std::string> faultBody() const;
    /// Reports a failure of the chosen subcommand: a line on the error stream, or with --json a document
    /// {"error": {"operation", "message"}} on the output stream. Answers `status`.
    int fail(int status, const std::string& message) const;
    std::string chosenName() const;

    std::ostream& out_;
    std::ostream& err_;
    CLI::App* group_ = nullptr;
    CLI::App* start_ = nullptr;
    CLI::App* stop_ = nullptr;
    CLI::App* status_ = nullptr;
    CLI::App* reset_ = nullptr;
    CLI::App* list_ = nullptr;
    CLI::App* cards_ = nullptr;
    CLI::App* log_ = nullptr;
    CLI::App* fault_ = nullptr;
    CLI::App* faultList_ = nullptr;
    CLI::App* faultAdd_ = nullptr;
    CLI::App* faultClear_ = nullptr;

    int port_;
    bool follow_ = false;
    int limit_ = 50;
    std::string followFor_ = "3600";
    bool json_ = false;
    std::optional<int> faultStatus_;
    int retryAfter_ = 0;
    bool dropConnection_ = false;
    bool dropReply_ = false;
    bool notJson_ = false;
    int delayMs_ = 0;
    std::string faultMethod_;
    std::string faultPath_;
    int times_ = 0;
};
