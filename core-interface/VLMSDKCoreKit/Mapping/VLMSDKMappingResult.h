#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKRootObject.h>

#include <memory>

VLMSDK_API_BEGIN

/// The outcome of mapping one JSON object: a record, or the error that says why there is none.
class VLMSDKMappingResult {
public:
    /// A result holding `result` and `error` as given (the mapper gives one of them).
    VLMSDKMappingResult(std::shared_ptr<VLMSDKRootObject> result, VLMErrorPtr error)
        : result_(std::move(result)), error_(std::move(error)) {}

    /// The record, or nullptr when the mapping failed.
    const std::shared_ptr<VLMSDKRootObject>& result() const { return result_; }
    /// Why there is no record, or nullptr.
    const VLMErrorPtr& error() const { return error_; }

    /// The record as `T`, or nullptr when there is none or it is of another class.
    template <class T>
    std::shared_ptr<T> resultAs() const { return std::dynamic_pointer_cast<T>(result_); }

private:
    std::shared_ptr<VLMSDKRootObject> result_;
    VLMErrorPtr error_;
};

VLMSDK_API_END
