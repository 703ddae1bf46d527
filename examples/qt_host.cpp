// The kit inside a Qt event loop:  qt_host BASE_URL TOKEN RESERVATION_ID
//
// The main queue is plugged into QCoreApplication's loop, so every completion runs there as a queued call
// on the main thread. The program fetches one reservation, prints it and quits.

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <QCoreApplication>
#include <QMetaObject>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <string>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc != 4) {
        std::fprintf(stderr, "usage: qt_host BASE_URL TOKEN RESERVATION_ID\n");
        return 2;
    }
    const std::string reservationID = argv[3];

    auto configuration = std::make_shared<VLMSDKConfiguration>();
    configuration->setKits({std::make_shared<const VLMSDKConfigurationKit>(VLMSDKPMS::classDescriptor())});
    VLMSDKPMS::enableWithConfiguration(configuration);

    // Each task of the main queue becomes a queued call on the application object, which app.exec() runs
    // on the main thread. Qt allows it from any thread, as the executor must.
    VLMSDKMainQueue::setExecutor([&app](VLMSDKMainQueue::Task task) {
        QMetaObject::invokeMethod(&app, std::move(task), Qt::QueuedConnection);
    });

    auto builder = std::make_shared<VLMSDKRequestBuilder>(argv[1]);
    builder->setAccessToken(std::string(argv[2]));
    auto requestManager = std::make_shared<VLMSDKHTTPRequestManager>();
    const VLMSDKAPIManager api(builder, requestManager);

    int status = 1;
    // Started from the loop, so that even a completion that runs at once finds the loop running to quit.
    QTimer::singleShot(0, &app, [&] {
        fetchReservationWithID(api, reservationID, [&](std::shared_ptr<VLMSDKReservation> reservation,
                                                       VLMErrorPtr error) {
            if (error) {
                std::fprintf(stderr, "fetch reservation failed: %s\n", error->developerMessage().c_str());
            } else {
                std::printf("Reservation %s: status %s, room %s, %zu guest(s)\n",
                            reservation->velmoraID().value_or("?").c_str(),
                            reservation->statusStringRepresentation().value_or("?").c_str(),
                            reservation->roomNumber().value_or("-").c_str(), reservation->guests().size());
                status = 0;
            }
            app.quit();
        });
    });
    QTimer::singleShot(30000, &app, [&] {
        std::fprintf(stderr, "no answer from %s within 30 s\n", argv[1]);
        app.quit();
    });
    app.exec();

    // Nothing may be posted to the application object once it is gone.
    requestManager->shutdown();
    VLMSDKMainQueue::setExecutor({});
    return status;
}
