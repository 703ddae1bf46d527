#pragma once

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKJSONReply.h>

#include <string>

/// What a reply must say to be about what was asked: `reply[object][member]`, when the reply has a string
/// there, must equal `value` (the reservation's identifier, say). A reply that names something else answers
/// another request (a stray reply on a kept connection, a cache or proxy that mixed guests up) and is never
/// delivered as this one's. A reply without that member is left to the operation's own checks.
///
/// A plain value: any thread may read it.
struct VLMSDKReplyExpectation {
    std::string object;
    std::string member;
    std::string value;

    /// A `VLMErrorCode::ReplyMismatch` error naming both values when `reply` names another one, else nullptr.
    /// `what` says which request it answered ("GET https://..."); `connectionClosed` that the transport closed
    /// the connection the reply came on (the message says so). Throws only std::bad_alloc.
    VLMErrorPtr mismatchIn(const VLMSDKJSONReply& reply, const std::string& what, bool connectionClosed) const;
};
