#include "PMSFailureExplainer.h"

#include "PMSOperationRunner.h"
#include "PMSOutputPrinter.h"

#include <utility>

namespace {

bool mentions(const std::string& text, const char* word) { return text.find(word) != std::string::npos; }

}  // namespace

PMSFailureExplainer::PMSFailureExplainer(const PMSOperationRunner& runner, std::string serviceURL)
    : runner_(runner), serviceURL_(std::move(serviceURL)) {}

PMSFailure PMSFailureExplainer::explain(const std::string& operation, VLMErrorPtr error,
                                        const std::optional<std::string>& reservationID) const {
    const std::string& message = error->developerMessage();
    std::string hint;
    std::optional<std::string> status;
    switch (error->code()) {
    case VLMErrorCode::Transport:
        if (mentions(message, "may have acted")) {
            // The service is there and may have done it: sending it again could do it twice.
            const std::string id = reservationID.value_or("ID");
            hint = "Before sending it again, look with 'vlmsdk-pms folio " + id + "' or 'vlmsdk-pms fetch " + id + "'.";
        } else if (mentions(message, "host name") || mentions(message, "subject name")) {
            // A trusted certificate for another name: no CA file helps, the address must name the service.
            hint = "The service's certificate is not for the host in " + serviceURL_ +
                   ": give --base-url (or VLMSDK_PMS_BASE_URL) with the host name its certificate names.";
        } else if (mentions(message, "SSL") || mentions(message, "certificate")) {
            hint = "For a service whose certificate comes from its own authority, give that authority's "
                   "certificate with --ca-file (or VLMSDK_PMS_CA_FILE).";
        } else if (mentions(message, "could not connect") || mentions(message, "could not be resolved")) {
            hint = "Is a reservation service running at " + serviceURL_ +
                   "? Check --base-url (or VLMSDK_PMS_BASE_URL), or start the local one with: vlmsdk-pms sandbox start.";
        } else {
            // The service is there: the exchange broke off.
            hint = "The connection to " + serviceURL_ + " broke off before a whole answer came; -v shows the exchange.";
        }
        break;
    case VLMErrorCode::Timeout:
        hint = "No answer came from " + serviceURL_ + " in time: is the service running and reachable there? " +
               "--timeout sets how long to wait.";
        break;
    case VLMErrorCode::Authentication:
        // A token the tool fetched (from the local service) was refused, or none could be fetched.
        hint = "No token the service takes could be had: check that the local service runs, or give one with --token "
               "(or VLMSDK_PMS_TOKEN).";
        break;
    case VLMErrorCode::HTTPStatus:
        switch (error->httpStatusCode().value_or(0)) {
        case 401:
            hint = "Check the bearer token: give the service's own with --token (or VLMSDK_PMS_TOKEN).";
            break;
        case 404:
            if (reservationID) hint = "Check the reservation id '" + *reservationID + "' and the base URL.";
            else if (operation == "create")
                hint = "Check --confirmation, --venue and --last-name: together they name one booking.";
            break;
        case 409:
            if (!reservationID) break;
            if (auto now = runner_.fetchReservation(*reservationID); now.succeeded()) {
                hint = "Reservation " + *reservationID + " is " +
                       PMSOutputPrinter::stateText(*now.result) + ".";
                status = now.result->statusStringRepresentation();
            }
            break;
        default: break;
        }
        break;
    default: break;
    }
    return PMSFailure(operation, std::move(error), std::move(hint), reservationID, std::move(status));
}
