#pragma once

#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

namespace records_test {

/// printf's %p of `pointer`, as descriptions print a record's address.
inline std::string address(const void* pointer) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%p", pointer);
    return buffer;
}

/// The transform a mapping registered for `jsonKey`; throws when there is none, so a test fails loudly.
inline VLMSDKAttributeMappingBlock transformFor(const std::shared_ptr<const VLMSDKObjectMapping>& mapping,
                                               const std::string& jsonKey) {
    for (const auto& entry : mapping->entries()) {
        if (entry.jsonKey == jsonKey && entry.kind == VLMSDKObjectMapping::EntryKind::Transformed) {
            return entry.mappingBlock;
        }
    }
    throw std::logic_error("no transform registered for " + jsonKey);
}

}  // namespace records_test
