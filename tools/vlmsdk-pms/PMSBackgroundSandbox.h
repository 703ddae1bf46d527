#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

/// The local reservation service kept running between commands: one pms-sandbox process in the
/// background on a fixed port of 127.0.0.1, its state in <state directory>/sandbox.db, its request lines
/// in sandbox.log, and its pid, URL and token in sandbox.json beside them.
class PMSBackgroundSandbox {
public:
    static constexpr int kDefaultPort = 8787;
    static constexpr const char* kDefaultToken = "sandbox-token";

    /// What sandbox.json says about the running service.
    struct Record {
        long pid = 0;
        std::string url;
        std::string token;
        std::string stateFile;
        std::string logFile;
    };

    /// `directory` empty: the user's state directory (XDG_STATE_HOME).
    explicit PMSBackgroundSandbox(std::filesystem::path directory = {});

    /// The service sandbox.json names, when that process is alive; a file naming no live pms-sandbox is
    /// removed.
    std::optional<Record> record() const;
    /// The running service, when it also answers on its admin routes.
    std::optional<Record> running() const;
    /// Starts the service on `port` (0: any free one) with `token` and waits until it answers; a service
    /// already running is kept. nullopt with the reason in `error`.
    std::optional<Record> start(int port, const std::string& token, std::string& error) const;
    /// Stops the running service (SIGTERM) and waits for it to exit; `stopped` tells which one, nullopt
    /// when none was running. False, with the reason in `error`, when it would not stop.
    bool stop(std::optional<Record>& stopped, std::string& error) const;

    const std::filesystem::path& directory() const { return directory_; }

private:
    std::filesystem::path recordFile() const { return directory_ / "sandbox.json"; }
    void writeRecord(const Record& record) const;

    std::filesystem::path directory_;
};
