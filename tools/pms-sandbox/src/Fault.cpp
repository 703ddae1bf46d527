#include <pmssandbox/Fault.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace pmssandbox {

namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::toupper(static_cast<unsigned char>(x)) == std::toupper(static_cast<unsigned char>(y));
           });
}

std::string_view withoutLeadingSlashes(std::string_view path) {
    while (!path.empty() && path.front() == '/') path.remove_prefix(1);
    return path;
}

}  // namespace

Fault Fault::delay(std::chrono::milliseconds delay) {
    Fault fault;
    fault.delay_ = std::max(delay, std::chrono::milliseconds(0));
    return fault;
}

Fault Fault::dropConnection() {
    Fault fault;
    fault.action_ = Action::DropConnection;
    return fault;
}

Fault Fault::dropReply() {
    Fault fault;
    fault.action_ = Action::DropReply;
    return fault;
}

Fault Fault::forceStatus(int status) {
    Fault fault;
    fault.action_ = Action::ForceStatus;
    fault.status_ = (status >= 400 && status <= 599) ? status : 500;
    return fault;
}

Fault Fault::notJson(std::string body) {
    Fault fault;
    fault.action_ = Action::NotJson;
    fault.status_ = 200;
    fault.body_ = std::move(body);
    return fault;
}

Fault Fault::withDelay(std::chrono::milliseconds delay) const {
    Fault copy = *this;
    copy.delay_ = std::max(delay, std::chrono::milliseconds(0));
    return copy;
}

Fault Fault::withRetryAfter(std::chrono::seconds seconds) const {
    Fault copy = *this;
    copy.retryAfter_ = std::max(seconds, std::chrono::seconds(0));
    return copy;
}

Fault Fault::matching(std::string method, std::string pathPrefix) const {
    Fault copy = *this;
    copy.method_ = std::move(method);
    copy.pathPrefix_ = std::string(withoutLeadingSlashes(pathPrefix));
    return copy;
}

Fault Fault::times(int count) const {
    Fault copy = *this;
    copy.remaining_ = count < 1 ? -1 : count;
    return copy;
}

bool Fault::matches(std::string_view method, std::string_view path) const {
    if (!method_.empty() && !equalsIgnoringCase(method_, method)) return false;
    return withoutLeadingSlashes(path).substr(0, pathPrefix_.size()) == pathPrefix_;
}

}  // namespace pmssandbox
