#pragma once

#include "PMSRecordJSON.h"

#include <Velmora_Errors/VLMError.h>

#include <optional>
#include <string>

/// One failed operation as the tool reports it, once: what failed, the HTTP status and the server's message
/// when there is one, and a hint at what to do about it.
class PMSFailure {
public:
    PMSFailure(std::string operation, VLMErrorPtr error, std::string hint = {},
               std::optional<std::string> reservationID = std::nullopt,
               std::optional<std::string> reservationStatus = std::nullopt);

    const std::string& operation() const { return operation_; }
    const VLMError& error() const { return *error_; }
    const std::string& hint() const { return hint_; }

    /// "vlmsdk-pms: checkin failed: HTTP 409: <server message>. Reservation rsv_0003 is in house. (request id
    /// req_1)", the request id when the reply had one. Text that came from the server is escaped and cut
    /// (PMSShownText).
    std::string line() const;
    /// What line() says failed, ending with a period: "HTTP 409: <server message>." or the error's message.
    std::string cause() const;
    /// {"error": {"operation", "code", "message", "httpStatus", "serverMessage", "requestID", "hint",
    /// "reservationID", "reservationStatus"}}, absent parts null, texts cut as in line().
    PMSJSON document() const;

private:
    std::string operation_;
    VLMErrorPtr error_;
    std::string hint_;
    std::optional<std::string> reservationID_;
    std::optional<std::string> reservationStatus_;
};
