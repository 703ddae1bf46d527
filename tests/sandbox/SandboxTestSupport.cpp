#include "SandboxTestSupport.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>

namespace pmssandbox {

using nlohmann::json;

std::string Reply::errorCode() const {
    const bool shaped = body.is_object() && body.size() == 1 && body.value("error", json()).size() == 2 &&
                        body["error"].value("code", json()).is_string() &&
                        body["error"].value("message", json()).is_string();
    return shaped ? body["error"]["code"].get<std::string>() : std::string();
}

std::string Reply::header(const std::string& name) const {
    auto it = headers.find(name);
    return it == headers.end() ? std::string() : it->second;
}

Reply request(int port, const std::string& method, const std::string& path, const std::string& text,
              const std::optional<std::string>& authorization, const httplib::Headers& extra) {
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(std::chrono::seconds(5));
    httplib::Request out;
    out.method = method;
    out.path = "/" + path;
    if (authorization) out.headers.emplace("Authorization", *authorization);
    if (!text.empty()) out.headers.emplace("Content-Type", "application/json");
    out.headers.insert(extra.begin(), extra.end());
    out.body = text;
    const httplib::Result result = client.send(out);
    Reply reply;
    reply.error = result.error();
    if (!result) return reply;
    reply.status = result->status;
    reply.text = result->body;
    reply.headers = result->headers;
    reply.body = json::parse(reply.text, nullptr, false);
    return reply;
}

std::string rawExchange(int port, const std::string& request, std::chrono::milliseconds wait) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, htons(static_cast<uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
    std::string received;
    char buffer[4096];
    pollfd readable{fd, POLLIN, 0};
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
        for (ssize_t n = 0; ::poll(&readable, 1, static_cast<int>(wait.count())) > 0; received.append(buffer, n)) {
            if ((n = ::recv(fd, buffer, sizeof buffer, 0)) <= 0) break;
        }
    }
    ::close(fd);
    return received;
}

TemporaryStateFile::TemporaryStateFile() {
    static int made = 0;
    path_ = (std::filesystem::temp_directory_path() /
             ("pms-sandbox-state-" + std::to_string(getpid()) + "-" + std::to_string(++made) + ".db"))
                .string();
}

TemporaryStateFile::~TemporaryStateFile() {
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) std::filesystem::remove(path_ + suffix);
}

}  // namespace pmssandbox
