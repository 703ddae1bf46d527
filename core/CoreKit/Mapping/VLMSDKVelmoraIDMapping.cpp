#include <VLMSDKCoreKit/Mapping/VLMSDKVelmoraIDMapping.h>

#include "VLMSDKTextTransforms.h"

#include <string>

namespace {

VLMSDKMappedValue velmoraID(const VLMSDKJSON& value) {
    if (value.is_string()) return value;
    if (value.is_number_unsigned()) return VLMSDKJSON(std::to_string(value.get<VLMSDKJSON::number_unsigned_t>()));
    if (value.is_number_integer()) return VLMSDKJSON(std::to_string(value.get<VLMSDKJSON::number_integer_t>()));
    // A float is refused: its decimal text is not a stable identifier.
    return VLMError::errorWithCode(VLMErrorCode::Mapping, kVLMSDKMappingErrorDomain,
                                   std::string("an identifier must be text or an integer, not ") +
                                       (value.is_number_float() ? "a fractional number" : value.type_name()),
                                   __func__, __FILE__);
}

}  // namespace

VLMSDKAttributeMappingBlock VLMSDKVelmoraIDMapping::velmoraIDAttributeMappingBlock() { return &velmoraID; }

namespace vlmsdk::detail {

bool keepsTextAsItIs(const VLMSDKAttributeMappingBlock& block) {
    const auto* function = block.target<VLMSDKMappedValue (*)(const VLMSDKJSON&)>();
    return function && *function == &velmoraID;
}

}  // namespace vlmsdk::detail
