#pragma once

#include "PMSChargeItem.h"

#include <VLMSDKPMSKit/Public/API/Responses/VLMSDKPayForReservationResult.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKAPIManager.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// What one operation delivered: its result, or the error that stopped it.
template <class Result>
struct PMSOutcome {
    Result result{};
    VLMErrorPtr error;

    bool succeeded() const { return error == nullptr; }
};

/// Runs the kit's reservation operations one at a time, the way a console host does: the operation is
/// started, then the main thread pumps VLMSDKMainQueue until the completion has run or the time is up.
/// Main thread only.
class PMSOperationRunner {
public:
    /// The domain of the errors the tool makes itself (an operation that never answered, a demo step).
    static constexpr const char* kErrorDomain = "com.velmora.tools.vlmsdk-pms";
    /// How long past the operation's own timeout the tool waits for its completion: the transport enforces the
    /// same limit, and this margin lets its own, more precise, error arrive first.
    static constexpr std::chrono::milliseconds kDeliveryGrace{std::chrono::seconds(5)};

    PMSOperationRunner(const VLMSDKAPIManager& manager, std::chrono::milliseconds timeout);

    PMSOutcome<std::shared_ptr<VLMSDKReservation>> createReservation(const std::string& confirmationNumber,
                                                                     const std::string& venueID,
                                                                     const std::string& lastName) const;
    PMSOutcome<std::shared_ptr<VLMSDKReservation>> fetchReservation(const std::string& reservationID) const;
    PMSOutcome<std::shared_ptr<VLMSDKReservation>> confirmReservation(const std::string& reservationID,
                                                                      bool notifyAboutMobileCheckinOpen) const;
    PMSOutcome<std::shared_ptr<VLMSDKReservation>> checkin(const std::string& reservationID) const;
    PMSOutcome<bool> checkout(const std::string& reservationID) const;
    PMSOutcome<std::shared_ptr<VLMSDKPayForReservationResult>> pay(const std::string& reservationID,
                                                                    const std::string& creditCardID, double amount,
                                                                    const std::string& currencyCode) const;
    PMSOutcome<std::shared_ptr<VLMSDKFolio>> fetchFolio(const std::string& reservationID) const;
    PMSOutcome<std::shared_ptr<VLMSDKFolio>> charge(const std::string& reservationID,
                                                    const std::vector<PMSChargeItem>& items) const;

private:
    template <class Result, class Start>
    PMSOutcome<Result> await(const char* operation, Start start) const;

    const VLMSDKAPIManager& manager_;
    std::chrono::milliseconds timeout_;
};
