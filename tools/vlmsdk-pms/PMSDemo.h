#pragma once

#include "PMSOperationRunner.h"
#include "PMSRecordJSON.h"

#include <string>
#include <vector>

class PMSOutputPrinter;

/// Which booking the demo walks through and what the guest buys. The defaults name a seeded booking of
/// the local reservation service that allows the whole stay.
struct PMSDemoPlan {
    std::string confirmationNumber = "HLI-48213";
    std::string venueID = "ven_harborlight";
    std::string lastName = "Quillfeather";
    std::string creditCardID = "card_ada_visa_4242";
    std::vector<PMSChargeItem> items{{"itm_breakfast", 2}, {"itm_parking", 1}};
};

/// Walks one guest's stay: create the reservation from the booking reference, confirm it with
/// notification, check in, charge items, read the folio, pay the balance, check out, and read the
/// reservation once more. Stops at the first failure.
class PMSDemo {
public:
    PMSDemo(const PMSOperationRunner& runner, const PMSOutputPrinter& printer, std::string serviceURL,
            bool embeddedService);

    /// True when every step succeeded. Text mode prints each step as it completes; JSON mode prints one
    /// document with every step that ran (and the error, if one stopped the walk).
    bool run(const PMSDemoPlan& plan);

private:
    // Records a finished step; `text` is its readable form, `result` its JSON form.
    void stepSucceeded(const std::string& operation, const std::string& title, const std::string& text,
                       PMSJSON result);
    bool stepFailed(const std::string& operation, const std::string& title, const VLMError& error);
    void announce(const std::string& title) const;
    bool finish(bool completed);

    const PMSOperationRunner& runner_;
    const PMSOutputPrinter& printer_;
    std::string serviceURL_;
    bool embeddedService_;
    std::string reservationID_;
    int stepNumber_ = 0;
    PMSJSON steps_ = PMSJSON::array();
    PMSJSON failure_;
};
