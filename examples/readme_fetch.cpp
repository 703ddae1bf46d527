// Fetches one reservation and prints it:  readme_fetch BASE_URL TOKEN RESERVATION_ID
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>
#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: readme_fetch BASE_URL TOKEN RESERVATION_ID\n";
        return 2;
    }

    // Once, at start-up: list the kit in the configuration and enable it.
    auto configuration = std::make_shared<VLMSDKConfiguration>();
    configuration->setKits({std::make_shared<const VLMSDKConfigurationKit>(VLMSDKPMS::classDescriptor())});
    VLMSDKPMS::enableWithConfiguration(configuration);

    // The API manager: a request builder for the service and a request manager that sends.
    auto builder = std::make_shared<VLMSDKRequestBuilder>(argv[1]);
    builder->setAccessToken(std::string(argv[2]));  // or setTokenProvider(...)
    VLMSDKAPIManager manager(builder, std::make_shared<VLMSDKHTTPRequestManager>());

    bool done = false;
    int status = 1;
    fetchReservationWithID(manager, std::string(argv[3]),
                           [&](std::shared_ptr<VLMSDKReservation> reservation, VLMErrorPtr error) {
                               // Always on the main thread, exactly once.
                               if (error) {
                                   std::cerr << error->developerMessage() << "\n";
                               } else {
                                   std::cout << *reservation << "\n";
                                   status = 0;
                               }
                               done = true;
                           });

    // A console program pumps the main queue; a UI program installs VLMSDKMainQueue::setExecutor instead.
    if (!VLMSDKMainQueue::runUntil([&] { return done; }, std::chrono::seconds(30))) {
        std::cerr << "no answer within 30 s\n";
        return 3;
    }
    return status;
}
