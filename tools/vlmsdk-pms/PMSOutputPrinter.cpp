#include "PMSOutputPrinter.h"

#include "PMSFailure.h"
#include "PMSRecordJSON.h"
#include "PMSRedaction.h"
#include "PMSShownText.h"

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

// Text from the service, safe for a terminal.
std::string shown(const std::optional<std::string>& value) { return value ? PMSShownText::line(*value) : ""; }

// "Label:" padded so that every value of the block starts in the same column; a value with several lines
// continues in that column. A value the reply did not hold leaves its line out.
class FieldBlock {
public:
    void add(std::string label, std::optional<std::string> value) {
        if (value) fields_.emplace_back(std::move(label), std::move(*value));
    }

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

std::optional<std::string> text(const std::optional<std::string>& value) {
    if (!value) return std::nullopt;
    return shown(value);
}

std::optional<std::string> money(const std::optional<double>& value, const std::optional<std::string>& currency) {
    if (!value) return std::nullopt;
    return PMSOutputPrinter::amount(*value, currency ? std::optional<std::string>(shown(currency)) : std::nullopt);
}

std::optional<std::string> stay(const VLMSDKReservation& reservation) {
    const auto& from = reservation.checkinDate();
    const auto& to = reservation.checkoutDate();
    if (from && to) return PMSRecordJSON::date(*from) + " to " + PMSRecordJSON::date(*to);
    if (from) return "from " + PMSRecordJSON::date(*from);
    if (to) return "until " + PMSRecordJSON::date(*to);
    return std::nullopt;
}

std::optional<std::string> room(const VLMSDKReservation& reservation) {
    const auto& number = reservation.roomNumber();
    if (!number) return std::nullopt;
    return number->empty() ? "not assigned yet" : shown(number);
}

std::optional<std::string> guests(const VLMSDKReservation& reservation) {
    std::string lines;
    for (const auto& guest : reservation.guests()) {
        if (!guest) continue;
        std::string name = shown(guest->firstName());
        // Appended piece by piece: g++ 12 at -O3 warns falsely (-Wrestrict) on "text" + std::string.
        if (guest->lastName()) name.append(name.empty() ? "" : " ").append(shown(guest->lastName()));
        if (guest->profileCode()) {
            name.append(name.empty() ? "" : " ").append("(profile ").append(shown(guest->profileCode())).append(")");
        }
        if (name.empty()) continue;
        if (!lines.empty()) lines += '\n';
        lines += name;
    }
    if (lines.empty()) return std::nullopt;
    return lines;
}

std::string status(const VLMSDKReservation& reservation) {
    switch (reservation.status()) {
    case VLMSDKReservationStatusReserved: return "reserved";
    case VLMSDKReservationStatusInHouse: return "in house";
    case VLMSDKReservationStatusCheckedOut: return "checked out";
    case VLMSDKReservationStatusUnknown: break;
    }
    const auto& given = reservation.statusStringRepresentation();
    return given ? "in a state this tool does not know (" + shown(given) + ")" : "of a status the reply did not give";
}

std::string mobileCheckin(const VLMSDKReservation& reservation) {
    return reservation.isMobileCheckinOpen() ? "open" : "not open";
}

}  // namespace

PMSOutputPrinter::PMSOutputPrinter(std::ostream& out, std::ostream& err, bool json) : out_(out), err_(err), json_(json) {}

std::string PMSOutputPrinter::amount(double value, const std::optional<std::string>& currency) {
    char number[64];
    // Two decimals; a negative zero from rounding reads as 0.00.
    double rounded = std::round(value * 100.0) / 100.0;
    if (rounded == 0.0) rounded = 0.0;
    std::snprintf(number, sizeof number, "%.2f", rounded);
    return currency ? std::string(number) + " " + *currency : std::string(number);
}

std::string PMSOutputPrinter::stateText(const VLMSDKReservation& reservation) {
    std::string details = "mobile check-in " + mobileCheckin(reservation);
    if (const auto number = room(reservation)) details = "room " + *number + ", " + details;
    if (const auto left = money(reservation.remainPriceAmountToPay(), reservation.priceCurrencyCode())) {
        details += ", " + *left + " left to pay";
    }
    return status(reservation) + " (" + details + ")";
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
    block.add("Mobile check-in", mobileCheckin(reservation));
    block.add("Total stay price", money(reservation.totalStayPriceAmount(), currency));
    block.add("Left to pay", money(reservation.remainPriceAmountToPay(), currency));
    block.add("Paid, not yet synced", money(reservation.notSyncedPaidPriceAmount(), currency));
    block.add("Notes", text(reservation.reservationInfo()));
    block.add("Guests", guests(reservation));
    return block.render(indent);
}

std::string PMSOutputPrinter::reservationSummaryText(const VLMSDKReservation& reservation, const std::string& indent) {
    FieldBlock block;
    block.add("Reservation", text(reservation.velmoraID()));
    block.add("Status", status(reservation));
    block.add("Room", room(reservation));
    block.add("Mobile check-in", mobileCheckin(reservation));
    block.add("Left to pay", money(reservation.remainPriceAmountToPay(), reservation.priceCurrencyCode()));
    return block.render(indent);
}

std::string PMSOutputPrinter::folioText(const VLMSDKFolio& folio, const std::string& indent) {
    FieldBlock block;
    block.add("Folio", text(folio.folioID()));
    block.add("Outstanding", money(folio.outstandingAmount(), folio.paymentCurrency()));
    std::string result = block.render(indent);

    std::vector<std::vector<std::string>> rows{{"Code", "Posting", "Amount"}};
    for (const auto& posting : folio.deliverables()) {
        if (!posting) continue;
        rows.push_back({shown(posting->code()), shown(posting->name()),
                        money(posting->price(), posting->currency()).value_or("")});
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
    std::string missing;
    if (const auto& transaction = result.paymentTransaction()) {
        block.add("Transaction", text(transaction->velmoraID()));
        block.add("Payment status", text(transaction->status()));
        block.add("Amount", money(transaction->amount(), transaction->currencyCode()));
        if (const auto& card = transaction->creditCardID()) block.add("Card", PMSRedaction::cardID(*card));
        if (const auto& made = transaction->createdAt()) block.add("Made at", PMSRecordJSON::time(*made));
    } else {
        missing += indent + "The payment went through; the reply described no transaction.\n";
    }
    if (const auto& reservation = result.reservation()) {
        block.add("Reservation", text(reservation->velmoraID()));
        block.add("Left to pay", money(reservation->remainPriceAmountToPay(), reservation->priceCurrencyCode()));
    } else {
        missing += indent + "The reply did not say what is left to pay.\n";
    }
    return block.render(indent) + missing;
}

void PMSOutputPrinter::printReservation(const VLMSDKReservation& reservation) const {
    if (json_) return writeJSON(PMSRecordJSON::reservation(reservation));
    writeText(reservationText(reservation, ""));
}

void PMSOutputPrinter::printConfirmation(const VLMSDKReservation& reservation, bool notifyAboutMobileCheckinOpen) const {
    if (json_) {
        PMSJSON document = PMSRecordJSON::reservation(reservation);
        document["notifyAboutMobileCheckinOpen"] = notifyAboutMobileCheckinOpen;
        return writeJSON(document);
    }
    writeText(std::string(notifyAboutMobileCheckinOpen
                              ? "Confirmed; the guest will be told when mobile check-in opens.\n"
                              : "Confirmed, without asking to be told when mobile check-in opens.\n") +
              reservationText(reservation, ""));
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

void PMSOutputPrinter::printFailure(const PMSFailure& failure) const {
    if (json_) return writeJSON(failure.document());
    writeNotice(failure.line());
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

void PMSOutputPrinter::writeNotice(const std::string& line) const {
    err_ << line << '\n';
    err_.flush();
}
