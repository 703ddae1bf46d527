#pragma once

#include <pmssandbox/RecordedRequest.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace pmssandbox {

/// A request in the log together with what became of it.
struct LoggedRequest {
    std::uint64_t sequence = 0;  ///< from 1, never reused while the service runs
    std::string requestId;       ///< sent back as X-Request-Id: "req_" + this run's tag + "-" + the sequence
    RecordedRequest request;
    std::chrono::system_clock::time_point receivedAt;
    bool finished = false;
    int status = 0;  ///< 0 while in flight or when nothing was sent
    double milliseconds = 0;
    std::string note;  ///< e.g. "replayed", "reply dropped"; empty for a plain exchange
};

}  // namespace pmssandbox
