// Tests StayViewModel against scripted replies, with no service:  view_model_test [--changed-reply]
// Exits 0 when every check passed. --changed-reply scripts another route than the view model asks for, as a
// test gone stale would: the scripted request manager then reports what it expected, and the test fails.
#include "StayViewModel.h"

#include <VLMSDKPMSKitTesting/VLMSDKScriptedRequestManager.h>

#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>

int main(int argc, char** argv) {
    const bool changedReply = argc == 2 && std::string(argv[1]) == "--changed-reply";
    if (argc > 2 || (argc == 2 && !changedReply)) {
        std::cerr << "usage: view_model_test [--changed-reply]\n";
        return 2;
    }

    // The kit logs each failed operation; this program's output keeps to its checks.
    VLMSDKConsoleLogger::sharedLogger().setMaximumLevel(0);
    // No service: every request goes to the script, in order.
    auto requests = std::make_shared<VLMSDKScriptedRequestManager>();
    const VLMSDKAPIManager api(std::make_shared<VLMSDKRequestBuilder>("https://pms.example.invalid/"), requests);

    struct Case {
        std::string reservationID;
        VLMSDKScriptedRequest request;
        VLMSDKScriptedReply reply;
        std::string expectedLine;
    };
    const Case cases[] = {
        {"rsv_0412",
         {.method = "GET", .route = changedReply ? "guest/reservations/rsv_0413" : "guest/reservations/rsv_0412"},
         VLMSDKScriptedReply::json(200, {{"reservation", {{"id", "rsv_0412"}, {"status", "in_house"},
                                                          {"room_number", "412"}}}}),
         "Checked in: room 412"},
        {"rsv_0404", {.method = "GET", .route = "guest/reservations/rsv_0404"},
         VLMSDKScriptedReply::json(404, {{"error", {{"code", "not_found"}, {"message", "No reservation has that id."}}}}),
         "Could not load your stay: No reservation has that id."},
    };

    int failed = 0;
    for (const Case& scripted : cases) {
        requests->expect(scripted.request, scripted.reply);
        StayViewModel screen(api);
        screen.load(scripted.reservationID);
        // Pump the main queue until the reply came and the view model's completion ran.
        if (!requests->runUntilAnswered(std::chrono::seconds(10))) {
            std::cerr << "FAILED: no answer for " << scripted.reservationID << "\n";
            ++failed;
            continue;
        }
        if (screen.statusLine() == scripted.expectedLine) {
            std::cout << "ok: " << scripted.reservationID << " shows \"" << screen.statusLine() << "\"\n";
        } else {
            std::cerr << "FAILED: " << scripted.reservationID << " shows \"" << screen.statusLine() << "\", not \""
                      << scripted.expectedLine << "\"\n";
            ++failed;
        }
    }
    // Unexpected requests were reported as they came (on standard error); expected ones that never came now.
    if (!requests->verify() || failed > 0) {
        std::cerr << "view_model_test: FAILED\n";
        return 1;
    }
    std::cout << "view_model_test: all passed\n";
    return 0;
}
