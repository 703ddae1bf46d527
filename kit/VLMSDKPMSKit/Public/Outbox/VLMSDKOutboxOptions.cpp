#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutboxOptions.h>

const char* VLMSDKOutboxOperationName(VLMSDKOutboxOperation operation) {
    switch (operation) {
    case VLMSDKOutboxOperation::Confirm: return "confirm";
    case VLMSDKOutboxOperation::MobileCheckin: return "checkin";
    case VLMSDKOutboxOperation::MobileCheckout: return "checkout";
    case VLMSDKOutboxOperation::Pay: return "pay";
    case VLMSDKOutboxOperation::Charge: return "charge";
    }
    return "unknown";
}
