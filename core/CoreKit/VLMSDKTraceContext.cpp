#include <VLMSDKCoreKit/VLMSDKTraceContext.h>

#include <algorithm>
#include <cstdint>
#include <random>

namespace {

bool isLowerHex(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

// Lowercase hex of the given length, not all zero (an all-zero identifier means "none").
bool isIdentifier(std::string_view text, std::size_t length) {
    return text.size() == length && isLowerHex(text) && text.find_first_not_of('0') != std::string_view::npos;
}

// Random identifiers: a generator per thread, seeded once from the system's entropy.
std::string randomHex(std::size_t length) {
    thread_local std::mt19937_64 generator{[] {
        std::random_device device;
        return (static_cast<std::uint64_t>(device()) << 32) ^ device();
    }()};
    static constexpr char digits[] = "0123456789abcdef";
    std::string text(length, '0');
    do {
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < length; ++i) {
            if (i % 16 == 0) bits = generator();
            text[i] = digits[bits & 0xF];
            bits >>= 4;
        }
    } while (text.find_first_not_of('0') == std::string::npos);
    return text;
}

}  // namespace

std::string VLMSDKTraceContext::traceparent() const {
    return "00-" + traceID + "-" + spanID + (sampled ? "-01" : "-00");
}

bool VLMSDKTraceContext::isValid() const { return isIdentifier(traceID, 32) && isIdentifier(spanID, 16); }

std::optional<VLMSDKTraceContext> VLMSDKTraceContext::fromTraceparent(std::string_view value) {
    // version "-" trace-id "-" parent-id "-" flags: 2 + 1 + 32 + 1 + 16 + 1 + 2 = 55 characters.
    if (value.size() < 55 || value[2] != '-' || value[35] != '-' || value[52] != '-') return std::nullopt;
    const std::string_view version = value.substr(0, 2), flags = value.substr(53, 2);
    if (!isLowerHex(version) || version == "ff" || !isLowerHex(flags)) return std::nullopt;
    // Version 00 is exactly 55 characters; a later version may add fields after a '-'.
    if (value.size() != 55 && (version == "00" || value[55] != '-')) return std::nullopt;
    VLMSDKTraceContext context{std::string(value.substr(3, 32)), std::string(value.substr(36, 16)),
                               (std::stoi(std::string(flags), nullptr, 16) & 1) != 0};
    if (!context.isValid()) return std::nullopt;
    return context;
}

VLMSDKTraceContext VLMSDKTraceContext::newTrace() { return {randomHex(32), randomHex(16), true}; }

VLMSDKTraceContext VLMSDKTraceContext::child() const { return {traceID, randomHex(16), sampled}; }
