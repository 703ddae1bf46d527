#pragma once

#include "Booking.h"
#include "Payment.h"
#include "Posting.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pmssandbox {

class SqliteDatabase;

/// What changes about bookings, kept in SQLite: each booking's state, its folio lines and the payments
/// behind them. What never changes (names, dates, guests) stays in the seed. Used only inside one of the
/// StateDatabase's transactions.
class BookingTable {
public:
    /// Folio sums for an overview.
    struct Totals {
        std::int64_t chargedCents = 0;
        std::int64_t paidCents = 0;
        std::int64_t lines = 0;
    };

    explicit BookingTable(SqliteDatabase& database) : database_(database) {}

    void createTables();
    /// Forgets every booking's state and folio and stores `seeded` instead. Payment numbers go on.
    void reset(const std::vector<Booking>& seeded);

    /// Overwrites the changing fields of `booking` (a copy of the seeded one) with the stored ones, and its
    /// folio lines when `withPostings`. False when the booking has no row.
    bool load(Booking& booking, bool withPostings);
    /// Stores the changing fields of `booking`, its folio lines aside.
    void saveState(const Booking& booking);
    /// Appends a folio line; `paymentId` names the payment it records, if any.
    void addPosting(const std::string& bookingId, const Posting& posting, const std::string* paymentId = nullptr);
    void addPayment(const std::string& bookingId, const Payment& payment);
    /// "txn_000001", "txn_000002", ...; never handed out twice by one database.
    std::string nextPaymentId();
    /// Rooms at `venueId` held by bookings other than `exceptId` that have not checked out.
    std::vector<std::string> roomsHeld(const std::string& venueId, const std::string& exceptId);
    Totals totals(const std::string& bookingId);

private:
    SqliteDatabase& database_;
};

}  // namespace pmssandbox
