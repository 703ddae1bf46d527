#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKJSONReply.h>

#include <string>

VLMSDK_API_BEGIN

/// What a reply must say to be about what was asked: `reply[object][member]`, when the reply has a string
/// there, must equal `value` (the reservation's identifier, say). A reply that names something else answers
/// another request (a stray reply on a kept connection, a cache or proxy that mixed guests up) and is never
/// delivered as this one's. A reply without that member is left to the operation's own checks.
///
/// A plain value: any thread may read it.
struct VLMSDKReplyExpectation {
    /// The reply's top-level member that holds the identifier ("reservation").
    std::string object;
    /// The member of that object that names it ("id").
    std::string member;
    /// What it must be.
    std::string value;

    /// Whether `reply` names another value there. Builds nothing and allocates nothing.
    bool isContradictedBy(const VLMSDKJSONReply& reply) const;

    /// The `VLMErrorCode::ReplyMismatch` error for a reply that contradicts it, naming both values; `what` says
    /// which request it answered ("GET https://..."), `connectionClosed` that the transport closed the
    /// connection the reply came on (the message says so). Throws only std::bad_alloc.
    VLMErrorPtr mismatchError(const VLMSDKJSONReply& reply, const std::string& what, bool connectionClosed) const;
};

VLMSDK_API_END
