#include "PMSDemo.h"

#include "PMSOutputPrinter.h"
#include "PMSRecordJSON.h"

#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>

#include <VLMSDKCoreKit/VLMSDKDefaults.h>

#include <utility>

namespace {

constexpr int kStepCount = 8;
constexpr const char* kIndent = "      ";

std::string itemList(const std::vector<PMSChargeItem>& items) {
    std::string list;
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (index > 0) list += index + 1 == items.size() ? " and " : ", ";
        list += std::to_string(items[index].quantity) + " x " + items[index].itemID;
    }
    return list;
}

}  // namespace

PMSDemo::PMSDemo(const PMSOperationRunner& runner, const PMSOutputPrinter& printer, std::string serviceURL,
                 bool embeddedService)
    : runner_(runner), printer_(printer), serviceURL_(std::move(serviceURL)), embeddedService_(embeddedService) {}

bool PMSDemo::run(const PMSDemoPlan& plan) {
    if (!printer_.isJSON()) {
        printer_.writeText(std::string("Walking one guest's stay against ") +
                           (embeddedService_ ? "the local reservation service at " : "the reservation service at ") +
                           serviceURL_ + "\n");
    }

    std::string title = "Create the reservation from booking " + plan.confirmationNumber + " (venue " + plan.venueID +
                        ", last name " + plan.lastName + ")";
    announce(title);
    auto created = runner_.createReservation(plan.confirmationNumber, plan.venueID, plan.lastName);
    if (!created.succeeded()) return stepFailed("create", title, *created.error);
    stepSucceeded("create", title, PMSOutputPrinter::reservationText(*created.result, kIndent),
                  PMSRecordJSON::reservation(*created.result));
    if (!created.result->velmoraID()) {
        auto error = VLMError::errorWithCode(VLMErrorCode::Mapping, "com.velmora.tools.vlmsdk-pms",
                                             "The created reservation came back without an identifier.", __func__,
                                             __FILE__);
        return stepFailed("create", title, *error);
    }
    reservationID_ = *created.result->velmoraID();
    const std::string& reservationID = reservationID_;

    title = "Confirm " + reservationID + ", asking to be told when mobile check-in opens";
    announce(title);
    auto confirmed = runner_.confirmReservation(reservationID, true);
    if (!confirmed.succeeded()) return stepFailed("confirm", title, *confirmed.error);
    stepSucceeded("confirm", title, PMSOutputPrinter::reservationSummaryText(*confirmed.result, kIndent),
                  PMSRecordJSON::reservation(*confirmed.result));

    title = "Mobile check-in";
    announce(title);
    auto checkedIn = runner_.checkin(reservationID);
    if (!checkedIn.succeeded()) return stepFailed("checkin", title, *checkedIn.error);
    stepSucceeded("checkin", title, PMSOutputPrinter::reservationSummaryText(*checkedIn.result, kIndent),
                  PMSRecordJSON::reservation(*checkedIn.result));

    title = "Charge " + itemList(plan.items) + " to the master bill";
    announce(title);
    auto charged = runner_.charge(reservationID, plan.items);
    if (!charged.succeeded()) return stepFailed("charge", title, *charged.error);
    stepSucceeded("charge", title, PMSOutputPrinter::folioText(*charged.result, kIndent),
                  PMSRecordJSON::folio(*charged.result));

    title = "Read the master bill";
    announce(title);
    auto folio = runner_.fetchFolio(reservationID);
    if (!folio.succeeded()) return stepFailed("folio", title, *folio.error);
    stepSucceeded("folio", title, PMSOutputPrinter::folioText(*folio.result, kIndent),
                  PMSRecordJSON::folio(*folio.result));

    const std::optional<double> balance = folio.result->outstandingAmount();
    const std::string currency = folio.result->paymentCurrency().value_or(
        checkedIn.result->priceCurrencyCode().value_or(kVLMSDKDefaultCurrencyCode));
    if (balance && *balance > 0) {
        title = "Pay the balance of " + PMSOutputPrinter::amount(balance, currency) + " with card " + plan.creditCardID;
        announce(title);
        auto paid = runner_.pay(reservationID, plan.creditCardID, *balance, currency);
        if (!paid.succeeded()) return stepFailed("pay", title, *paid.error);
        stepSucceeded("pay", title, PMSOutputPrinter::paymentText(*paid.result, kIndent),
                      PMSRecordJSON::payment(*paid.result));
    } else {
        title = "Pay the balance: nothing is outstanding";
        announce(title);
        stepSucceeded("pay", title, std::string(kIndent) + "Skipped.\n", nullptr);
    }

    title = "Mobile check-out";
    announce(title);
    auto checkedOut = runner_.checkout(reservationID);
    if (!checkedOut.succeeded()) return stepFailed("checkout", title, *checkedOut.error);
    stepSucceeded("checkout", title, std::string(kIndent) + "Checked out.\n", {{"checkedOut", checkedOut.result}});

    title = "Read the reservation after check-out";
    announce(title);
    auto final = runner_.fetchReservation(reservationID);
    if (!final.succeeded()) return stepFailed("fetch", title, *final.error);
    stepSucceeded("fetch", title, PMSOutputPrinter::reservationSummaryText(*final.result, kIndent),
                  PMSRecordJSON::reservation(*final.result));

    return finish(true);
}

void PMSDemo::announce(const std::string& title) const {
    if (printer_.isJSON()) return;
    printer_.writeText("\n[" + std::to_string(stepNumber_ + 1) + "/" + std::to_string(kStepCount) + "] " + title + "\n");
}

void PMSDemo::stepSucceeded(const std::string& operation, const std::string& title, const std::string& text,
                            PMSJSON result) {
    ++stepNumber_;
    if (!printer_.isJSON()) {
        printer_.writeText(text);
        return;
    }
    steps_.push_back({{"step", stepNumber_}, {"operation", operation}, {"title", title}, {"result", std::move(result)}});
}

bool PMSDemo::stepFailed(const std::string& operation, const std::string& title, const VLMError& error) {
    ++stepNumber_;
    printer_.writeFailure(operation, error);
    if (!printer_.isJSON()) {
        printer_.writeText(std::string(kIndent) + "Failed: " + error.developerMessage() + "\n");
        return finish(false);
    }
    failure_ = {{"step", stepNumber_}, {"operation", operation}, {"title", title}, {"error", PMSRecordJSON::error(error)}};
    return finish(false);
}

bool PMSDemo::finish(bool completed) {
    if (printer_.isJSON()) {
        PMSJSON document = {
            {"service", serviceURL_},
            {"embeddedService", embeddedService_},
            {"completed", completed},
            {"steps", steps_},
        };
        if (!reservationID_.empty()) document["reservationID"] = reservationID_;
        if (!failure_.is_null()) document["failure"] = failure_;
        printer_.writeJSON(document);
    } else if (completed) {
        printer_.writeText("\nStay complete: reservation " + reservationID_ +
                           " was created, confirmed, checked in, charged, paid and checked out.\n");
    }
    return completed;
}
