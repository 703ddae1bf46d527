#pragma once

#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutbox.h>

#include <VLMSDKCoreKit/VLMSDKAPIManager.h>

#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

/// The tool's outbox: its file (--outbox, VLMSDK_PMS_OUTBOX, else outbox.db in the state directory where the
/// background service keeps sandbox.json) and the options the tool opens it with: payments may be queued (up to
/// the kit's pending-payment cap), and a backoff from 1 s to 30 s, as fits a command someone waits for.
class PMSOutboxFile {
public:
    /// `path` absent: outbox.db in the state directory.
    explicit PMSOutboxFile(const std::optional<std::string>& path);

    /// Empty when there is no state directory (no HOME or XDG_STATE_HOME) and no --outbox.
    const std::string& path() const { return path_; }
    /// Whether the file is there: a command that only reads it does not create it.
    bool exists() const;

    /// Opens the file (creating it and its directory when absent) to send through `manager`, suspended: nothing
    /// goes until the caller resumes it. nullptr, with one line in `problem`, when another outbox holds it or it
    /// cannot be opened. A damaged file's recovery sentence goes to `err`.
    std::shared_ptr<VLMSDKOutbox> open(const VLMSDKAPIManager& manager, std::ostream& err, std::string* problem) const;
    /// The same, to read the file or add to it: the outbox stays suspended, and its request manager sends nothing.
    std::shared_ptr<VLMSDKOutbox> openOffline(std::ostream& err, std::string* problem) const;

private:
    std::string path_;
};
