#include <VLMSDKCoreKit/VLMSDKReplyExpectation.h>

#include "VLMSDKRequestCheck.h"

bool VLMSDKReplyExpectation::isContradictedBy(const VLMSDKJSONReply& reply) const {
    const auto named = reply.nestedString(object, member);
    return named && *named != value;
}

VLMErrorPtr VLMSDKReplyExpectation::mismatchError(const VLMSDKJSONReply& reply, const std::string& what,
                                                  bool connectionClosed) const {
    const std::string_view named = reply.nestedString(object, member).value_or(std::string_view());
    // The service's words are cut and escaped: they reach logs and screens.
    constexpr std::size_t kShown = 64;
    std::string shown = vlmsdk::detail::VLMSDKRequestCheck::escaped(named.substr(0, kShown));
    if (named.size() > kShown) shown += "...";
    VLMError::Details details;
    details.domain = kVLMSDKNetworkErrorDomain;
    details.code = VLMErrorCode::ReplyMismatch;
    details.developerMessage = "The reply to " + what + " is about " + object + " '" + shown + "', not '" +
                               vlmsdk::detail::VLMSDKRequestCheck::escaped(value) +
                               "' as asked: it was not delivered" +
                               (connectionClosed ? ", and the connection it came on was closed." : ".");
    details.functionName = __func__;
    details.fileName = __FILE__;
    return std::make_shared<const VLMError>(std::move(details));
}
