#pragma once

#include "PMSRecordJSON.h"

#include <iosfwd>
#include <optional>
#include <string>

class VLMSDKReservation;
class VLMSDKFolio;
class VLMSDKPayForReservationResult;
class PMSFailure;

/// Writes what the tool has to say: readable text by default, or with --json exactly one JSON document on
/// standard output, a failure included. In text, a failure is one line on standard error.
class PMSOutputPrinter {
public:
    PMSOutputPrinter(std::ostream& out, std::ostream& err, bool json);

    bool isJSON() const { return json_; }

    /// The outcome of a single operation, as text or as the record's JSON document.
    void printReservation(const VLMSDKReservation& reservation) const;
    /// The confirmed reservation, saying whether the guest asked to be told when mobile check-in opens.
    void printConfirmation(const VLMSDKReservation& reservation, bool notifyAboutMobileCheckinOpen) const;
    void printFolio(const VLMSDKFolio& folio) const;
    void printPayment(const VLMSDKPayForReservationResult& result) const;
    void printCheckout(const std::string& reservationID, bool success) const;
    /// The failure's line on standard error, or with --json its document on standard output.
    void printFailure(const PMSFailure& failure) const;

    /// Writes `document` as the one JSON document of the run.
    void writeJSON(const PMSJSON& document) const;
    /// Writes text as it is, on standard output.
    void writeText(const std::string& text) const;
    /// Writes one line on standard error.
    void writeNotice(const std::string& line) const;

    /// Every property of a reservation the reply held, one aligned "Label: value" line each, after `indent`.
    static std::string reservationText(const VLMSDKReservation& reservation, const std::string& indent);
    /// The lines that change during a stay: identifier, status, room, check-in, amount left to pay.
    static std::string reservationSummaryText(const VLMSDKReservation& reservation, const std::string& indent);
    /// The folio's identifier and balance, then its postings as a table.
    static std::string folioText(const VLMSDKFolio& folio, const std::string& indent);
    /// The transaction, then the reservation's balance after it.
    static std::string paymentText(const VLMSDKPayForReservationResult& result, const std::string& indent);
    /// "in house (room 214, mobile check-in not open, 124.68 USD left to pay)": where a stay stands.
    static std::string stateText(const VLMSDKReservation& reservation);
    /// "18.00 USD": two decimals, then the currency when known.
    static std::string amount(double value, const std::optional<std::string>& currency);

private:
    std::ostream& out_;
    std::ostream& err_;
    bool json_;
};
