// The host the outbox crash test kills: it enqueues a fixed plan once, then sends through its outbox until
// nothing is left, writing each outcome it is handed to its log before the outbox acknowledges it.
//
//   outbox_crash_host OUTBOX_FILE BASE_URL LOG_FILE
//
// The log's lines: "enqueued N" once the whole plan is stored; "outcome ID KIND REDELIVERED" per outcome.
// Exits 0 when the outbox is empty.
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "OutboxCrashPlan.h"

namespace {

// One line, on disk before it returns: what the test reads is what the host had done when it died.
void appendLine(const std::string& path, const std::string& line) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd < 0) return;
    const std::string text = line + "\n";
    if (::write(fd, text.data(), text.size()) < 0) std::perror("write");
    ::fsync(fd);
    ::close(fd);
}

bool planStored(const std::string& log) {
    std::ifstream in(log);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("enqueued ", 0) == 0) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: outbox_crash_host OUTBOX_FILE BASE_URL LOG_FILE\n");
        return 2;
    }
    const std::string log = argv[3];
    auto builder = std::make_shared<VLMSDKRequestBuilder>(argv[2]);
    builder->setAccessToken(std::string("sandbox-token"));
    VLMSDKOutboxOptions options;
    options.path = argv[1];
    options.pay.allowed = true;
    options.maximumPendingPayment = 1000;
    options.retry.initialBackoff = std::chrono::milliseconds(20);
    options.retry.maximumBackoff = std::chrono::milliseconds(200);
    VLMErrorPtr error;
    auto outbox = VLMSDKOutbox::open(VLMSDKAPIManager(builder, std::make_shared<VLMSDKHTTPRequestManager>()), options, &error);
    if (!outbox) {
        std::fprintf(stderr, "outbox_crash_host: %s\n", error->developerMessage().c_str());
        return 1;
    }
    if (!planStored(log)) {
        // The test starts killing only once this line is written: the plan is stored whole, once.
        for (const auto& step : outboxCrashPlan()) {
            if (!step.enqueue(*outbox, &error)) {
                std::fprintf(stderr, "outbox_crash_host: %s\n", error->developerMessage().c_str());
                return 1;
            }
        }
        appendLine(log, "enqueued " + std::to_string(outboxCrashPlan().size()));
    }
    outbox->setOutcomeHandler([&](const VLMSDKOutboxOutcome& outcome) {
        std::ostringstream line;
        line << "outcome " << outcome.item.id << " " << static_cast<int>(outcome.kind) << " " << outcome.redelivered;
        if (outcome.error) line << " " << outcome.error->developerMessage();
        appendLine(log, line.str());
    });
    const auto empty = [&] { return outbox->pending().empty() && outbox->unacknowledged().empty(); };
    for (int i = 0; i < 1200 && !empty(); ++i) VLMSDKMainQueue::runFor(std::chrono::milliseconds(100));
    return empty() ? 0 : 1;
}
