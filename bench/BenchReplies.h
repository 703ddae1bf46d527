#pragma once

// The reply bodies the benchmarks serve and parse.

#include <cstddef>
#include <string>

namespace vlmsdk::bench {

/// The identifier the fetch benchmarks ask for.
inline constexpr const char* kReservationID = "5f1c2b7e9a4d3c0012ab34cd";

/// {"reservation": {...}}: every key the reservation mapping reads (17 and "id"), three guests; about 1 KB.
const std::string& reservationReply();

/// A folio reply with `postings` postings whose amounts alternate between JSON numbers and text, a credit
/// (negative amount) now and then.
std::string folioReply(std::size_t postings);

}  // namespace vlmsdk::bench
