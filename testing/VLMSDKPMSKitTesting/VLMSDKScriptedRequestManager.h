#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKPMSKitTesting/VLMSDKScriptedReply.h>
#include <VLMSDKPMSKitTesting/VLMSDKScriptedRequest.h>

#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

VLMSDK_API_BEGIN

namespace vlmsdk::detail {
class VLMSDKDelayedReplies;
}

/// A request manager for tests of a host's own screens: the test scripts, in order, each request it expects
/// and the reply it gets; the kit's operations then run as they do against a service, with no network.
///
///     auto requests = std::make_shared<VLMSDKScriptedRequestManager>();
///     requests->expect({.method = "GET", .route = "guest/reservations/rsv_1"},
///                      VLMSDKScriptedReply::json(200, {{"reservation", {{"id", "rsv_1"}}}}));
///     VLMSDKAPIManager api(std::make_shared<VLMSDKRequestBuilder>("https://pms.example/"), requests);
///
/// Each request is matched against the next expectation only. One that matches gets its reply, read as a
/// real reply is. One that does not (or comes when none is left) gets a `VLMErrorCode::Transport` error and
/// is reported as a failure that lists every remaining expectation and what came; the expectation stays.
/// Expectations never met are reported by `verify()`, or when the manager is destroyed. A request cancelled
/// before it is handed over, or one the builder could not make, matches nothing: it gets the cancelled error or
/// its build error.
///
/// Threads and promises: every method may be called from any thread, except `runUntilAnswered` (the main
/// thread). Each request's handler runs exactly once: a reply without delay on the main thread, when the main
/// queue is next pumped (at once, on the calling thread, for a request whose handler must not need the main
/// queue: `VLMSDKRequestControl::handlerOffMainQueue`); a delayed reply or fault on a thread the manager owns,
/// and joins when destroyed. A cancel (`VLMSDKRequestControl::cancellation`) that comes before the handler runs,
/// during a delay too, answers with the cancelled error instead. Destruction answers every request still
/// waiting with the cancelled error ("the request manager shut down").
class VLMSDKScriptedRequestManager : public VLMSDKRequestManager {
public:
    /// Receives each failure's message, on the thread where it was found.
    using FailureReporter = std::function<void(const std::string& message)>;

    /// A manager expecting nothing, whose failures are written to standard error.
    VLMSDKScriptedRequestManager();
    /// Reports the expectations never met (unless `verify` did already) and answers what is still waiting.
    ~VLMSDKScriptedRequestManager() override;
    VLMSDKScriptedRequestManager(const VLMSDKScriptedRequestManager&) = delete;
    VLMSDKScriptedRequestManager& operator=(const VLMSDKScriptedRequestManager&) = delete;

    /// Expects `request` after those expected already, and answers it with `reply`.
    void expect(VLMSDKScriptedRequest request, VLMSDKScriptedReply reply);
    /// Expects the request of the fixture in `file` (see VLMSDKFixture), answered with its reply. False, with
    /// the reason in `error` and reported as a failure, when the file cannot be loaded or names no request.
    bool expectFixture(const std::filesystem::path& file, std::string* error = nullptr);

    /// Where failures go from now on (empty: nowhere). Each one is also kept in `failures()`. The reporter runs
    /// outside the manager's lock, and may call the manager.
    void setFailureReporter(FailureReporter reporter);
    /// Every failure so far, oldest first: unexpected requests, fixtures that did not load, unmet expectations
    /// that were reported.
    std::vector<std::string> failures() const;
    /// Reports the expectations not met yet (once each) and answers whether there has been no failure at all.
    bool verify();

    /// Requests handed over whose handler has not finished running.
    std::size_t outstandingCount() const;
    /// Pumps the main queue (`VLMSDKMainQueue::runUntil`) until no request of this manager is outstanding and
    /// the main queue is empty, or `limit` passes; answers whether it got there. Main thread only (elsewhere it
    /// answers false at once), and only while no main-queue executor is installed.
    bool runUntilAnswered(std::chrono::milliseconds limit);

    /// `performControlledRequest` with no control.
    void performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                VLMSDKDataTaskCompletion completion) override;
    /// Matches `request` against the next expectation and answers it as described above, honouring
    /// `control`'s cancellation and `handlerOffMainQueue`; `control.expectedReply` is left to the kit.
    void performControlledRequest(std::shared_ptr<const VLMSDKRequest> request, const VLMSDKRequestControl& control,
                                  VLMSDKDataTaskCompletion completion) override;
    /// False: the kit checks replies against what the request asked for, as it does for any manager of a host's.
    bool checksExpectedReplies() const override { return false; }

private:
    struct Core;
    struct Delivery;

    std::shared_ptr<Core> core_;
    std::unique_ptr<vlmsdk::detail::VLMSDKDelayedReplies> delayed_;
};

VLMSDK_API_END
