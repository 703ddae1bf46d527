// Request descriptions filled from fuzz input: one that passes its check is either sent with a body that
// says exactly what it holds, or refused with an error; one that fails its check sends nothing. Every
// operation completes once.
#include "FuzzOperations.h"
#include "FuzzRequestManager.h"

#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <optional>
#include <string>

namespace {

std::optional<std::string> text(FuzzedDataProvider& input) {
    if (input.ConsumeBool()) return std::nullopt;
    return input.ConsumeRandomLengthString(24);
}

std::optional<double> number(FuzzedDataProvider& input) {
    if (input.ConsumeBool()) return std::nullopt;
    return input.ConsumeFloatingPoint<double>();
}

// The body that went out, parsed; nullopt when nothing was sent.
std::optional<VLMSDKJSON> sentBody(const FuzzRequestManager& manager) {
    if (manager.requestCount() == 0) return std::nullopt;
    const auto& request = manager.lastRequest();
    fuzzRequire(request && request->body());
    return VLMSDKJSON::parse(*request->body());
}

// A JSON number read back as the double it was written from.
bool says(const VLMSDKJSON& json, const char* key, double value) {
    return json.contains(key) && json[key].is_number() && json[key].get<double>() == value;
}

bool says(const VLMSDKJSON& json, const char* key, const std::optional<std::string>& value) {
    if (!value) return !json.contains(key);
    return json.contains(key) && json[key] == *value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    static const auto manager = std::make_shared<FuzzRequestManager>();
    static const VLMSDKAPIManager api(std::make_shared<VLMSDKRequestBuilder>("http://127.0.0.1:1/"), manager);
    manager->forget();
    FuzzOutcome outcome;
    VLMErrorPtr invalid;

    switch (input.ConsumeIntegralInRange(0, 2)) {
    case 0: {
        auto request = std::make_shared<VLMSDKCreateReservationRequestInfo>();
        request->setExternalReservationID(text(input));
        request->setVenueVelmoraID(text(input));
        request->setReservationistLastName(text(input));
        const bool valid = request->isValid(&invalid);
        createReservationWithRequest(api, request,
                                     [&](auto, VLMErrorPtr error) {
            ++outcome.completions;
            outcome.error = std::move(error);
        });
        const auto body = sentBody(*manager);
        fuzzRequire(valid || !body);
        if (body) {
            fuzzRequire(body->size() == 3 && says(*body, "confirmation_id", request->externalReservationID()) &&
                        says(*body, "venue_id", request->venueVelmoraID()) &&
                        says(*body, "last_name", request->reservationistLastName()));
        }
        break;
    }
    case 1: {
        auto request = std::make_shared<VLMSDKPayForReservationRequestInfo>();
        request->setReservationID(text(input));
        request->setCreditCardID(text(input));
        request->setAmount(number(input));
        request->setCurrencyCode(text(input));
        const bool valid = request->isValid(&invalid);
        payForReservationWithRequest(api, request,
                                     [&](auto, VLMErrorPtr error) {
            ++outcome.completions;
            outcome.error = std::move(error);
        });
        const auto body = sentBody(*manager);
        fuzzRequire(valid || !body);
        if (body) {
            fuzzRequire(body->size() == 3 && says(*body, "credit_card_id", request->creditCardID()) &&
                        says(*body, "amount", *request->amount()) && says(*body, "currency", request->currencyCode()));
        }
        break;
    }
    default: {
        auto request = std::make_shared<VLMSDKUpdateReservationMasterBillRequestInfo>();
        request->setReservationID(text(input));
        VLMSDKUpdateReservationMasterBillRequestInfo::Deliverables items;
        const int count = input.ConsumeIntegralInRange(0, 4);
        for (int i = 0; i < count; ++i) {
            auto item = std::make_shared<VLMSDKDeliverableCountableItem>();
            item->setItemID(text(input));
            item->setCount(number(input));
            items.push_back(std::move(item));
        }
        request->setVelmoraDeliverables(items);
        const bool valid = request->isValid(&invalid);
        updateReservationMasterBillWithRequest(api, request,
                                               [&](auto, VLMErrorPtr error) {
            ++outcome.completions;
            outcome.error = std::move(error);
        });
        const auto body = sentBody(*manager);
        fuzzRequire(valid || !body);
        if (body) {
            const auto& sent = body->at("deliverable_items");
            fuzzRequire(body->size() == 1 && sent.size() == items.size());
            for (std::size_t i = 0; i < items.size(); ++i) {
                fuzzRequire(says(sent[i], "item_id", items[i]->itemID()));
                fuzzRequire(items[i]->count() ? says(sent[i], "quantity", *items[i]->count()) : !sent[i].contains("quantity"));
            }
        }
        break;
    }
    }
    // Every operation completes once; one that sent nothing says why.
    fuzzRequire(outcome.completions == 1);
    if (manager->requestCount() == 0) fuzzRequire(outcome.error != nullptr);
    return 0;
}
