#include <VLMSDKPMSKit/Private/Models/VLMSDKDecimalText.h>

#include <charconv>
#include <cstddef>
#include <limits>
#include <system_error>

namespace vlmsdk::detail {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

}  // namespace

double leadingDecimalValue(std::string_view text) noexcept {
    std::size_t i = 0;
    const std::size_t n = text.size();
    while (i < n && isSpace(text[i])) ++i;

    bool negative = false;
    if (i < n && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }

    // Scan the mantissa, noting where its first significant digit stands relative to the point, which
    // tells overflow from underflow when the value is out of range.
    const std::size_t start = i;
    std::size_t digits = 0;
    bool seenNonZero = false;
    long long integerDigits = 0;
    while (i < n && isDigit(text[i])) {
        if (text[i] != '0' && !seenNonZero) seenNonZero = true;
        if (seenNonZero) ++integerDigits;
        ++i;
        ++digits;
    }
    long long magnitude = integerDigits;  // decimal position of the first non-zero digit (1 = units)
    if (i < n && text[i] == '.') {
        ++i;
        long long leadingFractionZeros = 0;
        while (i < n && isDigit(text[i])) {
            if (!seenNonZero) {
                if (text[i] == '0') {
                    ++leadingFractionZeros;
                } else {
                    seenNonZero = true;
                    magnitude = -leadingFractionZeros;
                }
            }
            ++i;
            ++digits;
        }
    }
    if (digits == 0) return 0.0;

    long long exponent = 0;
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        std::size_t j = i + 1;
        bool negativeExponent = false;
        if (j < n && (text[j] == '+' || text[j] == '-')) {
            negativeExponent = text[j] == '-';
            ++j;
        }
        if (j < n && isDigit(text[j])) {
            while (j < n && isDigit(text[j])) {
                if (exponent < 1'000'000'000) exponent = exponent * 10 + (text[j] - '0');
                ++j;
            }
            if (negativeExponent) exponent = -exponent;
            i = j;
        }
    }

    double value = 0.0;
    const char* first = text.data() + start;
    const char* last = text.data() + i;
    const std::errc ec = std::from_chars(first, last, value, std::chars_format::general).ec;
    if (ec == std::errc::result_out_of_range) {
        const bool overflow = seenNonZero && magnitude + exponent > 0;
        value = overflow ? std::numeric_limits<double>::infinity() : 0.0;
    } else if (ec != std::errc()) {
        return 0.0;
    }
    return negative ? -value : value;
}

}  // namespace vlmsdk::detail
