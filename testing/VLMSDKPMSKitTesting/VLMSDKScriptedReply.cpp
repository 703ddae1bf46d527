#include <VLMSDKPMSKitTesting/VLMSDKScriptedReply.h>

#include <utility>

VLMSDKScriptedReply VLMSDKScriptedReply::json(long status, const VLMSDKJSON& body, VLMSDKURLResponse::Headers headers) {
    VLMSDKScriptedReply reply;
    reply.status = status;
    reply.body = body.dump(-1, ' ', false, VLMSDKJSON::error_handler_t::replace);
    reply.headers = std::move(headers);
    return reply;
}

VLMSDKScriptedReply VLMSDKScriptedReply::failure(Fault fault, std::chrono::milliseconds delay) {
    VLMSDKScriptedReply reply;
    reply.fault = fault;
    reply.delay = delay;
    return reply;
}
