#include "StayViewModel.h"

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

StayViewModel::StayViewModel(const VLMSDKAPIManager& api) : api_(api.withCancellation(scope_.cancellation())) {}

void StayViewModel::load(const std::string& reservationID) {
    *line_ = "Loading your stay...";
    fetchReservationWithID(api_, reservationID, [line = line_](std::shared_ptr<VLMSDKReservation> reservation,
                                                                VLMErrorPtr error) {
        if (error) {
            // The message the service gave, or the kit's words fit for a guest.
            *line = "Could not load your stay: " + error->userMessage();
            return;
        }
        switch (reservation->status()) {
        case VLMSDKReservationStatusInHouse:
            *line = "Checked in: room " + reservation->roomNumber().value_or("?");
            break;
        case VLMSDKReservationStatusReserved: *line = "Booked, not checked in yet"; break;
        case VLMSDKReservationStatusCheckedOut: *line = "Checked out"; break;
        default: *line = "Your stay's status is not known yet"; break;
        }
    });
}
