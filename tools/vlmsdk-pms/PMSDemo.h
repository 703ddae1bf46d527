#pragma once

#include "PMSChargeItem.h"
#include "PMSRecordJSON.h"

#include <memory>
#include <string>
#include <vector>

class PMSFailure;
class PMSFailureExplainer;
class PMSOperationRunner;
class PMSOutputPrinter;
class PMSServiceConnection;
class VLMSDKReservation;

/// A booking the demo walks through, and what the guest buys (nothing when `items` is empty).
struct PMSDemoPlan {
    std::string confirmationNumber;
    std::string venueID;
    std::string lastName;
    std::string creditCardID;
    std::vector<PMSChargeItem> items;
};

/// Walks one guest's stay: create the reservation from the booking reference, confirm it with
/// notification, check in, charge items, read the folio, pay the balance, check out, and read the
/// reservation once more. Stops at the first failure.
///
/// It takes the first of its bookings that the service still has before check-in, so that it can run again
/// on a service that keeps its state; when every one was walked already and the service is the tool's own
/// local one, it puts that service's bookings back as seeded (as `vlmsdk-pms sandbox reset` does) and says so.
class PMSDemo {
public:
    /// The seeded bookings of the local reservation service that allow a whole stay, one per venue.
    static std::vector<PMSDemoPlan> seededBookings();

    PMSDemo(const PMSOperationRunner& runner, const PMSOutputPrinter& printer, const PMSFailureExplainer& explainer,
            const PMSServiceConnection& connection);

    /// True when every step succeeded. Text mode prints each step as it completes; JSON mode prints one
    /// document with every step that ran (and the failure, if one stopped the walk).
    bool run(const std::vector<PMSDemoPlan>& bookings);

private:
    // Step 1: the reservation of the first booking still before check-in, and which booking it is.
    std::shared_ptr<VLMSDKReservation> createFresh(const std::vector<PMSDemoPlan>& bookings, const PMSDemoPlan*& chosen);
    // Records a finished step; `text` is its readable form, `result` its JSON form.
    void stepSucceeded(const std::string& operation, const std::string& title, const std::string& text,
                       PMSJSON result);
    bool stepFailed(const std::string& title, const PMSFailure& failure);
    void announce(const std::string& title) const;
    void note(const std::string& text) const;
    bool finish(bool completed);

    const PMSOperationRunner& runner_;
    const PMSOutputPrinter& printer_;
    const PMSFailureExplainer& explainer_;
    const PMSServiceConnection& connection_;
    std::string reservationID_;
    int stepNumber_ = 0;
    PMSJSON steps_ = PMSJSON::array();
    PMSJSON skippedBookings_ = PMSJSON::array();
    bool serviceReset_ = false;
    PMSJSON failure_;
};
