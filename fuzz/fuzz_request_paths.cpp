// Identifiers from anywhere through every operation: each request the kit hands to the transport goes
// exactly where its operation says (same method, the template's segments, the identifier as one segment,
// no query, no fragment), or is refused with an error before it leaves.
#include "FuzzOperations.h"
#include "FuzzRequestManager.h"

#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::string_view kBase = "http://127.0.0.1:1/api/";

std::vector<std::string> split(std::string_view text) {
    std::vector<std::string> segments;
    for (std::size_t start = 0;;) {
        const auto end = text.find('/', start);
        segments.emplace_back(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        if (end == std::string_view::npos) return segments;
        start = end + 1;
    }
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The segment as a server decodes it; a stray '%' (which the builder never leaves) makes it unreadable.
std::optional<std::string> decoded(std::string_view segment) {
    std::string text;
    for (std::size_t i = 0; i < segment.size(); ++i) {
        if (segment[i] != '%') {
            text += segment[i];
            continue;
        }
        if (i + 2 >= segment.size()) return std::nullopt;
        const int high = hexValue(segment[i + 1]);
        const int low = hexValue(segment[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        text += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return text;
}

bool hasControlCharacter(std::string_view text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto manager = std::make_shared<FuzzRequestManager>();
    static const VLMSDKAPIManager api(std::make_shared<VLMSDKRequestBuilder>(std::string(kBase)), manager);
    const std::string identifier(reinterpret_cast<const char*>(data), size);

    for (const auto& operation : fuzzOperations()) {
        if (std::string_view(operation.pathFormat).find("%@") == std::string_view::npos) continue;
        manager->forget();
        FuzzOutcome outcome;
        operation.start(api, identifier, outcome);
        fuzzRequire(outcome.completions == 1 && !outcome.offMainThread);

        // An empty identifier would name the collection's route: refused like one holding '/'.
        if (identifier.find('/') != std::string::npos || identifier.empty()) {
            // The kit refuses it before building anything.
            fuzzRequire(!manager->lastRequest() && outcome.error &&
                        outcome.error->code() == VLMErrorCode::RequiredArgument);
            continue;
        }
        const auto& request = manager->lastRequest();
        fuzzRequire(request != nullptr);
        if (request->buildError()) {
            // Only what would leave its segment is refused: a dot segment or a control character.
            fuzzRequire(identifier == "." || identifier == ".." || hasControlCharacter(identifier));
            fuzzRequire(outcome.error == request->buildError() && manager->requestCount() == 0);
            continue;
        }
        const std::string& url = request->url();
        fuzzRequire(request->method() == operation.method);
        fuzzRequire(url.compare(0, kBase.size(), kBase) == 0);
        fuzzRequire(url.find_first_of("?# ") == std::string::npos);
        const auto sent = split(std::string_view(url).substr(kBase.size()));
        const auto expected = split(operation.pathFormat);
        fuzzRequire(sent.size() == expected.size());
        for (std::size_t i = 0; i < sent.size(); ++i) {
            const auto segment = decoded(sent[i]);
            fuzzRequire(segment.has_value());
            fuzzRequire(*segment == (expected[i] == "%@" ? identifier : expected[i]));
        }
    }
    return 0;
}
