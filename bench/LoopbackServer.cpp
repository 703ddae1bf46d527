#include "LoopbackServer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <sstream>
#include <string_view>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vlmsdk::bench {

// Lives in memory shared by both processes; lock-free atomics work across them.
struct LoopbackServer::Shared {
    std::atomic<bool> paused{false};
    std::atomic<std::uint64_t> requests{0};
    std::atomic<std::uint64_t> connections{0};
};

namespace {

constexpr std::string_view kAnsweredPrefix = "GET /guest/reservations/";

std::string renderResponse(const char* status, const std::string& body) {
    std::string response = std::string("HTTP/1.1 ") + status +
                           "\r\nContent-Type: application/json\r\nConnection: keep-alive\r\nContent-Length: " +
                           std::to_string(body.size()) + "\r\n\r\n";
    return response + body;
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Whether `text` is `lowerCase` but for the case of its letters.
bool equalsLower(std::string_view text, std::string_view lowerCase) {
    if (text.size() < lowerCase.size()) return false;
    for (std::size_t i = 0; i < lowerCase.size(); ++i) {
        if (lower(text[i]) != lowerCase[i]) return false;
    }
    return true;
}

// The value of header `name` (lower case, with its colon) in a request head, or an empty view.
std::string_view headerValue(std::string_view head, std::string_view name) {
    for (std::size_t at = head.find("\r\n"); at != std::string_view::npos; at = head.find("\r\n", at + 2)) {
        const std::string_view line = head.substr(at + 2, head.find("\r\n", at + 2) - (at + 2));
        if (!equalsLower(line, name)) continue;
        std::string_view value = line.substr(name.size());
        while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
        return value;
    }
    return {};
}

struct Connection {
    std::string in;
    std::size_t parsed = 0;  // bytes of `in` already answered
    std::string out;
    std::size_t sent = 0;
    bool writing = false;  // waiting for EPOLLOUT
    bool closeWhenSent = false;
};

// The child's whole life: one epoll loop until the control pipe closes.
class Server {
public:
    Server(int listener, int control, LoopbackServer::Shared& shared, const std::string& body)
        : listener_(listener), control_(control), shared_(shared),
          ok_(renderResponse("200 OK", body)),
          notFound_(renderResponse("404 Not Found", R"({"error":{"message":"No such resource."}})")) {}

    int run() {
        epoll_ = epoll_create1(EPOLL_CLOEXEC);
        if (epoll_ < 0 || !watch(listener_, EPOLLIN) || !watch(control_, EPOLLIN)) return 1;
        std::vector<epoll_event> events(256);
        for (;;) {
            const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), -1);
            if (count < 0) {
                if (errno == EINTR) continue;
                return 1;
            }
            for (int i = 0; i < count; ++i) {
                const int fd = events[static_cast<std::size_t>(i)].data.fd;
                const std::uint32_t what = events[static_cast<std::size_t>(i)].events;
                if (fd == listener_) {
                    acceptAll();
                } else if (fd == control_) {
                    if (!readControl()) return 0;
                } else {
                    serve(fd, what);
                }
            }
        }
    }

private:
    bool watch(int fd, std::uint32_t events) {
        epoll_event event{};
        event.events = events;
        event.data.fd = fd;
        return epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) == 0;
    }

    void acceptAll() {
        for (;;) {
            const int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd < 0) return;
            const int one = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
            if (static_cast<std::size_t>(fd) >= connections_.size()) connections_.resize(static_cast<std::size_t>(fd) + 1);
            connections_[static_cast<std::size_t>(fd)] = std::make_unique<Connection>();
            if (!watch(fd, EPOLLIN | EPOLLRDHUP)) {
                drop(fd);
                continue;
            }
            shared_.connections.fetch_add(1, std::memory_order_relaxed);
        }
    }

    // False once the parent has gone (end of file on the pipe).
    bool readControl() {
        char bytes[64];
        const ssize_t got = read(control_, bytes, sizeof bytes);
        if (got == 0) return false;
        if (!shared_.paused.load(std::memory_order_acquire)) {
            for (std::size_t fd = 0; fd < connections_.size(); ++fd) {
                if (connections_[fd]) answerAndFlush(static_cast<int>(fd));
            }
        }
        return true;
    }

    void serve(int fd, std::uint32_t what) {
        Connection* connection = connectionOf(fd);
        if (!connection) return;
        if (what & EPOLLIN) {
            char buffer[16384];
            for (;;) {
                const ssize_t got = read(fd, buffer, sizeof buffer);
                if (got > 0) {
                    connection->in.append(buffer, static_cast<std::size_t>(got));
                    continue;
                }
                if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
                    drop(fd);
                    return;
                }
                if (errno == EAGAIN) break;
            }
        } else if (what & (EPOLLERR | EPOLLHUP)) {
            drop(fd);
            return;
        }
        answerAndFlush(fd);
    }

    void answerAndFlush(int fd) {
        Connection* connection = connectionOf(fd);
        if (!connection) return;
        if (!shared_.paused.load(std::memory_order_acquire)) answer(*connection);
        flush(fd, *connection);
    }

    void answer(Connection& c) {
        std::uint64_t answered = 0;
        while (!c.closeWhenSent) {
            const auto end = c.in.find("\r\n\r\n", c.parsed);
            if (end == std::string::npos) break;
            const std::string_view head(c.in.data() + c.parsed, end + 4 - c.parsed);
            std::size_t bodyLength = 0;
            if (const auto length = headerValue(head, "content-length:"); !length.empty()) {
                bodyLength = std::strtoul(std::string(length).c_str(), nullptr, 10);
            }
            if (c.in.size() < end + 4 + bodyLength) break;
            c.parsed = end + 4 + bodyLength;
            c.out += head.starts_with(kAnsweredPrefix) ? ok_ : notFound_;
            ++answered;
            if (equalsLower(headerValue(head, "connection:"), "close")) c.closeWhenSent = true;
        }
        if (c.parsed == c.in.size()) {
            c.in.clear();
            c.parsed = 0;
        } else if (c.parsed > 65536) {
            c.in.erase(0, c.parsed);
            c.parsed = 0;
        }
        if (answered) shared_.requests.fetch_add(answered, std::memory_order_relaxed);
    }

    void flush(int fd, Connection& c) {
        while (c.sent < c.out.size()) {
            const ssize_t put = send(fd, c.out.data() + c.sent, c.out.size() - c.sent, MSG_NOSIGNAL);
            if (put > 0) {
                c.sent += static_cast<std::size_t>(put);
                continue;
            }
            if (put < 0 && errno == EINTR) continue;
            if (put < 0 && errno == EAGAIN) {
                if (!c.writing) setWriting(fd, c, true);
                return;
            }
            drop(fd);
            return;
        }
        c.out.clear();
        c.sent = 0;
        if (c.writing) setWriting(fd, c, false);
        if (c.closeWhenSent) drop(fd);
    }

    void setWriting(int fd, Connection& c, bool writing) {
        epoll_event event{};
        event.events = EPOLLIN | EPOLLRDHUP | (writing ? EPOLLOUT : 0u);
        event.data.fd = fd;
        epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &event);
        c.writing = writing;
    }

    Connection* connectionOf(int fd) {
        const auto index = static_cast<std::size_t>(fd);
        return index < connections_.size() ? connections_[index].get() : nullptr;
    }

    void drop(int fd) {
        epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr);
        close(fd);
        connections_[static_cast<std::size_t>(fd)].reset();
    }

    int epoll_ = -1;
    const int listener_;
    const int control_;
    LoopbackServer::Shared& shared_;
    const std::string ok_;
    const std::string notFound_;
    std::vector<std::unique_ptr<Connection>> connections_;
};

}  // namespace

std::unique_ptr<LoopbackServer> LoopbackServer::start(const std::string& replyBody, std::string* error) {
    auto fail = [&](const char* what) {
        if (error) *error = std::string(what) + ": " + std::strerror(errno);
        return nullptr;
    };
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (listener < 0) return fail("socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(listener, 4096) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        close(listener);
        return fail("listen on 127.0.0.1");
    }
    int control[2];
    if (pipe2(control, O_CLOEXEC) != 0) {
        close(listener);
        return fail("pipe");
    }
    void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        close(listener);
        close(control[0]);
        close(control[1]);
        return fail("mmap");
    }
    auto* shared = new (memory) Shared;

    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        close(listener);
        close(control[0]);
        close(control[1]);
        munmap(memory, sizeof(Shared));
        return fail("fork");
    }
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(control[1]);
        Server server(listener, control[0], *shared, replyBody);
        _exit(server.run());
    }
    close(listener);
    close(control[0]);
    return std::unique_ptr<LoopbackServer>(new LoopbackServer(child, control[1], ntohs(address.sin_port), shared));
}

LoopbackServer::LoopbackServer(pid_t child, int control, std::uint16_t port, Shared* shared)
    : child_(child), control_(control), port_(port), shared_(shared) {}

LoopbackServer::~LoopbackServer() {
    close(control_);
    int status = 0;
    while (waitpid(child_, &status, 0) < 0 && errno == EINTR) {
    }
    shared_->~Shared();
    munmap(shared_, sizeof(Shared));
}

std::string LoopbackServer::baseURL() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

void LoopbackServer::wake() const {
    const char byte = 'w';
    while (write(control_, &byte, 1) < 0 && errno == EINTR) {
    }
}

void LoopbackServer::pause() { shared_->paused.store(true, std::memory_order_release); }

void LoopbackServer::resume() {
    shared_->paused.store(false, std::memory_order_release);
    wake();
}

double LoopbackServer::cpuMicroseconds() const {
    std::ifstream schedstat("/proc/" + std::to_string(child_) + "/schedstat");
    double nanoseconds = 0;
    if (schedstat >> nanoseconds) return nanoseconds / 1000;
    // Without scheduler statistics: user plus system clock ticks.
    std::ifstream stat("/proc/" + std::to_string(child_) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const auto close = text.rfind(')');
    if (close == std::string::npos) return 0;
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    double utime = 0, stime = 0;
    for (int i = 3; fields >> field; ++i) {
        if (i == 14) utime = std::stod(field);
        if (i == 15) {
            stime = std::stod(field);
            break;
        }
    }
    return (utime + stime) * 1e6 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

std::uint64_t LoopbackServer::requestsAnswered() const { return shared_->requests.load(std::memory_order_relaxed); }

std::uint64_t LoopbackServer::connectionsAccepted() const {
    return shared_->connections.load(std::memory_order_relaxed);
}

}  // namespace vlmsdk::bench
