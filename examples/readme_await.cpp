// Fetches one reservation with the coroutine form and prints it:  readme_await BASE_URL TOKEN RESERVATION_ID
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>
#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>

// VLMSDKTask starts the coroutine at once and frees it when it ends; a host may use its own coroutine type.
VLMSDKTask printReservation(VLMSDKAPIManager manager, std::string reservationID, int* status) {
    // Resumes on the main thread, exactly once, with the reservation or the error in one result.
    const auto result = co_await VLMSDKAwait(fetchReservationWithID, manager, reservationID);
    if (result) {
        std::cout << *result.value() << "\n";
        *status = 0;
    } else {
        std::cerr << result.error()->developerMessage() << "\n";
        *status = 1;
    }
}

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: readme_await BASE_URL TOKEN RESERVATION_ID\n";
        return 2;
    }

    auto configuration = std::make_shared<VLMSDKConfiguration>();
    configuration->setKits({std::make_shared<const VLMSDKConfigurationKit>(VLMSDKPMS::classDescriptor())});
    VLMSDKPMS::enableWithConfiguration(configuration);

    auto builder = std::make_shared<VLMSDKRequestBuilder>(argv[1]);
    builder->setAccessToken(std::string(argv[2]));
    VLMSDKAPIManager manager(builder, std::make_shared<VLMSDKHTTPRequestManager>());

    int status = -1;
    printReservation(manager, argv[3], &status);

    // The coroutine resumes in a main-queue task: pump the queue (or install an executor) as for a completion.
    if (!VLMSDKMainQueue::runUntil([&] { return status >= 0; }, std::chrono::seconds(30))) {
        std::cerr << "no answer within 30 s\n";
        return 3;
    }
    return status;
}
