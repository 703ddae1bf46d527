// Archived bytes from anywhere: decoding never crashes, a failure always says why, and what decodes
// archives again to bytes that decode to the same.
#include "FuzzOperations.h"

#include <cstdint>
#include <span>

namespace {

template <class Record>
void roundTrip(std::span<const std::uint8_t> bytes) {
    VLMErrorPtr error;
    const auto record = Record::unarchivedFromData(bytes, &error);
    fuzzRequire(record || error);
    if (!record) return;
    (void)record->description();
    VLMErrorPtr again;
    const auto archived = record->archivedData(&again);
    fuzzRequire(!archived.empty() || again);
    if (archived.empty()) return;
    const auto restored = Record::unarchivedFromData(archived, &again);
    fuzzRequire(restored != nullptr);
    fuzzRequire(restored->archivedData(&again) == archived);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::span<const std::uint8_t> bytes(data + 1, size - 1);
    if (data[0] & 1) {
        roundTrip<VLMSDKReservation>(bytes);
    } else {
        roundTrip<VLMSDKReservationGuest>(bytes);
    }
    return 0;
}
