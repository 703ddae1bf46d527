// A small host of the property-management kit.
//
//   host_example [BASE_URL [TOKEN [RESERVATION_ID]]]
//
// BASE_URL and TOKEN may also come from VLMSDK_PMS_BASE_URL and VLMSDK_PMS_TOKEN. The program enables the
// kit, points an API manager at the reservation service, fetches one reservation and its folio, and takes
// both completions on its own main loop: the way a UI application hands the SDK's main-thread work to
// its event loop instead of pumping VLMSDKMainQueue itself.

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <VLMSDKCoreKit/VLMSDKConfiguration.h>
#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace {

// The application's own event loop, a stand-in for a UI toolkit's. Any thread may post; only the main
// thread runs tasks.
class MainLoop {
public:
    void post(std::function<void()> task) {
        {
            std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        wake_.notify_one();
    }

    // Runs tasks until quit() is called; false if nothing happened for `idleLimit`.
    bool run(std::chrono::seconds idleLimit) {
        std::unique_lock lock(mutex_);
        while (!quit_) {
            if (!wake_.wait_for(lock, idleLimit, [this] { return !tasks_.empty() || quit_; })) return false;
            while (!tasks_.empty()) {
                auto task = std::move(tasks_.front());
                tasks_.pop_front();
                lock.unlock();  // a task may post more tasks
                task();
                lock.lock();
            }
        }
        return true;
    }

    // Called from a task, i.e. on the main thread.
    void quit() { quit_ = true; }

private:
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool quit_ = false;
};

std::optional<std::string> argumentOrEnvironment(int argc, char** argv, int index, const char* variable) {
    if (argc > index) return std::string(argv[index]);
    if (const char* value = std::getenv(variable); value && *value) return std::string(value);
    return std::nullopt;
}

void printError(const char* what, const VLMError& error) {
    std::fprintf(stderr, "%s failed: %s\n", what, error.developerMessage().c_str());
    if (error.httpStatusCode()) std::fprintf(stderr, "  HTTP status %ld\n", *error.httpStatusCode());
}

}  // namespace

int main(int argc, char** argv) {
    const auto baseURL = argumentOrEnvironment(argc, argv, 1, "VLMSDK_PMS_BASE_URL");
    const auto token = argumentOrEnvironment(argc, argv, 2, "VLMSDK_PMS_TOKEN");
    const std::string reservationID = argc > 3 ? argv[3] : "rsv_0003";
    if (!baseURL) {
        std::fprintf(stderr, "usage: %s BASE_URL [TOKEN [RESERVATION_ID]]\n", argv[0]);
        return 2;
    }

    // 1. Enable the kit once, listing it in the SDK configuration.
    auto configuration = std::make_shared<VLMSDKConfiguration>();
    configuration->setKits({std::make_shared<const VLMSDKConfigurationKit>(VLMSDKPMS::classDescriptor())});
    VLMSDKPMS::enableWithConfiguration(configuration);

    // 2. Hand every completion to our own loop. Completions always run on the main thread; the executor
    //    is how they get there when the application, not the SDK, owns that thread's loop.
    MainLoop loop;
    VLMSDKMainQueue::setExecutor([&loop](VLMSDKMainQueue::Task task) { loop.post(std::move(task)); });

    // 3. The API manager: where requests go (base URL and bearer token) and what sends them (HTTP).
    auto requestBuilder = std::make_shared<VLMSDKRequestBuilder>(*baseURL);
    requestBuilder->setAccessToken(token);
    VLMSDKHTTPRequestManagerOptions options;
    options.requestTimeout = std::chrono::seconds(15);
    auto requestManager = std::make_shared<VLMSDKHTTPRequestManager>(options);
    const VLMSDKAPIManager apiManager(requestBuilder, requestManager);

    // 4. Two operations at once. Each completion runs exactly once, on the main thread (our loop), with a
    //    result or an error. The loop stops when both have run.
    int pending = 2;
    int failures = 0;
    auto finishOne = [&] {
        if (--pending == 0) loop.quit();
    };

    fetchReservationWithID(apiManager, reservationID,
                           [&](std::shared_ptr<VLMSDKReservation> reservation, VLMErrorPtr error) {
                               if (error) {
                                   printError("fetch reservation", *error);
                                   ++failures;
                               } else {
                                   std::printf("Reservation %s: status %s, room %s, %zu guest(s)\n",
                                               reservation->velmoraID().value_or("?").c_str(),
                                               reservation->statusStringRepresentation().value_or("?").c_str(),
                                               reservation->roomNumber().value_or("-").c_str(),
                                               reservation->guests().size());
                               }
                               finishOne();
                           });

    fetchReservationMasterBill(apiManager, reservationID, [&](std::shared_ptr<VLMSDKFolio> folio, VLMErrorPtr error) {
        if (error) {
            printError("fetch folio", *error);
            ++failures;
        } else {
            std::printf("Folio %s: %zu posting(s), %.2f %s outstanding\n", folio->folioID().value_or("?").c_str(),
                        folio->deliverables().size(), folio->outstandingAmount().value_or(0.0),
                        folio->paymentCurrency().value_or("").c_str());
            for (const auto& posting : folio->deliverables()) {
                std::printf("  %-8s %-28s %10.2f %s\n", posting->code().value_or("").c_str(),
                            posting->name().value_or("").c_str(), posting->price().value_or(0.0),
                            posting->currency().value_or("").c_str());
            }
        }
        finishOne();
    });

    // 5. Run the application's loop until both completions ran.
    const bool finished = loop.run(std::chrono::seconds(30));
    requestManager->shutdown();
    VLMSDKMainQueue::setExecutor({});
    if (!finished) {
        std::fprintf(stderr, "no answer from %s\n", baseURL->c_str());
        return 1;
    }
    return failures == 0 ? 0 : 1;
}
