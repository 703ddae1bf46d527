#include <pmssandbox/SandboxClient.h>

#include <httplib.h>
#include <nlohmann/json.hpp>

namespace pmssandbox {

namespace {

// "http://host:port/any/path" -> "http://host:port", which is all the HTTP library's client takes.
std::string origin(const std::string& url) {
    const auto scheme = url.find("://");
    const auto path = url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
    return url.substr(0, path);
}

}  // namespace

struct SandboxClient::Impl {
    Impl(const std::string& url, std::string bearer) : client(origin(url)), token(std::move(bearer)) {}
    httplib::Client client;
    std::string token;
};

SandboxClient::SandboxClient(const std::string& serviceUrl, std::string token, std::chrono::milliseconds timeout,
                             bool keepAlive) {
    try {
        impl_ = std::make_unique<Impl>(serviceUrl, std::move(token));
        impl_->client.set_connection_timeout(timeout);
        impl_->client.set_read_timeout(timeout);
        impl_->client.set_write_timeout(timeout);
        impl_->client.set_keep_alive(keepAlive);
        // Small requests on a kept-alive connection would otherwise wait for the delayed ACK.
        impl_->client.set_tcp_nodelay(true);
    } catch (...) {
        impl_.reset();
    }
}

SandboxClient::~SandboxClient() = default;

SandboxClient::Reply SandboxClient::send(const std::string& method, const std::string& target, const std::string& body,
                                         const std::vector<std::pair<std::string, std::string>>& headers) {
    Reply reply;
    if (!impl_ || !impl_->client.is_valid()) {
        reply.error = "not an http:// or https:// URL";
        return reply;
    }
    try {
        httplib::Request request;
        request.method = method;
        request.path = target;
        request.headers.emplace("Authorization", "Bearer " + impl_->token);
        for (const auto& [name, value] : headers) request.headers.emplace(name, value);
        if (!body.empty()) {
            request.headers.emplace("Content-Type", "application/json");
            request.body = body;
        }
        const httplib::Result result = impl_->client.send(request);
        if (!result) {
            reply.error = httplib::to_string(result.error());
            return reply;
        }
        reply.status = result->status;
        reply.body = result->body;
        reply.headers.assign(result->headers.begin(), result->headers.end());
    } catch (const std::exception& e) {
        reply.error = e.what();
    }
    return reply;
}

std::optional<SandboxClient::IssuedToken> SandboxClient::issueToken(int ttlSeconds, std::string* error) {
    using nlohmann::json;
    try {
        const Reply reply = send("POST", "/_sandbox/tokens", json{{"ttl_seconds", ttlSeconds}}.dump());
        const json body = json::parse(reply.body, nullptr, false);
        const json token = body.is_object() ? body.value("token", json()) : json();
        const json expiresIn = body.is_object() ? body.value("expires_in", json()) : json();
        const json expiresAt = body.is_object() ? body.value("expires_at", json()) : json();
        if (reply.status == 200 && token.is_string() && expiresIn.is_number_integer() && expiresAt.is_string()) {
            return IssuedToken{token.get<std::string>(), std::chrono::seconds(expiresIn.get<std::int64_t>()),
                               expiresAt.get<std::string>()};
        }
        if (error) {
            const json message = body.is_object() ? body.value(json::json_pointer("/error/message"), json()) : json();
            *error = reply.status == 0 ? reply.error
                                       : "HTTP " + std::to_string(reply.status) + ": " +
                                             (message.is_string() ? message.get<std::string>() : reply.body);
        }
    } catch (const std::exception& e) {
        if (error) *error = e.what();
    }
    return std::nullopt;
}

}  // namespace pmssandbox
