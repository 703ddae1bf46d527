// The kit on an Asio io_context, with the coroutine form:  asio_host BASE_URL TOKEN RESERVATION_ID
//
// The main queue is plugged into an io_context run by the main thread. One coroutine fetches the
// reservation and then its folio, printing each; the context runs out of work when the coroutine ends.

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <asio.hpp>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

namespace {

using WorkGuard = asio::executor_work_guard<asio::io_context::executor_type>;

// The guard, held in the coroutine's frame, keeps the context running while the coroutine waits.
VLMSDKTask showStay(VLMSDKAPIManager api, std::string reservationID, [[maybe_unused]] WorkGuard work,
                    int* status) {
    // Each co_await resumes on the main thread, in a handler of the io_context.
    const auto reservation = co_await VLMSDKAwait(fetchReservationWithID, api, reservationID);
    if (!reservation) {
        std::fprintf(stderr, "fetch reservation failed: %s\n", reservation.error()->developerMessage().c_str());
        *status = 1;
        co_return;
    }
    std::printf("Reservation %s: status %s, room %s, %zu guest(s)\n",
                reservation.value()->velmoraID().value_or("?").c_str(),
                reservation.value()->statusStringRepresentation().value_or("?").c_str(),
                reservation.value()->roomNumber().value_or("-").c_str(), reservation.value()->guests().size());

    const auto folio = co_await VLMSDKAwait(fetchReservationMasterBill, api, reservationID);
    if (!folio) {
        std::fprintf(stderr, "fetch folio failed: %s\n", folio.error()->developerMessage().c_str());
        *status = 1;
        co_return;
    }
    std::printf("Folio %s: %zu posting(s), %.2f %s outstanding\n", folio.value()->folioID().value_or("?").c_str(),
                folio.value()->deliverables().size(), folio.value()->outstandingAmount().value_or(0.0),
                folio.value()->paymentCurrency().value_or("").c_str());
    *status = 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: asio_host BASE_URL TOKEN RESERVATION_ID\n");
        return 2;
    }
    asio::io_context io;

    auto configuration = std::make_shared<VLMSDKConfiguration>();
    configuration->setKits({std::make_shared<const VLMSDKConfigurationKit>(VLMSDKPMS::classDescriptor())});
    VLMSDKPMS::enableWithConfiguration(configuration);

    // Each task of the main queue becomes a handler of the context; asio::post may be called from any thread.
    VLMSDKMainQueue::setExecutor([&io](VLMSDKMainQueue::Task task) { asio::post(io, std::move(task)); });

    auto builder = std::make_shared<VLMSDKRequestBuilder>(argv[1]);
    builder->setAccessToken(std::string(argv[2]));
    auto requestManager = std::make_shared<VLMSDKHTTPRequestManager>();
    const VLMSDKAPIManager api(builder, requestManager);

    int status = -1;
    showStay(api, argv[3], asio::make_work_guard(io), &status);
    io.run_for(std::chrono::seconds(30));
    if (status < 0) std::fprintf(stderr, "no answer from %s within 30 s\n", argv[1]);

    // Nothing may be posted to the context once it is gone.
    requestManager->shutdown();
    VLMSDKMainQueue::setExecutor({});
    return status == 0 ? 0 : 1;
}
