#pragma once

#include <VLMSDKCoreKit/VLMSDKAPIManager.h>
#include <VLMSDKCoreKit/VLMSDKCancellation.h>

#include <memory>
#include <string>

/// A host screen's view model: fetches the guest's reservation and says in one line where the stay is.
/// Main thread only. Its completion holds no pointer to it, so the screen may go while a fetch is out: the
/// fetch is then cancelled and its answer dropped.
class StayViewModel {
public:
    /// Fetches through `api` (the app's, or a test's over a scripted request manager).
    explicit StayViewModel(const VLMSDKAPIManager& api);

    /// Starts fetching `reservationID`; the line reads "Loading your stay..." until the answer comes.
    void load(const std::string& reservationID);

    /// "Checked in: room 412", "Booked, not checked in yet", "Checked out", or "Could not load your stay: ...".
    std::string statusLine() const { return *line_; }

private:
    VLMSDKCancellationScope scope_;  // first in, last out: its cancel comes after the rest is gone
    VLMSDKAPIManager api_;
    std::shared_ptr<std::string> line_ = std::make_shared<std::string>();
};
