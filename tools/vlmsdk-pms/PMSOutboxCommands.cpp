#include "PMSOutboxCommands.h"

#include "PMSArgumentRules.h"
#include "PMSCommandLine.h"
#include "PMSOperationRunner.h"
#include "PMSOutboxFile.h"
#include "PMSOutboxReport.h"
#include "PMSOutboxSender.h"
#include "PMSOutputPrinter.h"
#include "PMSServiceConnection.h"
#include "PMSShownText.h"
#include "PMSUsage.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <ostream>

namespace {

const char* const kNoStateDirectory = "no HOME or XDG_STATE_HOME to keep the outbox in; give --outbox FILE";

}  // namespace

PMSOutboxCommands::PMSOutboxCommands(CLI::App& app, std::ostream& out, std::ostream& err) : out_(out), err_(err) {
    group_ = app.add_subcommand("outbox", "Work stored with --queue, to be sent once the service can be reached");
    group_->require_subcommand(1);
    list_ = group_->add_subcommand("list", "List the items waiting and the outcomes not shown yet");
    send_ = group_->add_subcommand("send", "Send the items waiting and show each outcome (exit 3 when the service "
                                           "did not take them: they wait for the next send)");
    cancel_ = group_->add_subcommand("cancel", "Cancel an item that was never sent");
    cancel_->add_option("ID", itemText_, "The item's number, as 'outbox list' shows it")
        ->required()
        ->check(PMSUsage::rule(PMSArgumentRules::Kind::ItemNumber));
    clear_ = group_->add_subcommand("clear", "Cancel every item never sent and forget every outcome not shown yet; "
                                             "items sent at least once stay");
}

bool PMSOutboxCommands::selected() const { return group_->parsed(); }

bool PMSOutboxCommands::sendSelected() const { return send_->parsed(); }

int PMSOutboxCommands::run(const PMSSettings& settings) {
    json_ = settings.json;
    if (PMSOutboxFile(settings.outboxFile).path().empty()) {
        return fail(PMSCommandLine::kOperationFailed, "outbox", kNoStateDirectory);
    }
    if (list_->parsed()) return list(settings);
    if (cancel_->parsed()) return cancel(settings);
    return clear(settings);
}

int PMSOutboxCommands::enqueue(const PMSSettings& settings, const std::string& operation,
                               const std::string& reservationID, const Enqueue& enqueue) {
    json_ = settings.json;
    const std::string name = operation + " --queue";
    const PMSOutboxFile file(settings.outboxFile);
    std::string problem;
    const auto outbox = file.openOffline(err_, &problem);
    if (!outbox) return fail(PMSCommandLine::kOperationFailed, name, problem);
    VLMErrorPtr error;
    const auto id = enqueue(*outbox, &error);
    if (!id) {
        return fail(PMSCommandLine::kOperationFailed, name,
                    error ? PMSShownText::line(error->developerMessage()) : "nothing was queued");
    }
    write("Queued " + operation + " for " + reservationID + " as item " + std::to_string(*id) + ".\n",
          {{"queued",
            {{"id", *id}, {"operation", operation}, {"reservationID", reservationID}, {"outbox", file.path()}}}});
    return PMSCommandLine::kSucceeded;
}

int PMSOutboxCommands::send(const PMSSettings& settings, const PMSServiceConnection& connection,
                            const PMSOutputPrinter& printer, const PMSFailureExplainer& explainer) {
    json_ = settings.json;
    const PMSOutboxFile file(settings.outboxFile);
    std::string problem;
    const auto outbox = file.open(connection.apiManager(), err_, &problem);
    if (!outbox) return fail(PMSCommandLine::kOperationFailed, "outbox send", problem);
    PMSOutboxSender sender(*outbox, printer, explainer);
    return sender.run(settings.timeout + PMSOperationRunner::kDeliveryGrace, file.path(), connection.shownURL());
}

int PMSOutboxCommands::sendWithoutService(const PMSSettings& settings, const std::string& problem) {
    json_ = settings.json;
    const PMSOutboxFile file(settings.outboxFile);
    std::size_t waiting = 0;
    if (file.exists()) {
        std::string why;
        const auto outbox = file.openOffline(err_, &why);
        if (!outbox) return fail(PMSCommandLine::kOperationFailed, "outbox send", why);
        waiting = outbox->pending().size() + outbox->unacknowledged().size();
    }
    if (waiting == 0) return PMSOutboxSender::reportNothing(PMSOutputPrinter(out_, err_, json_), file.path());
    return fail(PMSCommandLine::kServiceUnavailable, "outbox send",
                problem + "; " + std::to_string(waiting) + (waiting == 1 ? " item waits" : " items wait") + " in " +
                    file.path());
}

int PMSOutboxCommands::list(const PMSSettings& settings) {
    const PMSOutboxFile file(settings.outboxFile);
    std::vector<VLMSDKOutboxItem> pending;
    std::vector<VLMSDKOutboxOutcome> outcomes;
    if (file.exists()) {
        std::string problem;
        const auto outbox = file.openOffline(err_, &problem);
        if (!outbox) return fail(PMSCommandLine::kOperationFailed, "outbox list", problem);
        pending = outbox->pending();
        outcomes = outbox->unacknowledged();
    }
    PMSJSON document = {{"outbox", file.path()}, {"pending", PMSJSON::array()}, {"outcomes", PMSJSON::array()}};
    for (const auto& item : pending) document["pending"].push_back(PMSOutboxReport::item(item));
    for (const auto& outcome : outcomes) document["outcomes"].push_back(PMSOutboxReport::outcome(outcome));
    write(PMSOutboxReport::listText(pending, outcomes, file.path()), document);
    return PMSCommandLine::kSucceeded;
}

int PMSOutboxCommands::cancel(const PMSSettings& settings) {
    const std::int64_t id = *PMSArgumentRules::itemNumber(itemText_);
    const PMSOutboxFile file(settings.outboxFile);
    const std::string unknown = "no item " + itemText_ + " in " + file.path();
    if (!file.exists()) return fail(PMSCommandLine::kOperationFailed, "outbox cancel", unknown);
    std::string problem;
    const auto outbox = file.openOffline(err_, &problem);
    if (!outbox) return fail(PMSCommandLine::kOperationFailed, "outbox cancel", problem);
    const auto pending = outbox->pending();
    const auto item = std::find_if(pending.begin(), pending.end(), [&](const auto& each) { return each.id == id; });
    if (item != pending.end() && outbox->cancel(id)) {
        // Nobody else needs the "cancelled" outcome: this command shows it.
        outbox->acknowledge(id);
        write("Cancelled item " + itemText_ + ".\n",
              {{"cancelled", {{"id", id}, {"operation", VLMSDKOutboxOperationName(item->operation)},
                              {"reservationID", PMSShownText::cut(item->reservationID)}}}});
        return PMSCommandLine::kSucceeded;
    }
    if (item != pending.end()) {
        return fail(PMSCommandLine::kOperationFailed, "outbox cancel",
                    "item " + itemText_ + " (" + PMSOutboxReport::operation(*item) +
                        ") was sent already: the service may have acted on it, so it cannot be cancelled; "
                        "'vlmsdk-pms outbox send' finishes it");
    }
    for (const auto& outcome : outbox->unacknowledged()) {
        if (outcome.item.id != id) continue;
        return fail(PMSCommandLine::kOperationFailed, "outbox cancel",
                    "item " + itemText_ + " (" + PMSOutboxReport::operation(outcome.item) + ") has ended (" +
                        PMSOutboxReport::kindName(outcome.kind) + "); 'vlmsdk-pms outbox send' shows its outcome");
    }
    return fail(PMSCommandLine::kOperationFailed, "outbox cancel", unknown);
}

int PMSOutboxCommands::clear(const PMSSettings& settings) {
    const PMSOutboxFile file(settings.outboxFile);
    std::vector<std::int64_t> acknowledged, cancelled, kept;
    if (file.exists()) {
        std::string problem;
        const auto outbox = file.openOffline(err_, &problem);
        if (!outbox) return fail(PMSCommandLine::kOperationFailed, "outbox clear", problem);
        for (const auto& outcome : outbox->unacknowledged()) {
            if (outbox->acknowledge(outcome.item.id)) acknowledged.push_back(outcome.item.id);
        }
        for (const auto& item : outbox->pending()) {
            if (item.attempts == 0 && outbox->cancel(item.id) && outbox->acknowledge(item.id)) {
                cancelled.push_back(item.id);
            } else {
                kept.push_back(item.id);
            }
        }
    }
    std::string text;
    if (!acknowledged.empty()) {
        text += "Forgot the " + std::string(acknowledged.size() == 1 ? "outcome" : "outcomes") + " of " +
                PMSOutboxReport::itemNumbers(acknowledged) + ".\n";
    }
    if (!cancelled.empty()) text += "Cancelled " + PMSOutboxReport::itemNumbers(cancelled) + ", never sent.\n";
    if (!kept.empty()) {
        const bool one = kept.size() == 1;
        text += "Kept " + PMSOutboxReport::itemNumbers(kept) + ": sent already, so the service may have acted on " +
                (one ? "it" : "them") + "; 'vlmsdk-pms outbox send' finishes " + (one ? "it" : "them") + ".\n";
    }
    if (text.empty()) text = "Nothing to clear: no item waits in " + file.path() + ".\n";
    write(text, {{"outbox", file.path()}, {"acknowledged", acknowledged}, {"cancelled", cancelled}, {"kept", kept}});
    return PMSCommandLine::kSucceeded;
}

int PMSOutboxCommands::fail(int status, const std::string& operation, const std::string& message) const {
    if (json_) {
        out_ << PMSJSON{{"error", {{"operation", operation}, {"message", message}}}}.dump(2) << '\n';
    } else {
        err_ << "vlmsdk-pms: " << operation << " failed: " << message << '\n';
    }
    return status;
}

void PMSOutboxCommands::write(const std::string& text, const PMSJSON& document) const {
    if (json_) out_ << document.dump(2, ' ', false, PMSJSON::error_handler_t::replace) << '\n';
    else out_ << text;
    out_.flush();
}
