// Reply JSON from anywhere into each record: the reader bounds it, the mapping gives a record or an
// error (never neither), a record describes itself, and mapping the reply in place gives what mapping its
// JSON value gives (the same record, or the same error text).
#include "FuzzOperations.h"

#include <JSON/VLMSDKJSONReader.h>
#include <VLMSDKCoreKit/Archiving/VLMSDKKeyedArchiver.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>
#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    static vlmsdk::detail::VLMSDKJSONReader reader;
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    auto read = reader.read(text);
    if (!read.reply) return 0;

    std::shared_ptr<const VLMSDKObjectMapping> mapping;
    switch (data[0] % 5) {
    case 0: mapping = VLMSDKReservation::objectMapping(); break;
    case 1: mapping = VLMSDKReservationGuest::objectMapping(); break;
    case 2: mapping = VLMSDKFolio::objectMapping(); break;
    case 3: mapping = VLMSDKFolioDeliverableItem::objectMapping(); break;
    default: mapping = VLMSDKPaymentTransaction::objectMapping(); break;
    }
    const auto mapped = VLMSDKMapper::objectFromReply(*read.reply, mapping);
    fuzzRequire(static_cast<bool>(mapped->result()) != static_cast<bool>(mapped->error()));
    if (mapped->result()) (void)mapped->result()->description();

    const auto fromValue = VLMSDKMapper::objectFromJSON(read.reply->json(), mapping);
    const auto outcome = [](const VLMSDKMappingResult& result) {
        if (!result.result()) return result.error()->developerMessage();
        VLMSDKKeyedArchiver archiver;
        const auto bytes = archiver.archiveRootObject(*result.result());
        return std::string(bytes.begin(), bytes.end());
    };
    fuzzRequire(outcome(*mapped) == outcome(*fromValue));
    return 0;
}
