#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKPMSKitTesting/VLMSDKScriptedReply.h>
#include <VLMSDKPMSKitTesting/VLMSDKScriptedRequest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

VLMSDK_API_BEGIN

/// A reply, and optionally the request it answers, kept in a JSON file (what `vlmsdk-pms --record DIR`
/// writes). One object:
///
///     {"request": {"method": "GET", "route": "guest/reservations/rsv_1", "body": {...}},
///      "reply": {"status": 200, "headers": {"X-Request-Id": "r-1"}, "body": {...}}}
///
/// - `request` (optional): `method` and `route` (as VLMSDKScriptedRequest takes them); `body` (optional, any
///   JSON) makes the request's body required to equal it.
/// - `reply`: `status` (100 to 599), `headers` (optional, an object of strings), and one of `body` (any JSON)
///   or `bodyText` (the text as sent, for a body that is not JSON); or, instead of a status, `fault`:
///   "dropped-connection" or "timeout". `delayMilliseconds` (optional) delays either.
///
/// Any other member is an error, so that a misspelt one is not silently ignored.
struct VLMSDKFixture {
    /// The request the reply answers, when the file names one.
    std::optional<VLMSDKScriptedRequest> request{};
    /// The reply.
    VLMSDKScriptedReply reply{};

    /// The fixture in `file`; nullopt, with "FILE: what is wrong" in `error`, for a missing or unreadable file
    /// or one that is not in the format above. Never throws but for std::bad_alloc.
    static std::optional<VLMSDKFixture> load(const std::filesystem::path& file, std::string* error = nullptr);
    /// The fixture in `text`; as `load`, with `name` standing for the file in the error.
    static std::optional<VLMSDKFixture> parse(std::string_view text, const std::string& name, std::string* error = nullptr);
};

VLMSDK_API_END
