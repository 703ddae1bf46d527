#include "PMSOutputPrinter.h"

#include "PMSRecordJSON.h"

#include <VLMSDKPMSKit/Public/API/Responses/VLMSDKPayForReservationResult.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>

#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <utility>
#include <vector>

namespace {

constexpr const char* kAbsent = "-";

std::string text(const std::optional<std::string>& value) { return value ? *value : kAbsent; }

// "Label:" padded so that every value of the block starts in the same column; a value with several lines
// continues in that column.
class FieldBlock {
public:
    void add(std::string label, std::string value) { fields_.emplace_back(std::move(label), std::move(value)); }

    std::string render(const std::string& indent) const {
        std::size_t width = 0;
        for (const auto& field : fields_) width = std::max(width, field.first.size() + 1);
        std::ostringstream stream;
        for (const auto& [label, value] : fields_) {
            std::string head = label + ":";
            head.resize(width + 2, ' ');
            std::istringstream lines(value);
            std::string line;
            bool first = true;
            while (std::getline(lines, line) || first) {
                stream << indent << (first ? head : std::string(width + 2, ' ')) << line << '\n';
                first = false;
            }
        }
        return stream.str();
    }

private:
    std::vector<std::pair<std::string, std::string>> fields_;
};

std::string stay(const VLMSDKReservation& reservation) {
    auto day = [](const std::optional<VLMSDKDate>& date) { return date ? PMSRecordJSON::date(*date) : kAbsent; };
    return day(reservation.checkinDate()) + " to " + day(reservation.checkoutDate());
}

std::string room(const VLMSDKReservation& reservation) {
    const auto& number = reservation.roomNumber();
    if (!number) return kAbsent;
    return number->empty() ? "not assigned yet" : *number;
}

std::string guests(const VLMSDKReservation& reservation) {
    std::string lines;
    for (const auto& guest : reservation.guests()) {
        if (!guest) continue;
        if (!lines.empty()) lines += '\n';
        lines += text(guest->firstName()) + " " + text(guest->lastName());
        if (guest->profileCode()) lines += " (profile " + *guest->profileCode() + ")";
    }
    return lines.empty() ? "none listed" : lines;
}

std::string status(const VLMSDKReservation& reservation) {
    switch (reservation.status()) {
    case VLMSDKReservationStatusReserved: return "reserved";
    case VLMSDKReservationStatusInHouse: return "in house";
    case VLMSDKReservationStatusCheckedOut: return "checked out";
    case VLMSDKReservationStatusUnknown: break;
    }
    return "unknown (" + text(reservation.statusStringRepresentation()) + ")";
}

}  // namespace

PMSOutputPrinter::PMSOutputPrinter(std::ostream& out, std::ostream& err, bool json) : out_(out), err_(err), json_(json) {}

std::string PMSOutputPrinter::amount(const std::optional<double>& value, const std::optional<std::string>& currency) {
    if (!value) return kAbsent;
    char number[64];
    // Two decimals; a negative zero from rounding reads as 0.00.
    double shown = std::round(*value * 100.0) / 100.0;
    if (shown == 0.0) shown = 0.0;
    std::snprintf(number, sizeof number, "%.2f", shown);
    return currency ? std::string(number) + " " + *currency : std::string(number);
}

std::string PMSOutputPrinter::reservationText(const VLMSDKReservation& reservation, const std::string& indent) {
    const auto& currency = reservation.priceCurrencyCode();
    FieldBlock block;
    block.add("Reservation", text(reservation.velmoraID()));
    block.add("Status", status(reservation));
    block.add("Confirmation number", text(reservation.externalReservationID()));
    block.add("Reservation number", text(reservation.internalReservationID()));
    block.add("Client number", text(reservation.clientSideID()));
    block.add("Venue", text(reservation.venueVelmoraID()));
    block.add("Guest account", text(reservation.guestVelmoraID()));
    block.add("Check-in record", text(reservation.checkinVelmoraID()));
    block.add("Stay", stay(reservation));
    block.add("Room", room(reservation));
    block.add("Mobile check-in", reservation.isMobileCheckinOpen() ? "open" : "not open");
    block.add("Total stay price", amount(reservation.totalStayPriceAmount(), currency));
    block.add("Left to pay", amount(reservation.remainPriceAmountToPay(), currency));
    block.add("Paid, not yet synced", amount(reservation.notSyncedPaidPriceAmount(), currency));
    block.add("Notes", text(reservation.reservationInfo()));
    block.add("Guests", guests(reservation));
    return block.render(indent);
}

std::string PMSOutputPrinter::reservationSummaryText(const VLMSDKReservation& reservation, const std::string& indent) {
    FieldBlock block;
    block.add("Reservation", text(reservation.velmoraID()));
    block.add("Status", status(reservation));
    block.add("Room", room(reservation));
    block.add("Mobile check-in", reservation.isMobileCheckinOpen() ? "open" : "not open");
    block.add("Left to pay", amount(reservation.remainPriceAmountToPay(), reservation.priceCurrencyCode()));
    return block.render(indent);
}

std::string PMSOutputPrinter::folioText(const VLMSDKFolio& folio, const std::string& indent) {
    FieldBlock block;
    block.add("Folio", text(folio.folioID()));
    block.add("Outstanding", amount(folio.outstandingAmount(), folio.paymentCurrency()));
    std::string result = block.render(indent);

    std::vector<std::vector<std::string>> rows{{"Code", "Posting", "Amount"}};
    for (const auto& posting : folio.deliverables()) {
        if (!posting) continue;
        rows.push_back({text(posting->code()), text(posting->name()), amount(posting->price(), posting->currency())});
    }
    if (rows.size() == 1) return result + indent + "No postings.\n";

    std::size_t widths[3] = {0, 0, 0};
    for (const auto& row : rows) {
        for (std::size_t column = 0; column < 3; ++column) widths[column] = std::max(widths[column], row[column].size());
    }
    std::ostringstream table;
    for (std::size_t index = 0; index < rows.size(); ++index) {
        const auto& row = rows[index];
        std::string code = row[0];
        std::string name = row[1];
        code.resize(widths[0], ' ');
        name.resize(widths[1], ' ');
        // Amounts right-aligned so that the decimal points line up.
        const std::string amountColumn = std::string(widths[2] - row[2].size(), ' ') + row[2];
        table << indent << "  " << code << "  " << name << "  " << amountColumn << '\n';
        if (index == 0) {
            table << indent << "  " << std::string(widths[0], '-') << "  " << std::string(widths[1], '-') << "  "
                  << std::string(widths[2], '-') << '\n';
        }
    }
    return result + table.str();
}

std::string PMSOutputPrinter::paymentText(const VLMSDKPayForReservationResult& result, const std::string& indent) {
    FieldBlock block;
    if (const auto& transaction = result.paymentTransaction()) {
        block.add("Transaction", text(transaction->velmoraID()));
        block.add("Payment status", text(transaction->status()));
        block.add("Amount", amount(transaction->amount(), transaction->currencyCode()));
        block.add("Card", text(transaction->creditCardID()));
        block.add("Made at", transaction->createdAt() ? PMSRecordJSON::time(*transaction->createdAt()) : kAbsent);
    } else {
        block.add("Transaction", "not in the reply");
    }
    if (const auto& reservation = result.reservation()) {
        block.add("Reservation", text(reservation->velmoraID()));
        block.add("Left to pay", amount(reservation->remainPriceAmountToPay(), reservation->priceCurrencyCode()));
    } else {
        block.add("Reservation", "not in the reply");
    }
    return block.render(indent);
}

void PMSOutputPrinter::printReservation(const VLMSDKReservation& reservation) const {
    if (json_) return writeJSON(PMSRecordJSON::reservation(reservation));
    writeText(reservationText(reservation, ""));
}

void PMSOutputPrinter::printFolio(const VLMSDKFolio& folio) const {
    if (json_) return writeJSON(PMSRecordJSON::folio(folio));
    writeText(folioText(folio, ""));
}

void PMSOutputPrinter::printPayment(const VLMSDKPayForReservationResult& result) const {
    if (json_) return writeJSON(PMSRecordJSON::payment(result));
    writeText(paymentText(result, ""));
}

void PMSOutputPrinter::printCheckout(const std::string& reservationID, bool success) const {
    if (json_) return writeJSON({{"reservationID", reservationID}, {"checkedOut", success}});
    writeText("Reservation " + reservationID + (success ? " is checked out.\n" : " was not checked out.\n"));
}

void PMSOutputPrinter::printFailure(const std::string& operation, const VLMError& error) const {
    writeFailure(operation, error);
    if (json_) writeJSON({{"operation", operation}, {"error", PMSRecordJSON::error(error)}});
}

void PMSOutputPrinter::writeJSON(const PMSJSON& document) const {
    // Replacement keeps output valid even for text that is not UTF-8.
    out_ << document.dump(2, ' ', false, PMSJSON::error_handler_t::replace) << '\n';
    out_.flush();
}

void PMSOutputPrinter::writeText(const std::string& text) const {
    out_ << text;
    out_.flush();
}

void PMSOutputPrinter::writeFailure(const std::string& operation, const VLMError& error) const {
    err_ << "vlmsdk-pms: " << operation << " failed: " << error.developerMessage() << '\n';
    if (error.httpStatusCode()) err_ << "  HTTP status:    " << *error.httpStatusCode() << '\n';
    if (error.serverMessage()) err_ << "  Server message: " << *error.serverMessage() << '\n';
    err_.flush();
}
