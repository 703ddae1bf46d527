#pragma once

#include <optional>
#include <string>
#include <utility>

/// The address of a reservation service, read with libcurl's URL API: an http or https URL with a host.
class PMSServiceURL {
public:
    /// The URL, or nullopt with what is wrong with it in `problem` (the text itself is never repeated, since
    /// it may hold a password).
    static std::optional<PMSServiceURL> parse(const std::string& text, std::string* problem = nullptr);

    const std::string& text() const { return text_; }
    /// The URL with its password, if any, as "***".
    const std::string& shown() const { return shown_; }

private:
    PMSServiceURL(std::string text, std::string shown) : text_(std::move(text)), shown_(std::move(shown)) {}

    std::string text_;
    std::string shown_;
};
