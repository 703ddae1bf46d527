#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/Archiving/VLMSDKCoding.h>
#include <VLMSDKCoreKit/VLMSDKRootObject.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

VLMSDK_API_BEGIN

class VLMSDKClass;
class VLMSDKKeyedArchiver;
class VLMSDKKeyedUnarchiver;
class VLMSDKObjectMapping;

/// One guest named on a reservation. A plain value holder: mapped from reply JSON and archivable. It has
/// no platform identifier. A new guest has every property absent.
class VLMSDKReservationGuest : public VLMSDKRootObject, public VLMSDKCoding {
public:
    VLMSDKReservationGuest() = default;

    /// The guest's first name.
    ///@{
    const std::optional<std::string>& firstName() const { return firstName_; }
    void setFirstName(std::optional<std::string> firstName) { firstName_ = std::move(firstName); }
    ///@}
    /// The guest's last name.
    ///@{
    const std::optional<std::string>& lastName() const { return lastName_; }
    void setLastName(std::optional<std::string> lastName) { lastName_ = std::move(lastName); }
    ///@}
    /// The guest's profile code in the hotel's system.
    ///@{
    const std::optional<std::string>& profileCode() const { return profileCode_; }
    void setProfileCode(std::optional<std::string> profileCode) { profileCode_ = std::move(profileCode); }
    ///@}

    /// This class's descriptor (see VLMSDKClass).
    static const VLMSDKClass& classDescriptor();
    const VLMSDKClass& objectClass() const override;

    /// "VLMSDKReservationGuest 0x...; firstName ...; lastName ...; profileCode ...".
    std::string description() const override;

    /// How a guest object of a reply becomes a guest; built once, the same object on every call.
    static std::shared_ptr<const VLMSDKObjectMapping> objectMapping();

    /// The archived properties: firstName, lastName, profileCode. Built once, the same list on every call.
    static const std::vector<std::string>& encodingProperties();
    void encodeWithCoder(VLMSDKKeyedArchiver& coder) const override;
    /// Always restores a plain guest, whatever class wrote the archive; nullptr when the archive fails.
    static std::shared_ptr<VLMSDKReservationGuest> initWithCoder(VLMSDKKeyedUnarchiver& coder);

    /// The guest as archive bytes; empty, with an error, on failure.
    std::vector<std::uint8_t> archivedData(VLMErrorPtr* error) const;
    /// The guest archived in `data`; nullptr, with an error, when the bytes are damaged or hold another class.
    static std::shared_ptr<VLMSDKReservationGuest> unarchivedFromData(std::span<const std::uint8_t> data,
                                                                      VLMErrorPtr* error);

private:
    std::optional<std::string> firstName_;
    std::optional<std::string> lastName_;
    std::optional<std::string> profileCode_;
};

VLMSDK_API_END
