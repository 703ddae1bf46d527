#include <VLMSDKPMSKitTesting/VLMSDKFixture.h>

#include <fstream>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <utility>

namespace {

// A format error: where ("reply.status") and what is wanted there.
struct Problem {
    std::string text;
};

[[noreturn]] void fail(const std::string& where, const std::string& wanted) { throw Problem{where + ": " + wanted}; }

void allowOnly(const VLMSDKJSON& object, const std::string& where, std::initializer_list<const char*> names) {
    for (const auto& [key, value] : object.items()) {
        bool known = false;
        for (const char* name : names) known = known || key == name;
        if (!known) fail(where.empty() ? key : where + "." + key, "is not a member this format has");
    }
}

const VLMSDKJSON* member(const VLMSDKJSON& object, const char* name) {
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

std::string text(const VLMSDKJSON& value, const std::string& where) {
    if (!value.is_string()) fail(where, "wants a string");
    return value.get<std::string>();
}

long long wholeNumber(const VLMSDKJSON& value, const std::string& where, long long low, long long high) {
    const std::string wanted = "wants a whole number from " + std::to_string(low) + " to " + std::to_string(high);
    if (!value.is_number_integer()) fail(where, wanted);
    const bool isUnsigned = value.is_number_unsigned();
    if (isUnsigned && value.get<unsigned long long>() > static_cast<unsigned long long>(high)) fail(where, wanted);
    const long long number = isUnsigned ? static_cast<long long>(value.get<unsigned long long>()) : value.get<long long>();
    if (number < low || number > high) fail(where, wanted);
    return number;
}

VLMSDKScriptedRequest readRequest(const VLMSDKJSON& object) {
    if (!object.is_object()) fail("request", "wants an object");
    allowOnly(object, "request", {"method", "route", "body"});
    VLMSDKScriptedRequest request;
    const VLMSDKJSON* method = member(object, "method");
    if (!method) fail("request.method", "is missing");
    request.method = text(*method, "request.method");
    if (request.method.empty()) fail("request.method", "wants a method such as GET");
    const VLMSDKJSON* route = member(object, "route");
    if (!route) fail("request.route", "is missing");
    request.route = text(*route, "request.route");
    if (const VLMSDKJSON* body = member(object, "body")) request.body = VLMSDKBodyMatcher::equalTo(*body);
    return request;
}

VLMSDKScriptedReply readReply(const VLMSDKJSON& object) {
    if (!object.is_object()) fail("reply", "wants an object");
    allowOnly(object, "reply", {"status", "headers", "body", "bodyText", "delayMilliseconds", "fault"});
    VLMSDKScriptedReply reply;
    if (const VLMSDKJSON* fault = member(object, "fault")) {
        const std::string name = text(*fault, "reply.fault");
        if (name == "dropped-connection") {
            reply.fault = VLMSDKScriptedReply::Fault::DroppedConnection;
        } else if (name == "timeout") {
            reply.fault = VLMSDKScriptedReply::Fault::Timeout;
        } else {
            fail("reply.fault", "wants \"dropped-connection\" or \"timeout\", not \"" + name + "\"");
        }
    }
    const VLMSDKJSON* status = member(object, "status");
    if (status) {
        reply.status = static_cast<long>(wholeNumber(*status, "reply.status", 100, 599));
    } else if (reply.fault == VLMSDKScriptedReply::Fault::None) {
        fail("reply", "wants a status or a fault");
    }
    if (const VLMSDKJSON* headers = member(object, "headers")) {
        if (!headers->is_object()) fail("reply.headers", "wants an object of strings");
        for (const auto& [name, value] : headers->items()) {
            reply.headers.emplace_back(name, text(value, "reply.headers." + name));
        }
    }
    const VLMSDKJSON* body = member(object, "body");
    const VLMSDKJSON* bodyText = member(object, "bodyText");
    if (body && bodyText) fail("reply", "takes body or bodyText, not both");
    if (body) reply.body = body->dump(-1, ' ', false, VLMSDKJSON::error_handler_t::replace);
    if (bodyText) reply.body = text(*bodyText, "reply.bodyText");
    if (const VLMSDKJSON* delay = member(object, "delayMilliseconds")) {
        reply.delay = std::chrono::milliseconds(
            wholeNumber(*delay, "reply.delayMilliseconds", 0, std::numeric_limits<int>::max()));
    }
    return reply;
}

std::optional<VLMSDKFixture> failed(std::string* error, std::string text) {
    if (error) *error = std::move(text);
    return std::nullopt;
}

}  // namespace

std::optional<VLMSDKFixture> VLMSDKFixture::load(const std::filesystem::path& file, std::string* error) {
    std::error_code code;
    if (!std::filesystem::is_regular_file(file, code)) {
        return failed(error, file.string() + ": " + (std::filesystem::exists(file, code) ? "is not a file" : "no such file"));
    }
    std::ifstream in(file, std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.is_open() || in.bad()) return failed(error, file.string() + ": cannot be read");
    return parse(content, file.string(), error);
}

std::optional<VLMSDKFixture> VLMSDKFixture::parse(std::string_view text, const std::string& name, std::string* error) {
    VLMSDKJSON document;
    try {
        document = VLMSDKJSON::parse(text);
    } catch (const VLMSDKJSON::parse_error& parseError) {
        return failed(error, name + ": not JSON: " + parseError.what());
    }
    try {
        if (!document.is_object()) fail("the document", "wants an object with a reply");
        allowOnly(document, "", {"request", "reply"});
        VLMSDKFixture fixture;
        if (const VLMSDKJSON* request = member(document, "request")) fixture.request = readRequest(*request);
        const VLMSDKJSON* reply = member(document, "reply");
        if (!reply) fail("reply", "is missing");
        fixture.reply = readReply(*reply);
        return fixture;
    } catch (const Problem& problem) {
        return failed(error, name + ": " + problem.text);
    }
}
