#pragma once

#include <string_view>

namespace vlmsdk::detail {

/// The value of the decimal number that `text` starts with, read the way the kit's amount transforms
/// read amount text: leading white space skipped, then an optional sign, digits with an optional '.'
/// fraction and an optional exponent. 0 when the text starts with no such number; ±infinity on overflow,
/// ±0 on underflow. Independent of the C locale; hexadecimal, "inf" and "nan" are not numbers here.
double leadingDecimalValue(std::string_view text) noexcept;

}  // namespace vlmsdk::detail
