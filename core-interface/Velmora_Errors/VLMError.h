#pragma once

#include <memory>
#include <optional>
#include <string>

class VLMError;

/// The one error handle used everywhere: shared, immutable, absent as nullptr.
using VLMErrorPtr = std::shared_ptr<const VLMError>;

/// What went wrong, in broad kinds; `domain()` says which library made the error.
enum class VLMErrorCode : int {
    Unknown = 0,
    RequiredArgument = 1,   ///< an argument or property that must be present is absent or invalid
    Transport = 100,        ///< the request never got an HTTP answer (refused, reset, DNS, TLS)
    Timeout = 101,          ///< a connect or whole-request time limit ran out
    Cancelled = 102,        ///< the host cancelled the request (VLMSDKCancellation), or the request manager shut down
    InvalidRequest = 103,   ///< the request could not be built (bad URL, path or body)
    ReplyTooLarge = 104,    ///< the reply body was over the size limit
    Authentication = 105,   ///< no token could be had: the credentials provider failed or gave an unusable one
    HTTPStatus = 200,       ///< the server answered with a status outside 2xx
    InvalidResponse = 201,  ///< the reply body is not JSON, or not a JSON object
    MissingRequiredKey = 202, ///< the reply object lacks a key the operation needs
    ReplyMismatch = 203,    ///< the reply is about something other than what was asked (another reservation)
    Mapping = 300,          ///< reply JSON could not be turned into a record
    Archive = 400,          ///< archived bytes could not be read or written
};

/// An error of the SDK: a developer message for logs, a message fit to show a user, and where it was made.
///
/// Errors are immutable values; every factory returns a new one. Thread-safe to share.
class VLMError {
public:
    struct Details {
        std::string domain;
        VLMErrorCode code = VLMErrorCode::Unknown;
        std::string developerMessage;
        std::string userMessage;
        std::optional<std::string> argumentName;   ///< required-argument errors: the argument at fault
        std::optional<long> httpStatusCode;        ///< errors made from an HTTP reply
        std::optional<std::string> serverMessage;  ///< the server's own message, when its reply had one
        /// The service's id of the request a reply answered (its `X-Request-Id`), when the reply had one: what a
        /// service team asks for first in a support ticket.
        std::optional<std::string> requestID;
        std::string functionName;                  ///< where the error was made
        std::string fileName;
        VLMErrorPtr underlyingError;
    };

    explicit VLMError(Details details);

    /// An error saying that the argument (or property) `name` is missing or invalid.
    static VLMErrorPtr requiredArgumentErrorWithName(const std::string& name,
                                                     const std::optional<std::string>& message,
                                                     const char* functionName, const char* fileName);

    /// A general error of `code` in `domain`; `userMessage` defaults to a generic sentence for the code.
    static VLMErrorPtr errorWithCode(VLMErrorCode code, std::string domain, std::string developerMessage,
                                     const char* functionName, const char* fileName,
                                     std::optional<std::string> userMessage = std::nullopt);

    /// `error` with `requestID` added (nullptr stays nullptr); `error` itself when it has one already.
    static VLMErrorPtr withRequestID(const VLMErrorPtr& error, std::string requestID);

    const std::string& domain() const { return details_.domain; }
    VLMErrorCode code() const { return details_.code; }
    const std::string& developerMessage() const { return details_.developerMessage; }
    const std::string& userMessage() const { return details_.userMessage; }
    const std::optional<std::string>& argumentName() const { return details_.argumentName; }
    const std::optional<long>& httpStatusCode() const { return details_.httpStatusCode; }
    const std::optional<std::string>& serverMessage() const { return details_.serverMessage; }
    const std::optional<std::string>& requestID() const { return details_.requestID; }
    const std::string& functionName() const { return details_.functionName; }
    const std::string& fileName() const { return details_.fileName; }
    const VLMErrorPtr& underlyingError() const { return details_.underlyingError; }
    const Details& details() const { return details_; }

    /// "domain code: developer message", for logs.
    std::string description() const;

private:
    Details details_;
};

/// Domains of the errors this SDK makes.
inline constexpr const char* kVLMErrorDomain = "com.velmora.errors";
inline constexpr const char* kVLMSDKNetworkErrorDomain = "com.velmora.sdk.network";
inline constexpr const char* kVLMSDKResponseErrorDomain = "com.velmora.sdk.response";
inline constexpr const char* kVLMSDKMappingErrorDomain = "com.velmora.sdk.mapping";
inline constexpr const char* kVLMSDKArchiveErrorDomain = "com.velmora.sdk.archive";
