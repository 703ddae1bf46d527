#pragma once

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <optional>
#include <string>

namespace pmssandbox {

/// What came back for one request. `status` is 0 when no HTTP reply arrived (see `error`).
struct Reply {
    int status = 0;
    httplib::Error error = httplib::Error::Success;
    std::string text;
    nlohmann::json body;  // discarded when `text` is not JSON
    httplib::Headers headers;

    /// The code of an {"error": {"code", "message"}} body, which must have exactly that shape; else empty.
    std::string errorCode() const;
    /// The first value of reply header `name`, empty when absent.
    std::string header(const std::string& name) const;
};

/// Sends `text` verbatim (none when empty) to "/" + `path`, as an app would; nullopt leaves Authorization
/// out. `extra` headers go along.
Reply request(int port, const std::string& method, const std::string& path, const std::string& text = "",
              const std::optional<std::string>& authorization = "Bearer sandbox-token",
              const httplib::Headers& extra = {});

/// Writes `request` (which should ask for "Connection: close") to a fresh connection and returns everything
/// read until the server closes it, or until nothing came for `wait`.
std::string rawExchange(int port, const std::string& request,
                        std::chrono::milliseconds wait = std::chrono::seconds(10));

/// A file name in the temporary directory, unique to this process and call, removed with its SQLite
/// companions when the object goes.
class TemporaryStateFile {
public:
    TemporaryStateFile();
    ~TemporaryStateFile();
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace pmssandbox
