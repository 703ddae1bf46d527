#pragma once

#include "PMSRecordJSON.h"

#include <Velmora_Errors/VLMError.h>

#include <iosfwd>
#include <optional>
#include <string>

class VLMSDKReservation;
class VLMSDKFolio;
class VLMSDKPayForReservationResult;

/// Writes what the tool has to say: readable text by default, or with --json exactly one JSON document on
/// standard output. Failures always go to standard error as well.
class PMSOutputPrinter {
public:
    PMSOutputPrinter(std::ostream& out, std::ostream& err, bool json);

    bool isJSON() const { return json_; }

    /// The outcome of a single operation, as text or as the record's JSON document.
    void printReservation(const VLMSDKReservation& reservation) const;
    void printFolio(const VLMSDKFolio& folio) const;
    void printPayment(const VLMSDKPayForReservationResult& result) const;
    void printCheckout(const std::string& reservationID, bool success) const;
    /// "vlmsdk-pms: <operation> failed: <developer message>", then the HTTP status and the server's message
    /// when the error has them, on standard error; with --json also {"error": ...} on standard output.
    void printFailure(const std::string& operation, const VLMError& error) const;

    /// Writes `document` as the one JSON document of the run.
    void writeJSON(const PMSJSON& document) const;
    /// Writes text as it is, on standard output.
    void writeText(const std::string& text) const;
    /// Writes the failure lines on standard error only.
    void writeFailure(const std::string& operation, const VLMError& error) const;

    /// Every property of a reservation, one aligned "Label: value" line each, each line after `indent`.
    static std::string reservationText(const VLMSDKReservation& reservation, const std::string& indent);
    /// The lines that change during a stay: identifier, status, room, check-in, amount left to pay.
    static std::string reservationSummaryText(const VLMSDKReservation& reservation, const std::string& indent);
    /// The folio's identifier and balance, then its postings as a table.
    static std::string folioText(const VLMSDKFolio& folio, const std::string& indent);
    /// The transaction, then the reservation's balance after it.
    static std::string paymentText(const VLMSDKPayForReservationResult& result, const std::string& indent);
    /// "18.00 USD"; "-" when the amount is absent. Two decimals, the currency when known.
    static std::string amount(const std::optional<double>& value, const std::optional<std::string>& currency);

private:
    std::ostream& out_;
    std::ostream& err_;
    bool json_;
};
