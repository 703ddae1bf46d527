#pragma once

#include <VLMSDKCoreKit/VLMSDKRequest.h>

#include <optional>
#include <string>
#include <string_view>

namespace vlmsdk::detail {

/// What a request must be before any transport sees it, whatever made it (the request builder, a subclass
/// of it, a host's own code): a method the request manager sends, an http or https URL free of control
/// bytes and spaces, header names that are tokens (RFC 9110), header values free of CR, LF and NUL, and
/// none of the headers the transport writes itself. Each of these, let through, would let a request carry
/// a second one past a proxy. Stateless; any thread.
class VLMSDKRequestCheck {
public:
    /// Why `request` must not be sent, as an `InvalidRequest` error naming the part (its control bytes
    /// escaped), or its build error, or nullptr when it may be sent.
    static VLMErrorPtr rejectionOf(const VLMSDKRequest* request);

    /// Why the header field `name: value` cannot be sent, as a phrase ("the header 'Host' is written by the
    /// transport itself"), or nothing. The request builder refuses a default header with the same words.
    static std::optional<std::string> headerProblem(std::string_view name, std::string_view value);

    /// `text` as a log line may show it: control bytes and DEL written as \r, \n, \t, \0 or \xNN.
    static std::string escaped(std::string_view text);

    /// Whether `method` is one the request manager sends: GET, POST, PUT, PATCH or DELETE.
    static bool isSupportedMethod(std::string_view method);
};

}  // namespace vlmsdk::detail
