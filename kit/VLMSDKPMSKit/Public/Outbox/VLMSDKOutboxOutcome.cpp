#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutboxOutcome.h>

#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>
#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

namespace {

// The reply's member `member` (the whole reply when empty) as a Record, or nullptr.
template <class Record>
std::shared_ptr<Record> mapped(const VLMSDKJSON& reply, const char* member) {
    const VLMSDKJSON* json = &reply;
    if (*member) {
        if (!reply.is_object() || !reply.contains(member)) return nullptr;
        json = &reply[member];
    }
    if (!json->is_object()) return nullptr;
    return VLMSDKMapper::objectFromJSON(*json, Record::objectMapping())->template resultAs<Record>();
}

}  // namespace

std::shared_ptr<VLMSDKReservation> VLMSDKOutboxOutcome::reservation() const {
    return mapped<VLMSDKReservation>(reply, "reservation");
}

std::shared_ptr<VLMSDKFolio> VLMSDKOutboxOutcome::folio() const {
    return item.operation == VLMSDKOutboxOperation::Charge ? mapped<VLMSDKFolio>(reply, "") : nullptr;
}

std::shared_ptr<VLMSDKPayForReservationResult> VLMSDKOutboxOutcome::payment() const {
    if (item.operation != VLMSDKOutboxOperation::Pay || kind != Kind::Succeeded) return nullptr;
    return VLMSDKPayForReservationResult::initWithTransaction(mapped<VLMSDKPaymentTransaction>(reply, "transaction"),
                                                              reservation());
}
