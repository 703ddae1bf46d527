#include "ApiReply.h"

#include <utility>

namespace pmssandbox {

ApiReply ApiReply::ok(nlohmann::json body) {
    ApiReply reply;
    reply.body = std::move(body);
    return reply;
}

ApiReply ApiReply::error(int status, std::string_view code, std::string_view message) {
    ApiReply reply;
    reply.status = status;
    reply.body = {{"error", {{"code", std::string(code)}, {"message", std::string(message)}}}};
    return reply;
}

std::string ApiReply::codeForStatus(int status) {
    switch (status) {
    case 400: return "bad_request";
    case 401: return "unauthorized";
    case 402: return "payment_required";
    case 403: return "forbidden";
    case 404: return "not_found";
    case 405: return "method_not_allowed";
    case 408: return "request_timeout";
    case 409: return "conflict";
    case 413: return "payload_too_large";
    case 414: return "uri_too_long";
    case 422: return "unprocessable_entity";
    case 429: return "too_many_requests";
    case 500: return "internal_error";
    case 502: return "bad_gateway";
    case 503: return "service_unavailable";
    case 504: return "gateway_timeout";
    default: return "http_" + std::to_string(status);
    }
}

}  // namespace pmssandbox
