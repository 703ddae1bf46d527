#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>

#include <VLMSDKCoreKit/VLMSDKJSONReply.h>

#include <cstddef>
#include <memory>
#include <string>

namespace vlmsdk::detail {

/// Parses reply bodies into replies the mapper reads in place (no JSON value is built), refusing anything
/// nested deeper than kVLMSDKMaximumJSONDepth. Keeps its buffers from one reply to the next: one reader per
/// thread that parses, never shared between threads at once.
class VLMSDK_INTERNAL VLMSDKJSONReader {
public:
    enum class Failure { None, NotJSON, TooDeep };

    struct Result {
        std::shared_ptr<const VLMSDKJSONReply> reply;  ///< nullptr on failure
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

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vlmsdk::detail
