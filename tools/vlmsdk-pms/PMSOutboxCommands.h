#pragma once

#include "PMSRecordJSON.h"
#include "PMSSettings.h"

#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutbox.h>

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>

namespace CLI {
class App;
}
class PMSFailureExplainer;
class PMSOutputPrinter;
class PMSServiceConnection;

/// The `outbox` subcommand group of vlmsdk-pms (list, send, cancel, clear) and the `--queue` of the
/// state-changing subcommands, which store the operation in the outbox file (PMSOutboxFile) instead of sending
/// it. Only `send` reaches a service.
class PMSOutboxCommands {
public:
    /// One enqueue call on the outbox: what a subcommand given --queue stores.
    using Enqueue = std::function<std::optional<std::int64_t>(VLMSDKOutbox& outbox, VLMErrorPtr* error)>;

    /// Adds the group to `app`; the parsed values live in this object, which must outlive the parse.
    PMSOutboxCommands(CLI::App& app, std::ostream& out, std::ostream& err);

    /// Whether the command line chose an outbox subcommand, and whether that is `send`.
    bool selected() const;
    bool sendSelected() const;
    /// Runs list, cancel or clear; answers the exit status.
    int run(const PMSSettings& settings);
    /// Stores `operation` on `reservationID` through `enqueue` (--queue); answers the exit status.
    int enqueue(const PMSSettings& settings, const std::string& operation, const std::string& reservationID,
                const Enqueue& enqueue);
    /// Runs send through the service `connection` reaches (see PMSOutboxSender).
    int send(const PMSSettings& settings, const PMSServiceConnection& connection, const PMSOutputPrinter& printer,
             const PMSFailureExplainer& explainer);
    /// Runs send when no service can be reached (`problem` says why): exit 3 when items wait, else nothing to do.
    int sendWithoutService(const PMSSettings& settings, const std::string& problem);

private:
    int list(const PMSSettings& settings);
    int cancel(const PMSSettings& settings);
    int clear(const PMSSettings& settings);
    /// Reports a failure of `operation`: a line on the error stream, or with --json a document
    /// {"error": {"operation", "message"}} on the output stream. Answers `status`.
    int fail(int status, const std::string& operation, const std::string& message) const;
    void write(const std::string& text, const PMSJSON& document) const;

    std::ostream& out_;
    std::ostream& err_;
    bool json_ = false;
    CLI::App* group_ = nullptr;
    CLI::App* list_ = nullptr;
    CLI::App* send_ = nullptr;
    CLI::App* cancel_ = nullptr;
    CLI::App* clear_ = nullptr;
    std::string itemText_;
};
