#pragma once

#include "PMSFailure.h"

#include <optional>
#include <string>

class PMSOperationRunner;

/// Turns an operation's error into the failure the tool reports, with a hint where one helps: the token
/// for 401, the identifier for 404, the reservation's present state for 409 (read from the service once),
/// whether the service runs for a connection that failed or timed out, the CA file for a certificate refused.
class PMSFailureExplainer {
public:
    /// `serviceURL` as it may be shown (no password).
    PMSFailureExplainer(const PMSOperationRunner& runner, std::string serviceURL);

    PMSFailure explain(const std::string& operation, VLMErrorPtr error,
                       const std::optional<std::string>& reservationID = std::nullopt) const;

private:
    const PMSOperationRunner& runner_;
    std::string serviceURL_;
};
