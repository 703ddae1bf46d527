// The reservation's JSON mapping and the kit's not-synced amount transform.

#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKCurrencyMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKDateMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKVelmoraIDMapping.h>
#include <VLMSDKPMSKit/Private/API/VLMSDKPMSAPIJSONKeyes.h>
#include <VLMSDKPMSKit/Private/Models/VLMSDKDecimalText.h>

#include <cstddef>
#include <map>
#include <string>
#include <utility>

namespace {

// The service sends the not-yet-synchronised amount with either sign; the record keeps its magnitude.
// The input is read as a number without a type test: a number as its value, text as its leading decimal
// number (0 when none), and any other kind as 0. A positive value hands the input on untouched, text
// included (the mapper then reads the text); anything else (0, negative, NaN) comes back as a number with
// its sign flipped, so 0 becomes -0 and NaN stays NaN. JSON null passes through and leaves the amount absent.
VLMSDKMappedValue notSyncedAmountTransform(const VLMSDKJSON& value) {
    try {
        if (value.is_null()) return VLMSDKMappedValue(std::in_place_type<VLMSDKJSON>, value);
        double amount = 0.0;
        if (value.is_number()) {
            amount = value.get<double>();
        } else if (value.is_string()) {
            amount = vlmsdk::detail::leadingDecimalValue(value.get_ref<const std::string&>());
        }
        if (amount > 0) return VLMSDKMappedValue(std::in_place_type<VLMSDKJSON>, value);
        return VLMSDKMappedValue(std::in_place_type<VLMSDKJSON>, -amount);
    } catch (const std::exception& exception) {
        VLMErrorPtr error =
            VLMError::errorWithCode(VLMErrorCode::Mapping, kVLMSDKMappingErrorDomain,
                                    std::string("Could not read the not-synced amount: ") + exception.what(),
                                    __func__, __FILE__);
        return VLMSDKMappedValue(std::in_place_type<VLMErrorPtr>, std::move(error));
    }
}

}  // namespace

std::shared_ptr<const VLMSDKObjectMapping> VLMSDKReservation::objectMapping() {
    static const std::shared_ptr<const VLMSDKObjectMapping> shared = [] {
        const auto& keys = VLMSDKReservationJSONKeyes;
        std::shared_ptr<VLMSDKObjectMapping> mapping = VLMSDKObjectMapping::mappingForClass(classDescriptor());
        addVelmoraIDMapping(*mapping);

        constexpr std::size_t plainCount = 9;
        const char* const plainKeys[plainCount] = {
            keys.confirmationID, keys.reservationNumber, keys.totalStayAmount,
            keys.clientNumber,   keys.roomNumber,        keys.checkinIsAvailable,
            keys.reservationInfo, keys.outstandingAmount, keys.status,
        };
        const char* const plainProperties[plainCount] = {
            "externalReservationID", "internalReservationID", "totalStayPriceAmount",
            "clientSideID",          "roomNumber",            "mobileCheckinOpen",
            "reservationInfo",       "remainPriceAmountToPay", "statusStringRepresentation",
        };
        std::map<std::string, std::string> plain;
        for (std::size_t i = 0; i < plainCount; ++i) plain.emplace(plainKeys[i], plainProperties[i]);
        mapping->mapJSONKeysToThePropertyKeys(plain);

        // Each entry gets a transform of its own from its provider.
        mapping->mapJSONKey(keys.currencyCode, "priceCurrencyCode",
                            VLMSDKCurrencyMapping::currencyAttributeMappingBlock());
        mapping->mapJSONKey(keys.checkinDate, "checkinDate", VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock());
        mapping->mapJSONKey(keys.checkoutDate, "checkoutDate", VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock());
        mapping->mapJSONKey(keys.notSyncedAmount, "notSyncedPaidPriceAmount", &notSyncedAmountTransform);
        mapping->mapJSONKey(keys.userID, "guestVelmoraID", VLMSDKVelmoraIDMapping::velmoraIDAttributeMappingBlock());
        mapping->mapJSONKey(keys.checkinID, "checkinVelmoraID",
                            VLMSDKVelmoraIDMapping::velmoraIDAttributeMappingBlock());
        mapping->mapJSONKey(keys.venueID, "venueVelmoraID", VLMSDKVelmoraIDMapping::velmoraIDAttributeMappingBlock());

        mapping->mapHasManyRelationshipOfClass(VLMSDKReservationGuest::classDescriptor(), keys.guests, "guests");
        return std::shared_ptr<const VLMSDKObjectMapping>(std::move(mapping));
    }();
    return shared;
}
