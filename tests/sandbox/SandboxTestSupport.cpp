#include "SandboxTestSupport.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <limits>
#include <utility>

namespace pmssandbox::testing {

std::string Reply::errorCode() const {
    if (!json.is_object() || !json.contains("error") || !json["error"].is_object()) return {};
    const auto& error = json["error"];
    if (!error.contains("code") || !error["code"].is_string() || !error.contains("message") ||
        !error["message"].is_string() || error.size() != 2 || json.size() != 1)
        return {};
    return error["code"].get<std::string>();
}

SandboxClient::SandboxClient(int port, std::string base, std::string token)
    : client_("127.0.0.1", port), base_(std::move(base)), token_(std::move(token)) {
    client_.set_read_timeout(std::chrono::seconds(5));
}

Reply SandboxClient::send(const std::string& method, const std::string& path,
                          const std::optional<nlohmann::json>& body) {
    return sendText(method, path, body ? body->dump() : std::string(), "Bearer " + token_);
}

Reply SandboxClient::sendText(const std::string& method, const std::string& path, const std::string& body,
                              const std::optional<std::string>& authorization) {
    httplib::Request request;
    request.method = method;
    request.path = base_ + path;
    if (authorization) request.headers.emplace("Authorization", *authorization);
    if (!body.empty()) {
        request.headers.emplace("Content-Type", "application/json");
        request.body = body;
    }
    httplib::Result result = client_.send(request);
    Reply reply;
    reply.error = result.error();
    if (!result) return reply;
    reply.status = result->status;
    reply.text = result->body;
    reply.headers = result->headers;
    reply.json = nlohmann::json::parse(reply.text, nullptr, false);
    return reply;
}

void SandboxClient::setReadTimeout(std::chrono::milliseconds timeout) { client_.set_read_timeout(timeout); }

std::string SandboxClient::create(const std::string& confirmationId, const std::string& venueId,
                                  const std::string& lastName) {
    Reply reply = send("POST", "guest/reservations",
                       nlohmann::json{{"confirmation_id", confirmationId}, {"venue_id", venueId}, {"last_name", lastName}});
    EXPECT_EQ(reply.status, 200) << reply.text;
    if (reply.status != 200) return {};
    return reply.json["reservation"]["id"].get<std::string>();
}

double SandboxClient::outstanding(const std::string& reservationId) {
    Reply reply = send("GET", "guest/reservations/" + reservationId);
    if (reply.status != 200) return std::numeric_limits<double>::quiet_NaN();
    return reply.json["reservation"]["outstanding_amount"].get<double>();
}

void SandboxTest::SetUp() {
    SandboxConfig config;
    config.workerThreads = 4;
    sandbox = std::make_unique<SandboxServer>(config);
    auto started = sandbox->start();
    ASSERT_TRUE(started.has_value()) << sandbox->lastError();
    port = *started;
    client = std::make_unique<SandboxClient>(port);
}

nlohmann::json seedBooking(const std::string& id, const std::string& reference, const std::string& status,
                           const std::string& room) {
    return {
        {"id", id},
        {"checkin_id", "chk_" + id},
        {"user_id", "u1"},
        {"venue_id", "v1"},
        {"confirmation_id", reference},
        {"reservation_number", "R-" + id},
        {"client_number", "C-" + id},
        {"booker", {{"first_name", "Terry"}, {"last_name", "Tester"}}},
        {"currency_code", "USD"},
        {"checkin_date", "2030-01-01"},
        {"checkout_date", "2030-01-02"},
        {"total_stay_amount", 100},
        {"room_number", room},
        {"guests", {{{"first_name", "Terry"}, {"last_name", "Tester"}, {"profile_code", "P-1"}}}},
        {"not_synced_amount", 0},
        {"checkin_is_available", status == "reserved"},
        {"reservation_info", "Test room"},
        {"status", status},
        {"on_platform", true},
        {"folio", {{"folio_id", "fol_" + id}, {"transactions", nlohmann::json::array()}}},
    };
}

nlohmann::json minimalSeed() {
    return {
        {"venues",
         {{{"id", "v1"},
           {"name", "Test Venue"},
           {"currency_code", "USD"},
           {"rooms", {"1", "2"}},
           {"catalog", {{{"item_id", "i1"}, {"name", "Thing"}, {"posting_code", "T"}, {"price", 1.25}}}}}}},
        {"users", {{{"id", "u1"}, {"cards", {{{"id", "c1"}, {"brand", "Visa"}, {"last4", "1111"}}}}}}},
        {"bookings", {seedBooking("b1", "REF-1", "reserved", "")}},
    };
}

namespace {

// A reply with a Content-Length is whole once that many body bytes are in; a kept-alive connection
// would otherwise only end when the server gives up on it.
bool replyComplete(const std::string& received) {
    const auto headerEnd = received.find("\r\n\r\n");
    if (headerEnd == std::string::npos) return false;
    std::string head = received.substr(0, headerEnd);
    for (char& c : head) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const auto field = head.find("\r\ncontent-length:");
    if (field == std::string::npos) return false;
    const std::size_t length = std::stoul(head.substr(field + 17));
    return received.size() >= headerEnd + 4 + length;
}

}  // namespace

std::string rawExchange(int port, const std::string& request) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return {};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    std::string received;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
        char buffer[4096];
        pollfd waiting{fd, POLLIN, 0};
        // The bound only keeps a broken server from hanging the suite; a healthy one answers at once.
        while (::poll(&waiting, 1, 10000) > 0) {
            const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n <= 0) break;
            received.append(buffer, static_cast<std::size_t>(n));
            if (replyComplete(received)) break;
        }
    }
    ::close(fd);
    return received;
}

}  // namespace pmssandbox::testing
