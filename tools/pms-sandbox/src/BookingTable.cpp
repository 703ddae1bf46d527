#include "BookingTable.h"

#include "SqliteDatabase.h"

#include <cstdio>

namespace pmssandbox {

void BookingTable::createTables() {
    database_.exec(R"sql(
        CREATE TABLE IF NOT EXISTS bookings (
            id TEXT PRIMARY KEY,
            venue_id TEXT NOT NULL,
            on_platform INTEGER NOT NULL,
            notify_me INTEGER,
            status TEXT NOT NULL,
            checkin_available INTEGER NOT NULL,
            room_number TEXT NOT NULL,
            outstanding_cents INTEGER NOT NULL);
        CREATE TABLE IF NOT EXISTS payments (
            id TEXT PRIMARY KEY,
            booking_id TEXT NOT NULL REFERENCES bookings (id),
            card_id TEXT NOT NULL,
            cents INTEGER NOT NULL,
            currency TEXT NOT NULL,
            created_at TEXT NOT NULL);
        CREATE TABLE IF NOT EXISTS postings (
            id INTEGER PRIMARY KEY,
            booking_id TEXT NOT NULL REFERENCES bookings (id),
            name TEXT NOT NULL,
            code TEXT NOT NULL,
            cents INTEGER NOT NULL,
            amount_as_text INTEGER NOT NULL,
            currency TEXT NOT NULL,
            payment_id TEXT UNIQUE REFERENCES payments (id));
        CREATE INDEX IF NOT EXISTS postings_by_booking ON postings (booking_id, id);
        CREATE TABLE IF NOT EXISTS counters (name TEXT PRIMARY KEY, value INTEGER NOT NULL);
        INSERT OR IGNORE INTO counters (name, value) VALUES ('payments', 0);
    )sql");
}

void BookingTable::reset(const std::vector<Booking>& seeded) {
    database_.exec("DELETE FROM postings; DELETE FROM payments; DELETE FROM bookings;");
    for (const Booking& booking : seeded) {
        database_.run("INSERT INTO bookings (id, venue_id, on_platform, notify_me, status, checkin_available, "
                      "room_number, outstanding_cents) VALUES (?, ?, 0, NULL, '', 0, '', 0)",
                      booking.id, booking.venueId);
        saveState(booking);
        for (const Posting& posting : booking.postings) addPosting(booking.id, posting);
    }
}

bool BookingTable::load(Booking& booking, bool withPostings) {
    SqliteStatement& row = database_.prepare(
        "SELECT on_platform, notify_me, status, checkin_available, room_number, outstanding_cents "
        "FROM bookings WHERE id = ?");
    row.bind(1, booking.id);
    if (!row.step()) return false;
    booking.onPlatform = row.integer(0) != 0;
    booking.notifyMe = row.isNull(1) ? std::nullopt : std::optional<bool>(row.integer(1) != 0);
    booking.status = stayStatusFromString(row.text(2)).value_or(StayStatus::Reserved);
    booking.checkinAvailable = row.integer(3) != 0;
    booking.roomNumber = row.text(4);
    booking.outstandingCents = row.integer(5);
    booking.postings.clear();
    if (!withPostings) return true;
    SqliteStatement& lines = database_.prepare(
        "SELECT name, code, cents, amount_as_text, currency FROM postings WHERE booking_id = ? ORDER BY id");
    lines.bind(1, booking.id);
    while (lines.step()) {
        booking.postings.push_back(
            Posting{lines.text(0), lines.text(1), lines.integer(2), lines.integer(3) != 0, lines.text(4)});
    }
    return true;
}

void BookingTable::saveState(const Booking& booking) {
    database_.run("UPDATE bookings SET on_platform = ?, notify_me = ?, status = ?, checkin_available = ?, "
                  "room_number = ?, outstanding_cents = ? WHERE id = ?",
                  booking.onPlatform, booking.notifyMe, toString(booking.status), booking.checkinAvailable,
                  booking.roomNumber, booking.outstandingCents, booking.id);
}

void BookingTable::addPosting(const std::string& bookingId, const Posting& posting, const std::string* paymentId) {
    SqliteStatement& insert = database_.prepare(
        "INSERT INTO postings (booking_id, name, code, cents, amount_as_text, currency, payment_id) "
        "VALUES (?, ?, ?, ?, ?, ?, ?)");
    insert.bindAll(bookingId, posting.name, posting.code, posting.cents, posting.amountAsText, posting.currency);
    if (paymentId) insert.bind(7, *paymentId);
    insert.run();
}

void BookingTable::addPayment(const std::string& bookingId, const Payment& payment) {
    database_.run("INSERT INTO payments (id, booking_id, card_id, cents, currency, created_at) VALUES (?, ?, ?, ?, ?, ?)",
                  payment.id, bookingId, payment.cardId, payment.cents, payment.currency, payment.createdAt);
}

std::string BookingTable::nextPaymentId() {
    SqliteStatement& next =
        database_.prepare("UPDATE counters SET value = value + 1 WHERE name = 'payments' RETURNING value");
    const std::int64_t number = next.step() ? next.integer(0) : 0;
    next.run();
    char text[32];
    std::snprintf(text, sizeof text, "txn_%06lld", static_cast<long long>(number));
    return text;
}

std::vector<std::string> BookingTable::roomsHeld(const std::string& venueId, const std::string& exceptId) {
    SqliteStatement& rooms = database_.prepare(
        "SELECT room_number FROM bookings WHERE venue_id = ? AND id != ? AND status != 'checked_out' "
        "AND room_number != ''");
    rooms.bindAll(venueId, exceptId);
    std::vector<std::string> held;
    while (rooms.step()) held.push_back(rooms.text(0));
    return held;
}

BookingTable::Totals BookingTable::totals(const std::string& bookingId) {
    SqliteStatement& sums = database_.prepare(
        "SELECT COALESCE(SUM(CASE WHEN cents > 0 THEN cents END), 0), "
        "COALESCE(-SUM(CASE WHEN cents < 0 THEN cents END), 0), COUNT(*) FROM postings WHERE booking_id = ?");
    sums.bind(1, bookingId);
    sums.step();
    return {sums.integer(0), sums.integer(1), sums.integer(2)};
}

}  // namespace pmssandbox
