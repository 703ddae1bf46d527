#pragma once

#include <string>

namespace pmssandbox {

/// Cuts an accepted connection from inside a request handler, which the HTTP library gives no handle
/// for: the kernel's socket table names the connection's inode, and /proc/self/fd names its descriptor.
/// Only the connection's own descriptor is ever touched, so sockets other threads own are left alone.
class ConnectionDropper {
public:
    /// Shuts down the IPv4 connection from `localAddr`:`localPort` to `remoteAddr`:`remotePort`
    /// (numeric addresses). Returns false when no such connection belongs to this process.
    static bool drop(const std::string& localAddr, int localPort, const std::string& remoteAddr, int remotePort);
};

}  // namespace pmssandbox
