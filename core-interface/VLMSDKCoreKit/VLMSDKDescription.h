#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>

#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// The pieces that records' `description()` texts are built from, so that every record prints values
/// alike: an absent value as "(null)", a number as its shortest round-trip decimal, a date as
/// "YYYY-MM-DD HH:MM:SS +0000".
class VLMSDKDescription {
public:
    /// The text itself, or "(null)".
    static std::string string(const std::optional<std::string>& value);
    /// The shortest decimal that reads back as the same double ("12", "12.5", "-0", "1e+21"); "nan", "inf"
    /// and "-inf" for the values that have no decimal; "(null)" when absent.
    static std::string number(const std::optional<double>& value);
    /// "2026-11-21 00:00:00 +0000", or "(null)".
    static std::string date(const std::optional<VLMSDKDate>& value);
    /// "2026-11-21 10:04:05 +0000", or "(null)".
    static std::string time(const std::optional<VLMSDKTime>& value);
    /// The address as printf's "%p" writes it.
    static std::string pointer(const void* value);
};

VLMSDK_API_END
