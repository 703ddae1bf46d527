#include "ConnectionDropper.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>

namespace pmssandbox {

namespace {

// The kernel's spelling in /proc/net/tcp: the address word as stored, then the port, in hex.
std::optional<std::string> kernelEndpoint(const std::string& address, int port) {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1 || port < 0 || port > 65535) return std::nullopt;
    char text[16];
    std::snprintf(text, sizeof text, "%08X:%04X", static_cast<unsigned>(parsed.s_addr), static_cast<unsigned>(port));
    return std::string(text);
}

std::optional<std::string> socketInode(const std::string& local, const std::string& remote) {
    std::ifstream table("/proc/self/net/tcp");
    std::string line;
    std::getline(table, line);  // column titles
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, localField, remoteField, state, queues, timer, retransmits, uid, timeout, inode;
        if (!(fields >> slot >> localField >> remoteField >> state >> queues >> timer >> retransmits >> uid >> timeout >>
              inode))
            continue;
        if (localField == local && remoteField == remote && inode != "0") return inode;
    }
    return std::nullopt;
}

}  // namespace

bool ConnectionDropper::drop(const std::string& localAddr, int localPort, const std::string& remoteAddr,
                             int remotePort) {
    const auto local = kernelEndpoint(localAddr, localPort);
    const auto remote = kernelEndpoint(remoteAddr, remotePort);
    if (!local || !remote) return false;
    const auto inode = socketInode(*local, *remote);
    if (!inode) return false;

    const std::string wanted = "socket:[" + *inode + "]";
    DIR* directory = opendir("/proc/self/fd");
    if (!directory) return false;
    bool dropped = false;
    // Links are read by path, never through other threads' descriptors. The one that matches is the
    // connection the calling handler holds open, so it cannot be closed and reused under us.
    while (dirent* entry = readdir(directory)) {
        char* end = nullptr;
        const long fd = std::strtol(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0') continue;
        char target[64];
        const std::string link = std::string("/proc/self/fd/") + entry->d_name;
        const ssize_t length = readlink(link.c_str(), target, sizeof target);
        if (length <= 0 || wanted.compare(0, std::string::npos, target, static_cast<std::size_t>(length)) != 0) continue;
        dropped = ::shutdown(static_cast<int>(fd), SHUT_RDWR) == 0;
        break;
    }
    closedir(directory);
    return dropped;
}

}  // namespace pmssandbox
