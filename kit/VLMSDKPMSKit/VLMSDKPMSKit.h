#pragma once

/// \file
/// Everything a host needs from the property-management kit: the kit entry, the eight reservation
/// operations on the API manager with their request descriptions and their future and coroutine forms, the
/// outbox that does them once even offline,
/// the records they deliver, the JSON key tables, and the core kit's main queue on which every completion
/// runs.

#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKCreateReservationRequestInfo.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKPayForReservationRequestInfo.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKRequestInfo.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKUpdateReservationMasterBillRequestInfo.h>
#include <VLMSDKPMSKit/Public/API/Responses/VLMSDKPayForReservationResult.h>
#include <VLMSDKPMSKit/Public/API/VLMSDKAPIManager+Reservation.h>
#include <VLMSDKPMSKit/Public/API/VLMSDKAsync.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolioDeliverableItem.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservationGuest.h>
#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutbox.h>
#include <VLMSDKPMSKit/Public/VLMSDKPMS.h>

#include <VLMSDKCoreKit/VLMSDKMainQueue.h>
