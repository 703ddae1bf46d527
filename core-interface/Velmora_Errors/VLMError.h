#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <memory>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// \file
/// The SDK's errors: the error type, its codes and its domains.

class VLMError;

/// The one error handle used everywhere: shared, immutable, absent as nullptr.
using VLMErrorPtr = std::shared_ptr<const VLMError>;

/// What went wrong, in broad kinds; `domain()` says which library made the error.
enum class VLMErrorCode : int {
    /// no other code fits
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
    /// Everything an error holds; the factories fill it in.
    struct Details {
        /// The library that made the error (one of the domains below).
        std::string domain;
        /// What went wrong, in broad kinds.
        VLMErrorCode code = VLMErrorCode::Unknown;
        /// For logs and developers: what failed, in the SDK's words.
        std::string developerMessage;
        /// Fit to show a user; the error's constructor puts a generic sentence for the code in an empty one.
        std::string userMessage;
        std::optional<std::string> argumentName;   ///< required-argument errors: the argument at fault
        std::optional<long> httpStatusCode;        ///< errors made from an HTTP reply
        std::optional<std::string> serverMessage;  ///< the server's own message, when its reply had one
        /// The service's id of the request a reply answered (its `X-Request-Id`), when the reply had one: what a
        /// service team asks for first in a support ticket.
        std::optional<std::string> requestID;
        std::string functionName;                  ///< where the error was made
        /// The source file the error was made in.
        std::string fileName;
        /// The error this one wraps, or nullptr.
        VLMErrorPtr underlyingError;
    };

    /// The error `details` describe; an empty user message becomes the generic sentence for the code.
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

    /// The error's details, one by one (see Details).
    ///@{
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
    ///@}

    /// "domain code: developer message", for logs.
    std::string description() const;

private:
    Details details_;
};

/// Domains of the errors this SDK makes.
///@{
/// Required-argument errors.
inline constexpr const char* kVLMErrorDomain = "com.velmora.errors";
/// Errors of sending a request and getting its answer: the request builder's, the request manager's and the
/// credentials'.
inline constexpr const char* kVLMSDKNetworkErrorDomain = "com.velmora.sdk.network";
/// Replies judged unusable: a status outside 2xx, a body that is not JSON or lacks a key.
inline constexpr const char* kVLMSDKResponseErrorDomain = "com.velmora.sdk.response";
/// Replies that could not be turned into records.
inline constexpr const char* kVLMSDKMappingErrorDomain = "com.velmora.sdk.mapping";
/// Archives that could not be written or read.
inline constexpr const char* kVLMSDKArchiveErrorDomain = "com.velmora.sdk.archive";
///@}

VLMSDK_API_END
