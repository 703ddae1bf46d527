#include "PMSOutboxFile.h"

#include "PMSBackgroundSandbox.h"

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include <filesystem>
#include <ostream>

namespace fs = std::filesystem;

PMSOutboxFile::PMSOutboxFile(const std::optional<std::string>& path) {
    if (path) {
        path_ = *path;
    } else if (const fs::path directory = PMSBackgroundSandbox().directory(); !directory.empty()) {
        path_ = (directory / "outbox.db").string();
    }
}

bool PMSOutboxFile::exists() const {
    std::error_code ignored;
    return !path_.empty() && fs::exists(path_, ignored);
}

std::shared_ptr<VLMSDKOutbox> PMSOutboxFile::open(const VLMSDKAPIManager& manager, std::ostream& err,
                                                  std::string* problem) const {
    if (path_.empty()) {
        *problem = "no HOME or XDG_STATE_HOME to keep the outbox in; give --outbox FILE";
        return nullptr;
    }
    if (const fs::path directory = fs::path(path_).parent_path(); !directory.empty()) {
        std::error_code ignored;  // a directory that cannot be made is reported by the open below
        fs::create_directories(directory, ignored);
    }
    VLMSDKOutboxOptions options;
    options.path = path_;
    options.pay.allowed = true;
    options.retry.initialBackoff = std::chrono::seconds(1);
    options.retry.maximumBackoff = std::chrono::seconds(30);
    options.suspended = true;
    VLMErrorPtr error;
    auto outbox = VLMSDKOutbox::open(manager, options, &error);
    if (!outbox) {
        *problem = error ? error->developerMessage() : "the outbox file '" + path_ + "' cannot be opened";
        if (problem->find("is locked") != std::string::npos) {
            *problem += " Wait for the other 'vlmsdk-pms outbox send' (or the program using it) to finish.";
        }
        return nullptr;
    }
    if (!outbox->recovery().empty()) err << "vlmsdk-pms: " << outbox->recovery() << '\n';
    return outbox;
}

std::shared_ptr<VLMSDKOutbox> PMSOutboxFile::openOffline(std::ostream& err, std::string* problem) const {
    // Never resumed, so no request is made: any address will do.
    const VLMSDKAPIManager manager(std::make_shared<VLMSDKRequestBuilder>("http://127.0.0.1/"),
                                   std::make_shared<VLMSDKHTTPRequestManager>());
    return open(manager, err, problem);
}
