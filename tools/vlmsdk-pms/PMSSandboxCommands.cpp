#include "PMSSandboxCommands.h"

#include "PMSArgumentRules.h"
#include "PMSBackgroundSandbox.h"
#include "PMSCommandLine.h"
#include "PMSServiceURL.h"
#include "PMSShownText.h"
#include "PMSUsage.h"

#include <pmssandbox/SandboxClient.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <ostream>
#include <thread>

namespace {

using nlohmann::json;
using namespace std::chrono_literals;

constexpr auto kAdminTimeout = 10s;
constexpr auto kFollowEvery = 500ms;

volatile std::sig_atomic_t interrupted = 0;

std::string formatted(const char* format, auto... values) {
    char line[512];
    std::snprintf(line, sizeof line, format, values...);
    return line;
}

std::string text(const json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_null()) return "";
    return value.dump();
}

std::string money(const json& value) { return formatted("%.2f", value.is_number() ? value.get<double>() : 0.0); }

std::string requestLine(const json& entry) {
    std::string line = formatted("#%-5s %s %-6s %s %s", text(entry["sequence"]).c_str(),
                                 text(entry["time"]).substr(11, 12).c_str(), text(entry["method"]).c_str(),
                                 text(entry["path"]).c_str(), entry["status"].is_null() ? "-" : text(entry["status"]).c_str());
    if (entry["ms"].is_number()) line += formatted(" %.1f ms", entry["ms"].get<double>());
    if (entry["idempotency_key"].is_string()) line += " key " + text(entry["idempotency_key"]);
    if (!text(entry["note"]).empty()) line += " (" + text(entry["note"]) + ")";
    if (entry["trace_id"].is_string()) line += " trace " + text(entry["trace_id"]);
    return line;
}

std::string faultLine(const json& fault) {
    std::string line = text(fault["action"]);
    if (fault.contains("status")) line += " " + text(fault["status"]);
    if (fault.value("retry_after", 0) > 0) line += " with Retry-After " + text(fault["retry_after"]) + " s";
    if (fault.value("delay_ms", 0) > 0) line += " after " + text(fault["delay_ms"]) + " ms";
    const std::string method = text(fault["method"]);
    const std::string path = text(fault["path"]);
    line += " on " + (method.empty() ? std::string("any method") : method) + " " +
            (path.empty() ? std::string("any path") : path);
    line += fault["times"].is_number() ? ", " + text(fault["times"]) + " left" : ", until cleared";
    return line;
}

}  // namespace

PMSSandboxCommands::PMSSandboxCommands(CLI::App& app, std::ostream& out, std::ostream& err)
    : out_(out), err_(err), port_(PMSBackgroundSandbox::kDefaultPort) {
    group_ = app.add_subcommand("sandbox", "Keep the local reservation service running, and look into it");
    group_->require_subcommand(1);

    start_ = group_->add_subcommand("start", "Start pms-sandbox in the background; other commands then use it");
    start_->add_option("--port", port_, "Port on 127.0.0.1 (0: any free one)")
        ->check(CLI::Range(0, 65535))
        ->envname("VLMSDK_PMS_SANDBOX_PORT")
        ->capture_default_str();
    stop_ = group_->add_subcommand("stop", "Stop the background pms-sandbox");
    status_ = group_->add_subcommand("status", "Say whether the background pms-sandbox runs (exit 3 when not)");
    reset_ = group_->add_subcommand("reset", "Put every booking back as seeded and forget idempotency keys");
    list_ = group_->add_subcommand("list", "List the reservations with their state and folio");
    cards_ = group_->add_subcommand("cards", "List the cards on file");
    log_ = group_->add_subcommand("log", "Show the requests the service received");
    log_->add_flag("-f,--follow", follow_, "Keep printing requests as they arrive (until Ctrl-C or --for)");
    log_->add_option("--limit", limit_, "How many of the latest requests to show first")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    log_->add_option("--for", followFor_, "With --follow: stop after this many seconds")
        ->check(PMSUsage::rule(PMSArgumentRules::Kind::Seconds))
        ->capture_default_str();

    fault_ = group_->add_subcommand("fault", "List, add or clear fault switches");
    fault_->require_subcommand(1);
    faultList_ = fault_->add_subcommand("list", "List the active faults");
    faultClear_ = fault_->add_subcommand("clear", "Clear every fault");
    faultAdd_ = fault_->add_subcommand("add", "Add a fault: one of --status, --drop-connection, --drop-reply, "
                                              "--not-json, or only --delay");
    faultAdd_->add_option("--status", faultStatus_, "Answer this status without acting")->check(CLI::Range(400, 599));
    faultAdd_->add_option("--retry-after", retryAfter_, "With --status: send Retry-After: SECONDS")
        ->check(CLI::Range(0, 86400));
    faultAdd_->add_flag("--drop-connection", dropConnection_, "Close the connection without acting or answering");
    faultAdd_->add_flag("--drop-reply", dropReply_, "Act on the request, then close the connection unanswered");
    faultAdd_->add_flag("--not-json", notJson_, "Answer 200 with a body that is not JSON");
    faultAdd_->add_option("--delay", delayMs_, "Wait this many milliseconds first")->check(CLI::Range(0, 600000));
    faultAdd_->add_option("--method", faultMethod_, "Only requests with this method");
    faultAdd_->add_option("--path", faultPath_, "Only requests whose path (after the base URL) starts so");
    faultAdd_->add_option("--times", times_, "Only the next N matching requests (default: until cleared)")
        ->check(CLI::Range(1, 1000000));
}

bool PMSSandboxCommands::selected() const { return group_->parsed(); }

int PMSSandboxCommands::run(const PMSSettings& settings) {
    json_ = settings.json;
    if (start_->parsed()) return start(settings);
    if (stop_->parsed()) return stop();
    if (status_->parsed()) return status(settings);
    return admin(settings);
}

std::optional<PMSSandboxCommands::Target> PMSSandboxCommands::target(const PMSSettings& settings) const {
    if (settings.baseURL) return Target{*settings.baseURL, settings.token.value_or(PMSBackgroundSandbox::kDefaultToken)};
    if (auto running = PMSBackgroundSandbox().running())
        return Target{running->url, settings.token.value_or(running->token)};
    fail(PMSCommandLine::kServiceUnavailable,
         "no background pms-sandbox is running; start one with: vlmsdk-pms sandbox start");
    return std::nullopt;
}

std::optional<json> PMSSandboxCommands::call(const Target& target, const std::string& method, const std::string& route,
                                             const std::string& body) const {
    pmssandbox::SandboxClient client(target.url, target.token, kAdminTimeout);
    const auto reply = client.send(method, "/_sandbox/" + route, body);
    if (reply.status == 0) {
        const auto url = PMSServiceURL::parse(target.url);
        fail(PMSCommandLine::kOperationFailed, "no reply from " +
                                                   (url ? url->shown() : std::string("the service")) + ": " +
                                                   PMSShownText::line(reply.error));
        return std::nullopt;
    }
    json document = json::parse(reply.body, nullptr, false);
    if (reply.status / 100 != 2 || document.is_discarded()) {
        const std::string message = document.is_object() && document.contains("error")
                                        ? text(document["error"].value("message", json()))
                                        : reply.body;
        fail(PMSCommandLine::kOperationFailed,
             "HTTP " + std::to_string(reply.status) + ": " + PMSShownText::line(message));
        return std::nullopt;
    }
    return document;
}

int PMSSandboxCommands::start(const PMSSettings& settings) const {
    if (settings.baseURL) {
        err_ << "vlmsdk-pms: sandbox start: runs a local service, so it takes no --base-url\n";
        return PMSCommandLine::kUsageError;
    }
    const PMSBackgroundSandbox background;
    const bool already = background.running().has_value();
    std::string error;
    const auto started = background.start(port_, settings.token.value_or(PMSBackgroundSandbox::kDefaultToken), error);
    if (!started) return fail(PMSCommandLine::kServiceUnavailable, error);
    const std::string origin = started->url.substr(0, started->url.find('/', started->url.find("://") + 3));
    const std::string dashboard = origin + "/#token=" + started->token;
    if (json_) {
        out_ << json{{"running", true},          {"already_running", already},        {"pid", started->pid},
                     {"url", started->url},      {"dashboard", dashboard},            {"state_file", started->stateFile},
                     {"log_file", started->logFile}}
                    .dump(2)
             << '\n';
        return PMSCommandLine::kSucceeded;
    }
    out_ << "pms-sandbox " << (already ? "already running" : "running") << " at " << started->url << " (pid "
         << started->pid << ")\n"
         << "dashboard: " << dashboard << '\n'
         << "state:     " << started->stateFile << '\n'
         << "requests:  " << started->logFile << '\n';
    return PMSCommandLine::kSucceeded;
}

int PMSSandboxCommands::stop() const {
    std::optional<PMSBackgroundSandbox::Record> stopped;
    std::string error;
    if (!PMSBackgroundSandbox().stop(stopped, error)) return fail(PMSCommandLine::kOperationFailed, error);
    if (json_) {
        json document = {{"stopped", stopped.has_value()}};
        if (stopped) document["pid"] = stopped->pid;
        out_ << document.dump(2) << '\n';
    } else if (stopped) {
        out_ << "pms-sandbox stopped (pid " << stopped->pid << ")\n";
    } else {
        out_ << "pms-sandbox is not running\n";
    }
    return PMSCommandLine::kSucceeded;
}

int PMSSandboxCommands::status(const PMSSettings& settings) const {
    const auto running = PMSBackgroundSandbox().running();
    if (settings.json) {
        json document = {{"running", running.has_value()}};
        if (running) document.update({{"pid", running->pid}, {"url", running->url}, {"state_file", running->stateFile}});
        out_ << document.dump(2) << '\n';
    } else if (running) {
        out_ << "pms-sandbox running at " << running->url << " (pid " << running->pid << "), state in "
             << running->stateFile << '\n';
    } else {
        out_ << "pms-sandbox is not running\n";
    }
    return running ? PMSCommandLine::kSucceeded : PMSCommandLine::kServiceUnavailable;
}

int PMSSandboxCommands::admin(const PMSSettings& settings) {
    std::optional<std::string> body;
    if (faultAdd_->parsed() && !(body = faultBody())) return PMSCommandLine::kUsageError;
    const auto service = target(settings);
    if (!service) return PMSCommandLine::kServiceUnavailable;
    if (log_->parsed() && follow_) return follow(*service, settings);

    std::optional<json> document;
    if (reset_->parsed()) document = call(*service, "POST", "reset");
    if (list_->parsed()) document = call(*service, "GET", "reservations");
    if (cards_->parsed()) document = call(*service, "GET", "cards");
    if (log_->parsed()) document = call(*service, "GET", "requests?limit=" + std::to_string(limit_));
    if (faultList_->parsed()) document = call(*service, "GET", "faults");
    if (faultClear_->parsed()) document = call(*service, "DELETE", "faults");
    if (faultAdd_->parsed()) document = call(*service, "POST", "faults", *body);
    if (!document) return PMSCommandLine::kOperationFailed;
    if (settings.json) {
        out_ << document->dump(2) << '\n';
        return PMSCommandLine::kSucceeded;
    }

    if (reset_->parsed()) out_ << "Every booking is back as seeded.\n";
    if (list_->parsed()) {
        out_ << formatted("%-10s %-12s %-22s %-12s %-8s %5s %16s\n", "ID", "CONFIRMATION", "GUEST", "STATUS", "ROOM",
                          "LINES", "OUTSTANDING");
        for (const json& r : (*document)["reservations"]) {
            const std::string state = r.value("on_platform", false) ? text(r["status"]) : "not created";
            out_ << formatted("%-10s %-12s %-22s %-12s %-8s %5s %12s %s\n", text(r["id"]).c_str(),
                              text(r["confirmation_id"]).c_str(), text(r["guest"]).c_str(), state.c_str(),
                              text(r["room_number"]).c_str(), text(r["folio"]["lines"]).c_str(),
                              money(r["folio"]["outstanding"]).c_str(), text(r["currency"]).c_str());
        }
    }
    if (cards_->parsed()) {
        for (const json& card : (*document)["cards"]) {
            out_ << formatted("%-24s %-24s %-10s ending %s%s\n", text(card["id"]).c_str(), text(card["user_id"]).c_str(),
                              text(card["brand"]).c_str(), text(card["last4"]).c_str(),
                              card.value("declines", false) ? "  (declines)" : "");
        }
    }
    if (log_->parsed()) {
        for (const json& entry : (*document)["requests"]) out_ << requestLine(entry) << '\n';
    }
    if (fault_->parsed()) {
        const json& faults = (*document)["faults"];
        if (faults.empty()) out_ << "No faults are active.\n";
        for (std::size_t i = 0; i < faults.size(); ++i) out_ << i + 1 << ". " << faultLine(faults[i]) << '\n';
    }
    return PMSCommandLine::kSucceeded;
}

int PMSSandboxCommands::follow(const Target& target, const PMSSettings& settings) const {
    interrupted = 0;
    std::signal(SIGINT, [](int) { interrupted = 1; });
    std::uint64_t shown = 0;  // requests up to this sequence are printed
    std::string route = "requests?limit=" + std::to_string(limit_);
    const auto until = std::chrono::steady_clock::now() + *PMSArgumentRules::seconds(followFor_);
    while (!interrupted && std::chrono::steady_clock::now() < until) {
        const auto document = call(target, "GET", route);
        if (!document) return PMSCommandLine::kOperationFailed;
        for (const json& entry : (*document)["requests"]) {
            // One still in flight is shown once it is answered, and holds back those after it.
            const json* note = entry.contains("note") ? &entry["note"] : nullptr;
            if (note && note->is_string() && note->get_ref<const std::string&>() == "in flight") break;
            shown = entry["sequence"].get<std::uint64_t>();
            out_ << (settings.json ? entry.dump() : requestLine(entry)) << std::endl;
        }
        route = "requests?limit=1000&after=" + std::to_string(shown);
        for (auto slept = 0ms; slept < kFollowEvery && !interrupted; slept += 50ms) std::this_thread::sleep_for(50ms);
    }
    return PMSCommandLine::kSucceeded;
}

std::string PMSSandboxCommands::chosenName() const {
    std::string name = "sandbox";
    for (const CLI::App* command = group_; !command->get_subcommands().empty();) {
        command = command->get_subcommands().front();
        name += " " + command->get_name();
    }
    return name;
}

int PMSSandboxCommands::fail(int status, const std::string& message) const {
    if (json_) {
        out_ << json{{"error", {{"operation", chosenName()}, {"message", message}}}}.dump(2) << '\n';
    } else {
        err_ << "vlmsdk-pms: " << chosenName() << " failed: " << message << '\n';
    }
    return status;
}

std::optional<std::string> PMSSandboxCommands::faultBody() const {
    const int actions = int{faultStatus_.has_value()} + int{dropConnection_} + int{dropReply_} + int{notJson_};
    if (actions > 1 || (actions == 0 && delayMs_ == 0)) {
        err_ << "vlmsdk-pms: sandbox fault add: takes one of --status, --drop-connection, --drop-reply, --not-json, "
                "or only --delay\n";
        return std::nullopt;
    }
    json fault = {{"action", "delay"}, {"delay_ms", delayMs_}, {"method", faultMethod_}, {"path", faultPath_}};
    if (faultStatus_) fault.update({{"action", "status"}, {"status", *faultStatus_}, {"retry_after", retryAfter_}});
    if (dropConnection_) fault["action"] = "drop_connection";
    if (dropReply_) fault["action"] = "drop_reply";
    if (notJson_) fault["action"] = "not_json";
    if (times_ > 0) fault["times"] = times_;
    return fault.dump();
}
