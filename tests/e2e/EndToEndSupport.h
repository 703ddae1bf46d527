#pragma once

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <pmssandbox/SandboxServer.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace e2e {

inline constexpr const char* kSandboxToken = "sandbox-token";
// How long a test waits for what must come: a hang guard, never a measure.
inline constexpr std::chrono::seconds kLimit{30};

/// One completion call, whatever the operation's result type.
struct Delivery {
    std::shared_ptr<VLMSDKRootObject> record;
    bool flag = false;
    VLMErrorPtr error;
    bool onMainThread = false;
};

/// Collects the completion calls of one or more operations. Thread-safe, so that a call on a wrong
/// thread is reported as such rather than as a data race; the completions share the log's state, so a
/// late call after the log is gone is harmless.
class DeliveryLog {
public:
    template <class Record>
    std::function<void(std::shared_ptr<Record>, VLMErrorPtr)> completion() {
        return [state = state_](std::shared_ptr<Record> record, VLMErrorPtr error) {
            state->add(std::move(record), false, std::move(error));
        };
    }
    VLMSDKSuccessCompletion flagCompletion() {
        return [state = state_](bool flag, VLMErrorPtr error) { state->add(nullptr, flag, std::move(error)); };
    }

    std::size_t count() const;
    Delivery at(std::size_t index) const;
    /// The record of delivery `index` as `Record` (nullptr when absent or of another class).
    template <class Record>
    std::shared_ptr<Record> record(std::size_t index = 0) const {
        return std::dynamic_pointer_cast<Record>(at(index).record);
    }

    /// Pumps the main queue until `expected` deliveries arrived (or a generous limit passed).
    bool waitFor(std::size_t expected = 1) const;

private:
    struct State {
        void add(std::shared_ptr<VLMSDKRootObject> record, bool flag, VLMErrorPtr error);
        mutable std::mutex mutex;
        std::vector<Delivery> deliveries;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// An API manager on the real HTTP transport, pointed at one service, over one connection at a time.
///
/// One connection keeps the service's work on one worker thread at a time: its HTTP library is a system
/// build without ThreadSanitizer instrumentation, whose workers racing each other would only bury the
/// kit's own reports. Concurrency on the kit's side (callers, network thread, main thread) is unchanged.
class Client {
public:
    Client(const std::string& baseURL, std::optional<std::string> token, VLMSDKHTTPRequestManagerOptions::Transport transport,
           VLMSDKHTTPRequestManagerOptions::Mode mode = VLMSDKHTTPRequestManagerOptions::Mode::Automatic,
           VLMSDKRetryPolicy retry = {}, std::shared_ptr<VLMSDKCredentialsProvider> credentials = nullptr);
    ~Client();

    const VLMSDKAPIManager& api() const { return api_; }

    /// Stops the transport (joining its thread: no reply handler runs afterwards) and runs what it left
    /// on the main queue. Every delivery the client's operations could ever make has then been made.
    void settle();

private:
    std::shared_ptr<VLMSDKHTTPRequestManager> transport_;
    VLMSDKAPIManager api_;
};

/// A suite whose tests run once on each transport the request manager has: what is tested end to end is
/// what a host runs, whichever it picks.
class OnEachTransport : public ::testing::TestWithParam<VLMSDKHTTPRequestManagerOptions::Transport> {
protected:
    VLMSDKHTTPRequestManagerOptions::Transport transport() const { return GetParam(); }
};

/// Declares `Suite` on OnEachTransport, instantiated as LibCurl/Suite.* and HTTP1/Suite.*.
#define E2E_SUITE_ON_EACH_TRANSPORT(Suite)                                                                       \
    class Suite : public ::e2e::OnEachTransport {};                                                              \
    INSTANTIATE_TEST_SUITE_P(LibCurl, Suite, ::testing::Values(VLMSDKHTTPRequestManagerOptions::Transport::LibCurl), \
                             ::e2e::transportName);                                                              \
    INSTANTIATE_TEST_SUITE_P(HTTP1, Suite, ::testing::Values(VLMSDKHTTPRequestManagerOptions::Transport::HTTP1),     \
                             ::e2e::transportName)

/// "LibCurl" or "HTTP1": the name a test instance carries.
inline std::string transportName(const ::testing::TestParamInfo<VLMSDKHTTPRequestManagerOptions::Transport>& info) {
    return info.param == VLMSDKHTTPRequestManagerOptions::Transport::LibCurl ? "LibCurl" : "HTTP1";
}

/// The local reservation service on 127.0.0.1:0, serving the project's seed file.
std::unique_ptr<pmssandbox::SandboxServer> startSandbox();

/// One operation, started with its arguments, reporting to a log.
using Call = std::function<void(const VLMSDKAPIManager&, DeliveryLog&)>;
Call create(std::string confirmation, std::string venue, std::string lastName);
Call fetch(std::string id);
Call confirm(std::string id, bool notify);
Call checkin(std::string id);
Call checkout(std::string id);
Call pay(std::string id, double amount, std::string currency, std::string card);
Call folio(std::string id);
Call charge(std::string id, std::vector<std::pair<std::string, double>> items);

}  // namespace e2e
