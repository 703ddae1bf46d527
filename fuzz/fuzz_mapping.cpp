// Reply JSON from anywhere into each record: the reader bounds it, the mapping gives a record or an
// error (never neither), and a record describes itself.
#include "FuzzOperations.h"

#include <JSON/VLMSDKJSONReader.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>
#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    static vlmsdk::detail::VLMSDKJSONReader reader;
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    auto read = reader.read(text);
    if (read.failure != vlmsdk::detail::VLMSDKJSONReader::Failure::None) return 0;

    std::shared_ptr<const VLMSDKObjectMapping> mapping;
    switch (data[0] % 5) {
    case 0: mapping = VLMSDKReservation::objectMapping(); break;
    case 1: mapping = VLMSDKReservationGuest::objectMapping(); break;
    case 2: mapping = VLMSDKFolio::objectMapping(); break;
    case 3: mapping = VLMSDKFolioDeliverableItem::objectMapping(); break;
    default: mapping = VLMSDKPaymentTransaction::objectMapping(); break;
    }
    const auto mapped = VLMSDKMapper::objectFromJSON(read.json, mapping);
    fuzzRequire(static_cast<bool>(mapped->result()) != static_cast<bool>(mapped->error()));
    if (mapped->result()) (void)mapped->result()->description();
    return 0;
}
