#include "PMSDemo.h"

#include "PMSFailureExplainer.h"
#include "PMSOperationRunner.h"
#include "PMSOutputPrinter.h"
#include "PMSRecordJSON.h"
#include "PMSRedaction.h"
#include "PMSServiceConnection.h"

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

// A stay the demo can walk from the start: reserved, and open for mobile check-in.
bool isBeforeCheckin(const VLMSDKReservation& reservation) {
    return reservation.status() == VLMSDKReservationStatusReserved && reservation.isMobileCheckinOpen();
}

}  // namespace

std::vector<PMSDemoPlan> PMSDemo::seededBookings() {
    return {
        {"HLI-48213", "ven_harborlight", "Quillfeather", "card_ada_visa_4242", {{"itm_breakfast", 2}, {"itm_parking", 1}}},
        {"QH-7731", "ven_quarry_house", "Saltmarsh", "card_ines_visa_2020", {{"itm_afternoon_tea", 2}, {"itm_laundry_bag", 1}}},
        {"CRS-00318", "ven_cobaltridge", "Puddlestone", "card_lorcan_visa_6060", {{"itm_room_service", 1}, {"itm_gym_pass", 1}}},
        {"FHL-20931", "ven_fernhill", "Moorhen", "card_elspeth_mc_4444", {{"itm_spa_pass", 2}, {"itm_bike_rental", 1}}},
    };
}

PMSDemo::PMSDemo(const PMSOperationRunner& runner, const PMSOutputPrinter& printer,
                 const PMSFailureExplainer& explainer, const PMSServiceConnection& connection)
    : runner_(runner), printer_(printer), explainer_(explainer), connection_(connection) {}

std::shared_ptr<VLMSDKReservation> PMSDemo::createFresh(const std::vector<PMSDemoPlan>& bookings,
                                                        const PMSDemoPlan*& chosen) {
    std::string walked;
    for (int round = 0; round < 2; ++round) {
        for (const PMSDemoPlan& plan : bookings) {
            const std::string title = "Create the reservation from booking " + plan.confirmationNumber + " (venue " +
                                      plan.venueID + ", last name " + plan.lastName + ")";
            announce(title);
            auto created = runner_.createReservation(plan.confirmationNumber, plan.venueID, plan.lastName);
            if (!created.succeeded()) {
                stepFailed(title, explainer_.explain("create", created.error));
                return nullptr;
            }
            if (isBeforeCheckin(*created.result)) {
                chosen = &plan;
                stepSucceeded("create", title, PMSOutputPrinter::reservationText(*created.result, kIndent),
                              PMSRecordJSON::reservation(*created.result));
                return created.result;
            }
            walked = "reservation " + created.result->velmoraID().value_or("?") + " is " +
                     PMSOutputPrinter::stateText(*created.result);
            const bool more = &plan != &bookings.back();
            note("This booking was walked on this service already: " + walked + "." + (more ? " Taking the next one." : ""));
            skippedBookings_.push_back(plan.confirmationNumber);
        }
        std::string why;
        if (round > 0 || !connection_.resetBookings(&why)) break;
        serviceReset_ = true;
        note("Every booking the demo knows was walked on this service already, so its bookings are back as seeded "
             "now (as vlmsdk-pms sandbox reset does).");
    }
    auto error = VLMError::errorWithCode(VLMErrorCode::Unknown, PMSOperationRunner::kErrorDomain,
                                         "Every booking the demo knows was walked on this service already (" +
                                             walked + ").",
                                         __func__, __FILE__);
    stepFailed("Create the reservation",
               PMSFailure("demo", error,
                          "Name a booking still before check-in with --confirmation, --venue, --last-name and --card."));
    return nullptr;
}

bool PMSDemo::run(const std::vector<PMSDemoPlan>& bookings) {
    if (!printer_.isJSON()) {
        printer_.writeText(std::string("Walking one guest's stay against ") +
                           (connection_.service() == PMSServiceConnection::Service::Given
                                ? "the reservation service at "
                                : "the local reservation service at ") +
                           connection_.shownURL() + "\n");
    }

    const PMSDemoPlan* plan = nullptr;
    const auto created = createFresh(bookings, plan);
    if (!created) return false;
    reservationID_ = created->velmoraID().value_or("");
    const std::string& reservationID = reservationID_;

    std::string title = "Confirm " + reservationID + ", asking to be told when mobile check-in opens";
    announce(title);
    auto confirmed = runner_.confirmReservation(reservationID, true);
    if (!confirmed.succeeded()) return stepFailed(title, explainer_.explain("confirm", confirmed.error, reservationID));
    stepSucceeded("confirm", title, PMSOutputPrinter::reservationSummaryText(*confirmed.result, kIndent),
                  PMSRecordJSON::reservation(*confirmed.result));

    title = "Mobile check-in";
    announce(title);
    auto checkedIn = runner_.checkin(reservationID);
    if (!checkedIn.succeeded()) return stepFailed(title, explainer_.explain("checkin", checkedIn.error, reservationID));
    stepSucceeded("checkin", title, PMSOutputPrinter::reservationSummaryText(*checkedIn.result, kIndent),
                  PMSRecordJSON::reservation(*checkedIn.result));

    if (plan->items.empty()) {
        title = "Charge nothing: no --item was given";
        announce(title);
        stepSucceeded("charge", title, std::string(kIndent) + "Skipped.\n", nullptr);
    } else {
        title = "Charge " + itemList(plan->items) + " to the master bill";
        announce(title);
        auto charged = runner_.charge(reservationID, plan->items);
        if (!charged.succeeded()) return stepFailed(title, explainer_.explain("charge", charged.error, reservationID));
        stepSucceeded("charge", title, PMSOutputPrinter::folioText(*charged.result, kIndent),
                      PMSRecordJSON::folio(*charged.result));
    }

    title = "Read the master bill";
    announce(title);
    auto folio = runner_.fetchFolio(reservationID);
    if (!folio.succeeded()) return stepFailed(title, explainer_.explain("folio", folio.error, reservationID));
    stepSucceeded("folio", title, PMSOutputPrinter::folioText(*folio.result, kIndent),
                  PMSRecordJSON::folio(*folio.result));

    const std::optional<double> balance = folio.result->outstandingAmount();
    const std::string currency = folio.result->paymentCurrency().value_or(
        checkedIn.result->priceCurrencyCode().value_or(kVLMSDKDefaultCurrencyCode));
    if (balance && *balance > 0) {
        title = "Pay the balance of " + PMSOutputPrinter::amount(*balance, currency) + " with card " +
                PMSRedaction::cardID(plan->creditCardID);
        announce(title);
        auto paid = runner_.pay(reservationID, plan->creditCardID, *balance, currency);
        if (!paid.succeeded()) return stepFailed(title, explainer_.explain("pay", paid.error, reservationID));
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
    if (!checkedOut.succeeded()) return stepFailed(title, explainer_.explain("checkout", checkedOut.error, reservationID));
    stepSucceeded("checkout", title, std::string(kIndent) + "Checked out.\n", {{"checkedOut", checkedOut.result}});

    title = "Read the reservation after check-out";
    announce(title);
    auto final = runner_.fetchReservation(reservationID);
    if (!final.succeeded()) return stepFailed(title, explainer_.explain("fetch", final.error, reservationID));
    stepSucceeded("fetch", title, PMSOutputPrinter::reservationSummaryText(*final.result, kIndent),
                  PMSRecordJSON::reservation(*final.result));

    return finish(true);
}

void PMSDemo::announce(const std::string& title) const {
    if (printer_.isJSON()) return;
    printer_.writeText("\n[" + std::to_string(stepNumber_ + 1) + "/" + std::to_string(kStepCount) + "] " + title + "\n");
}

void PMSDemo::note(const std::string& text) const {
    if (!printer_.isJSON()) printer_.writeText(kIndent + text + "\n");
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

bool PMSDemo::stepFailed(const std::string& title, const PMSFailure& failure) {
    ++stepNumber_;
    if (!printer_.isJSON()) {
        printer_.writeNotice(failure.line());
        return finish(false);
    }
    failure_ = {{"step", stepNumber_},
                {"operation", failure.operation()},
                {"title", title},
                {"error", failure.document().at("error")}};
    return finish(false);
}

bool PMSDemo::finish(bool completed) {
    if (printer_.isJSON()) {
        PMSJSON document = {
            {"service", connection_.shownURL()},
            {"embeddedService", connection_.service() == PMSServiceConnection::Service::Embedded},
            {"completed", completed},
            {"skippedBookings", skippedBookings_},
            {"serviceReset", serviceReset_},
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
