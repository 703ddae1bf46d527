#pragma once

#include <VLMSDKCoreKit/Mapping/VLMSDKAttributeMappingBlock.h>

namespace vlmsdk::detail {

/// Whether `block` hands text back as it is (the platform-identifier transform does): the mapper then
/// stores the text straight from the reply, sparing the copy the transform would return.
bool keepsTextAsItIs(const VLMSDKAttributeMappingBlock& block);

}  // namespace vlmsdk::detail
