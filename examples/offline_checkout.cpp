// A host that keeps working while the network is down: it hands a guest's mobile check-out to an outbox, which
// keeps it in a file until the service takes it, and learns the outcome on the main thread once the network is back.
//
//   offline_checkout OUTBOX_FILE BASE_URL TOKEN RESERVATION_ID
//
// Run it twice, as an app lives through a lost network. The first run finds no item for the reservation in the
// outbox: it enqueues the check-out (on disk once enqueueMobileCheckout returns) and, when the service cannot be
// reached within a few seconds, says so and exits 0: the item waits in the file. The next run finds the item, tells
// the outbox the network is back and waits for the outcome. Every attempt carries the idempotency key made when the
// item was enqueued, so the service checks the guest out once however often the item was sent. The program
// acknowledges an outcome once it has acted on it; one not acknowledged before a process ended is handed over again
// after the next open, marked `redelivered`.

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "usage: offline_checkout OUTBOX_FILE BASE_URL TOKEN RESERVATION_ID\n";
        return 2;
    }
    const std::string file = argv[1];
    const std::string reservation = argv[4];
    auto configuration = std::make_shared<VLMSDKConfiguration>();
    configuration->setKits({std::make_shared<const VLMSDKConfigurationKit>(VLMSDKPMS::classDescriptor())});
    VLMSDKPMS::enableWithConfiguration(configuration);

    // Once, at start-up: the outbox sends through the API manager's request manager and credentials.
    auto builder = std::make_shared<VLMSDKRequestBuilder>(argv[2]);
    builder->setAccessToken(std::string(argv[3]));
    VLMSDKOutboxOptions options;
    options.path = file;
    VLMErrorPtr error;
    const auto outbox =
        VLMSDKOutbox::open(VLMSDKAPIManager(builder, std::make_shared<VLMSDKHTTPRequestManager>()), options, &error);
    if (!outbox) {
        std::cerr << "offline_checkout: " << error->developerMessage() << "\n";  // held by another process, say
        return 2;
    }
    if (!outbox->recovery().empty()) std::cerr << "offline_checkout: " << outbox->recovery() << "\n";

    // The check-out an earlier run left: still pending, or ended with its outcome not acknowledged yet.
    std::optional<std::int64_t> item;
    for (const auto& pending : outbox->pending()) {
        if (pending.reservationID == reservation && pending.operation == VLMSDKOutboxOperation::MobileCheckout)
            item = pending.id;
    }
    for (const auto& ended : outbox->unacknowledged()) {
        if (ended.item.reservationID == reservation && ended.item.operation == VLMSDKOutboxOperation::MobileCheckout)
            item = ended.item.id;
    }
    const bool queuedNow = !item;
    if (queuedNow) {
        item = outbox->enqueueMobileCheckout(reservation, &error);
        if (!item) {
            std::cerr << "offline_checkout: " << error->developerMessage() << "\n";
            return 1;
        }
        std::cout << "Queued check-out of " << reservation << " as item " << *item << "\n";
    } else {
        // What a host calls when its platform says the network is back: items waiting out a backoff go now.
        outbox->networkRestored();
    }

    // Always on the main thread. Acknowledged here, once acted on, rather than when the handler returns: the
    // outcome is then forgotten for good before the program goes on.
    std::optional<VLMSDKOutboxOutcome> outcome;
    outbox->setAcknowledgesAfterHandler(false);
    outbox->setOutcomeHandler([&](const VLMSDKOutboxOutcome& ended) {
        if (ended.item.id == *item) outcome = ended;
        else std::cout << "Item " << ended.item.id << " ended too\n";  // a host would show it
        outbox->acknowledge(ended.item.id);
    });

    // A console program pumps the main queue; a UI program installs VLMSDKMainQueue::setExecutor instead. The
    // first run looks at the network briefly; the next waits as long as a screen would.
    const auto bound = queuedNow ? std::chrono::seconds(3) : std::chrono::seconds(30);
    if (!VLMSDKMainQueue::runUntil([&] { return outcome.has_value(); }, bound)) {
        if (queuedNow) {
            std::cout << "Offline: item " << *item << " waits in " << file << "\n";
            return 0;
        }
        std::cerr << "offline_checkout: no outcome for item " << *item << " within 30 s; it still waits in " << file
                  << "\n";
        return 3;
    }
    if (outcome->kind != VLMSDKOutboxOutcome::Kind::Succeeded) {
        std::cerr << "offline_checkout: item " << *item << ": "
                  << (outcome->error ? outcome->error->developerMessage() : std::string("cancelled, never sent")) << "\n";
        return 1;
    }
    std::cout << "Checked out " << reservation << " (item " << *item << ")"
              << (outcome->redelivered ? ", handed over again after an earlier run ended" : "") << "\n";
    return 0;
}
