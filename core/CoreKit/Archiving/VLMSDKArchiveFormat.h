#pragma once

// The byte layout shared by VLMSDKKeyedArchiver and VLMSDKKeyedUnarchiver. All integers little-endian.
//
//   header   "VLMA", u16 format version, u16 zero, u32 body length
//   body     one record
//   trailer  u32 CRC-32 of header and body
//
//   record   string class name, u32 entry count, entries
//   entry    string key, u8 tag, value by tag
//   string   u32 length, bytes
//   values   Absent: nothing; String: string; Double: u64 IEEE-754 bits; Bool: u8 0 or 1;
//            Date: i64 days since 1970-01-01; Time: i64 seconds since 1970-01-01T00:00:00Z;
//            Record: record; RecordArray: u32 count, records

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKSourceLocation.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vlmsdk::detail {

inline constexpr std::array<std::uint8_t, 4> kArchiveMagic{'V', 'L', 'M', 'A'};
inline constexpr std::uint16_t kArchiveFormatVersion = 1;
inline constexpr std::size_t kArchiveHeaderSize = 12;
inline constexpr std::size_t kArchiveTrailerSize = 4;
// Records nested deeper than this are refused on both sides, so reading never exhausts the stack.
inline constexpr int kArchiveMaxDepth = 64;

// Every archiving failure, located where it was made.
inline VLMErrorPtr archiveError(std::string message,
                                VLMSDKSourceLocation location = VLMSDKSourceLocation::current()) {
    return VLMError::errorWithCode(VLMErrorCode::Archive, kVLMSDKArchiveErrorDomain, std::move(message),
                                   location.function, location.file);
}

enum class ArchiveTag : std::uint8_t { Absent = 0, String, Double, Bool, Date, Time, Record, RecordArray };

inline constexpr std::array<std::uint32_t, 256> kCRC32Table = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t n = 0; n < 256; ++n) {
        std::uint32_t c = n;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        table[n] = c;
    }
    return table;
}();

// CRC-32 (IEEE 802.3): detects every single-byte change and every burst of up to 32 bits.
inline std::uint32_t crc32(const std::uint8_t* data, std::size_t size) {
    std::uint32_t c = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < size; ++i) c = kCRC32Table[(c ^ data[i]) & 0xFFu] ^ (c >> 8);
    return c ^ 0xFFFFFFFFu;
}

}  // namespace vlmsdk::detail
