#pragma once

#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <cstddef>
#include <memory>
#include <string>

namespace vlmsdk::detail {

/// Parses reply bodies into the SDK's JSON value, refusing anything nested deeper than
/// kVLMSDKMaximumJSONDepth. Keeps its buffers from one reply to the next: one reader per thread
/// that parses, never shared between threads at once.
class VLMSDKJSONReader {
public:
    enum class Failure { None, NotJSON, TooDeep };

    struct Result {
        VLMSDKJSON json;
        Failure failure = Failure::None;
    };

    /// Spare capacity past the end of a text that saves `read` a copy of it.
    static constexpr std::size_t kSpareCapacity = 64;

    VLMSDKJSONReader();
    ~VLMSDKJSONReader();
    VLMSDKJSONReader(const VLMSDKJSONReader&) = delete;
    VLMSDKJSONReader& operator=(const VLMSDKJSONReader&) = delete;

    /// Parses `text`, which may gain spare capacity (never other content) on the way. Never throws
    /// but for std::bad_alloc.
    Result read(std::string& text);

    /// `json` made shared, in one allocation, with a teardown that allocates nothing (the JSON value's own
    /// destructor allocates a stack for every container it frees). Any thread may release it.
    static std::shared_ptr<const VLMSDKJSON> share(VLMSDKJSON&& json);

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vlmsdk::detail
