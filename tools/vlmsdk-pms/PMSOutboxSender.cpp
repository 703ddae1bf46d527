#include "PMSOutboxSender.h"

#include "PMSFailure.h"
#include "PMSFailureExplainer.h"
#include "PMSOutboxReport.h"
#include "PMSOutputPrinter.h"
#include "PMSShownText.h"

#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

#include <set>

namespace {

constexpr std::chrono::milliseconds kPumpStep{50};

}  // namespace

PMSOutboxSender::PMSOutboxSender(VLMSDKOutbox& outbox, const PMSOutputPrinter& printer,
                                 const PMSFailureExplainer& explainer)
    : outbox_(outbox), printer_(printer), explainer_(explainer) {}

int PMSOutboxSender::run(std::chrono::milliseconds limit, const std::string& file, const std::string& serviceURL) {
    for (const auto& item : outbox_.pending()) attemptsBefore_[item.id] = item.attempts;
    // Shown, then acknowledged: an outcome a killed run did not show is shown by the next one.
    outbox_.setAcknowledgesAfterHandler(false);
    outbox_.setOutcomeHandler([this](const VLMSDKOutboxOutcome& outcome) { handed_.push_back(outcome); });
    outbox_.networkRestored();
    outbox_.resume();
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::vector<VLMSDKOutboxItem> pending;
    for (;;) {
        VLMSDKMainQueue::runFor(kPumpStep);
        // Shown outside the handler: a 409's hint reads the reservation, which pumps the main queue again.
        while (!handed_.empty()) {
            std::vector<VLMSDKOutboxOutcome> outcomes;
            outcomes.swap(handed_);
            for (const auto& outcome : outcomes) {
                show(outcome);
                outbox_.acknowledge(outcome.item.id);
            }
        }
        pending = outbox_.pending();
        const bool outcomesComing = !outbox_.unacknowledged().empty();
        if (!outcomesComing && (pending.empty() || refused(pending))) break;
        if (std::chrono::steady_clock::now() >= deadline) break;
    }
    outbox_.setOutcomeHandler(nullptr);  // what came too late waits in the file for the next send

    std::string remaining;
    if (!pending.empty()) {
        const std::string& lastError = pending.front().lastError;
        remaining = std::to_string(pending.size()) + (pending.size() == 1 ? " item remains" : " items remain") +
                    " in " + file + ", not taken by the service at " + serviceURL + " (item " +
                    std::to_string(pending.front().id) + ": " +
                    (lastError.empty() ? "no answer within the time limit, see --timeout"
                                       : PMSShownText::line(lastError, PMSShownText::kErrorLimit)) +
                    "); 'vlmsdk-pms outbox send' will try again";
    }
    if (succeeded_ + failed_ + cancelled_ == 0 && pending.empty()) return reportNothing(printer_, file);
    if (printer_.isJSON()) {
        PMSJSON document = {{"outbox", file}, {"outcomes", shown_}, {"remaining", PMSJSON::array()}};
        for (const auto& item : pending) document["remaining"].push_back(PMSOutboxReport::item(item));
        if (!remaining.empty()) document["error"] = {{"operation", "outbox send"}, {"message", remaining}};
        printer_.writeJSON(document);
    } else {
        if (succeeded_ + failed_ + cancelled_ > 0) {
            printer_.writeText("Sent: " + std::to_string(succeeded_) + " succeeded, " + std::to_string(failed_) +
                               " failed" + (cancelled_ ? ", " + std::to_string(cancelled_) + " cancelled" : "") +
                               ".\n");
        }
        if (!remaining.empty()) printer_.writeNotice("vlmsdk-pms: outbox send: " + remaining + ".");
    }
    if (failed_ > 0) return 1;
    return pending.empty() ? 0 : 3;
}

int PMSOutboxSender::reportNothing(const PMSOutputPrinter& printer, const std::string& file) {
    if (printer.isJSON()) {
        printer.writeJSON({{"outbox", file}, {"outcomes", PMSJSON::array()}, {"remaining", PMSJSON::array()}});
    } else {
        printer.writeText("Nothing to send: no item waits in " + file + ".\n");
    }
    return 0;
}

void PMSOutboxSender::show(const VLMSDKOutboxOutcome& outcome) {
    const VLMSDKOutboxItem& item = outcome.item;
    const std::string number = std::to_string(item.id);
    // A blank line between items: each shows a whole record.
    std::string heading = std::string(succeeded_ + failed_ + cancelled_ > 0 ? "\n" : "") + "Item " + number + ", " +
                          PMSOutboxReport::operation(item);
    if (outcome.redelivered) heading += " (shown before by a send that ended before it could take note)";
    PMSJSON entry = PMSOutboxReport::outcome(outcome);
    switch (outcome.kind) {
    case VLMSDKOutboxOutcome::Kind::Succeeded:
        ++succeeded_;
        showSuccess(outcome, heading, entry);
        break;
    case VLMSDKOutboxOutcome::Kind::Cancelled:
        ++cancelled_;
        if (!printer_.isJSON()) printer_.writeText(heading + ": cancelled, never sent.\n");
        break;
    case VLMSDKOutboxOutcome::Kind::Failed:
    case VLMSDKOutboxOutcome::Kind::Expired: {
        ++failed_;
        const std::string name = VLMSDKOutboxOperationName(item.operation);
        VLMErrorPtr error = outcome.error ? outcome.error
                                          : VLMError::errorWithCode(VLMErrorCode::Unknown, "com.velmora.tools.vlmsdk-pms",
                                                                    "the outbox kept no error for it", __func__, __FILE__);
        const PMSFailure failure = explainer_.explain(printer_.isJSON() ? name : name + " (item " + number + ")",
                                                      std::move(error), item.reservationID);
        if (printer_.isJSON()) entry["error"] = failure.document()["error"];
        else printer_.printFailure(failure);
        break;
    }
    }
    if (printer_.isJSON()) shown_.push_back(std::move(entry));
}

void PMSOutboxSender::showSuccess(const VLMSDKOutboxOutcome& outcome, const std::string& heading, PMSJSON& entry) {
    const bool json = printer_.isJSON();
    if (!json) printer_.writeText(heading + ":\n");
    PMSJSON result;
    switch (outcome.item.operation) {
    case VLMSDKOutboxOperation::Confirm:
    case VLMSDKOutboxOperation::MobileCheckin:
        if (const auto reservation = outcome.reservation()) {
            const bool confirm = outcome.item.operation == VLMSDKOutboxOperation::Confirm;
            const bool notify = outcome.item.parameters.is_object() && outcome.item.parameters.value("notify_me", true);
            result = PMSRecordJSON::reservation(*reservation);
            if (confirm) result["notifyAboutMobileCheckinOpen"] = notify;
            if (!json) confirm ? printer_.printConfirmation(*reservation, notify) : printer_.printReservation(*reservation);
        }
        break;
    case VLMSDKOutboxOperation::MobileCheckout:
        result = {{"reservationID", PMSShownText::cut(outcome.item.reservationID)}, {"checkedOut", true}};
        if (!json) printer_.printCheckout(PMSShownText::line(outcome.item.reservationID), true);
        break;
    case VLMSDKOutboxOperation::Pay:
        if (const auto payment = outcome.payment()) {
            result = PMSRecordJSON::payment(*payment);
            if (!json) printer_.printPayment(*payment);
        }
        break;
    case VLMSDKOutboxOperation::Charge:
        if (const auto folio = outcome.folio()) {
            result = PMSRecordJSON::folio(*folio);
            if (!json) printer_.printFolio(*folio);
        }
        break;
    }
    if (!json && result.is_null()) printer_.writeText("Done; the reply described nothing the tool can show.\n");
    entry["result"] = std::move(result);
}

bool PMSOutboxSender::refused(const std::vector<VLMSDKOutboxItem>& pending) const {
    std::set<std::string> reservations;
    for (const auto& item : pending) {
        if (!reservations.insert(item.reservationID).second) continue;  // waits behind an earlier item
        const auto before = attemptsBefore_.find(item.id);
        const unsigned attempted = before == attemptsBefore_.end() ? 0 : before->second;
        if (!item.nextAttemptAt || item.attempts <= attempted) return false;
    }
    return true;
}
