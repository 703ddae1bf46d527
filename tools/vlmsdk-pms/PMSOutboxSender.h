#pragma once

#include "PMSRecordJSON.h"

#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutbox.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

class PMSFailureExplainer;
class PMSOutputPrinter;

/// `vlmsdk-pms outbox send`: lets an outbox opened suspended send, and shows each outcome as the direct
/// subcommand shows its result or failure (failures with their hints), acknowledging it once shown. It stops when
/// nothing is left, when the service takes nothing more (the next item of every reservation waits out a backoff
/// after an attempt of this run), or at the time limit. Main thread only.
class PMSOutboxSender {
public:
    PMSOutboxSender(VLMSDKOutbox& outbox, const PMSOutputPrinter& printer, const PMSFailureExplainer& explainer);

    /// Answers the exit status: 0 when every outcome succeeded (or was cancelled), 1 when one failed or expired,
    /// 3 when items remain because the service did not take them. `file` and `serviceURL` as shown.
    int run(std::chrono::milliseconds limit, const std::string& file, const std::string& serviceURL);
    /// What a send with nothing to do says; answers 0.
    static int reportNothing(const PMSOutputPrinter& printer, const std::string& file);

private:
    void show(const VLMSDKOutboxOutcome& outcome);
    void showSuccess(const VLMSDKOutboxOutcome& outcome, const std::string& heading, PMSJSON& entry);
    // True when every reservation's next item waits out a backoff after an attempt this run began.
    bool refused(const std::vector<VLMSDKOutboxItem>& pending) const;

    VLMSDKOutbox& outbox_;
    const PMSOutputPrinter& printer_;
    const PMSFailureExplainer& explainer_;
    std::map<std::int64_t, unsigned> attemptsBefore_;
    std::vector<VLMSDKOutboxOutcome> handed_;  // by the handler, not yet shown
    PMSJSON shown_ = PMSJSON::array();          // with --json
    int succeeded_ = 0;
    int failed_ = 0;
    int cancelled_ = 0;
};
