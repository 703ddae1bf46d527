#pragma once

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKClass.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <string>

class VLMSDKReservation;
class VLMSDKReservationGuest;
class VLMSDKFolio;
class VLMSDKFolioDeliverableItem;
class VLMSDKPaymentTransaction;
class VLMSDKPayForReservationResult;

/// The tool's output documents keep their members in the order they were written.
using PMSJSON = nlohmann::ordered_json;

/// The records as the tool prints them with --json: one member per property, named as the property,
/// an absent value as null, dates as "YYYY-MM-DD", times as "YYYY-MM-DDTHH:MM:SSZ", a card id as PMSRedaction
/// shows it.
class PMSRecordJSON {
public:
    /// `value`, or null when it is absent.
    template <class T>
    static PMSJSON orNull(const std::optional<T>& value) {
        return value ? PMSJSON(*value) : PMSJSON(nullptr);
    }

    static PMSJSON reservation(const VLMSDKReservation& reservation);
    static PMSJSON guest(const VLMSDKReservationGuest& guest);
    static PMSJSON folio(const VLMSDKFolio& folio);
    static PMSJSON posting(const VLMSDKFolioDeliverableItem& posting);
    static PMSJSON transaction(const VLMSDKPaymentTransaction& transaction);
    /// {"paymentTransaction": ..., "reservation": ...}; a part the reply lacked is null.
    static PMSJSON payment(const VLMSDKPayForReservationResult& result);

    /// "HTTPStatus", "Transport", ...: the name of the error code as the errors library spells it.
    static std::string codeName(VLMErrorCode code);
    static std::string date(VLMSDKDate date);
    static std::string time(VLMSDKTime time);
};
