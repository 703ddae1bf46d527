#include "AdminApi.h"

#include "BearerToken.h"
#include "FaultJson.h"
#include "FaultSwitch.h"
#include "IdempotencyStore.h"
#include "IsoTime.h"
#include "RequestLog.h"
#include "RequestLogRedactor.h"
#include "ReservationStore.h"
#include "StateDatabase.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace pmssandbox {

namespace {

using nlohmann::json;

constexpr std::string_view kPrefix = "/_sandbox/";
constexpr std::size_t kMostRequests = 1000;
constexpr std::int64_t kLongestTtlSeconds = 86400;

struct Route {
    std::string_view name;
    std::string_view methods;  // as an Allow header value
};

constexpr std::array kRoutes{
    Route{"info", "GET"},     Route{"reservations", "GET"},        Route{"cards", "GET"},
    Route{"requests", "GET"}, Route{"faults", "GET, POST, DELETE"}, Route{"reset", "POST"},
    Route{"tokens", "POST"},
};

std::uint64_t number(const std::multimap<std::string, std::string>& query, const char* name, std::uint64_t fallback) {
    auto it = query.find(name);
    if (it == query.end()) return fallback;
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(it->second.data(), it->second.data() + it->second.size(), value);
    return error == std::errc() && end == it->second.data() + it->second.size() ? value : fallback;
}

}  // namespace

AdminApi::AdminApi(StateDatabase& database, ReservationStore& store, IdempotencyStore& keys, FaultSwitch& faults,
                   const RequestLog& log, const RequestLogRedactor& redactor, BearerToken& token, Info info)
    : database_(database), store_(store), keys_(keys), faults_(faults), log_(log), redactor_(redactor), token_(token),
      info_(std::move(info)) {}

bool AdminApi::owns(std::string_view rawPath) {
    return rawPath.substr(0, kPrefix.size()) == kPrefix || rawPath == kPrefix.substr(0, kPrefix.size() - 1);
}

ApiReply AdminApi::handle(std::string_view method, std::string_view rawPath,
                          const std::multimap<std::string, std::string>& query,
                          std::optional<std::string_view> authorization, std::string_view body) const {
    if (auto refused = token_.refusal(authorization)) return std::move(*refused);
    const std::string_view name = rawPath.size() > kPrefix.size() ? rawPath.substr(kPrefix.size()) : std::string_view();
    const Route* route = nullptr;
    for (const Route& candidate : kRoutes) {
        if (candidate.name == name) route = &candidate;
    }
    if (!route) return ApiReply::error(404, "route_not_found", "Nothing is served at " + std::string(rawPath) + ".");

    const std::string verb(method);
    if (name == "info" && verb == "GET") {
        return ApiReply::ok({{"service", "pms-sandbox"},
                             {"version", PMS_SANDBOX_VERSION},
                             {"state_file", info_.stateFile ? json(*info_.stateFile) : json()},
                             {"base_path", info_.basePath}});
    }
    if (name == "reservations" && verb == "GET") return database_.read([&] { return store_.overview(); });
    if (name == "cards" && verb == "GET") return store_.cards();
    if (name == "requests" && verb == "GET") return requests(query);
    if (name == "faults" && verb == "GET") return faultList();
    if (name == "faults" && verb == "POST") return addFaults(body);
    if (name == "faults" && verb == "DELETE") {
        faults_.clear();
        return faultList();
    }
    if (name == "reset" && verb == "POST") {
        database_.write([&] {
            store_.reset();
            keys_.clear();
        });
        return ApiReply::ok({{"reset", true}});
    }
    if (name == "tokens" && verb == "POST") return issueToken(body);
    ApiReply reply = ApiReply::error(405, "method_not_allowed",
                                     verb + " is not allowed here; use " + std::string(route->methods) + ".");
    reply.headers.emplace_back("Allow", std::string(route->methods));
    return reply;
}

ApiReply AdminApi::requests(const std::multimap<std::string, std::string>& query) const {
    const auto entries = log_.since(number(query, "after", 0), std::min<std::uint64_t>(number(query, "limit", 100), kMostRequests));
    json list = json::array();
    for (const LoggedRequest& entry : entries) list.push_back(redactor_.entry(entry));
    return ApiReply::ok({{"requests", std::move(list)}, {"total", log_.count()}});
}

ApiReply AdminApi::faultList() const {
    json list = json::array();
    for (const auto& [fault, remaining] : faults_.list()) list.push_back(FaultJson::toJson(fault, remaining));
    return ApiReply::ok({{"faults", std::move(list)}});
}

ApiReply AdminApi::addFaults(std::string_view body) const {
    const json parsed = json::parse(body.begin(), body.end(), nullptr, false);
    const json list = parsed.is_array() ? parsed : json::array({parsed});
    std::vector<Fault> faults;
    for (const json& item : list) {
        std::string error;
        auto fault = FaultJson::fromJson(item, error);
        if (!fault) return ApiReply::error(422, "invalid_fault", error);
        faults.push_back(*fault);
    }
    for (const Fault& fault : faults) faults_.add(fault);
    return faultList();
}

ApiReply AdminApi::issueToken(std::string_view body) const {
    const json parsed = json::parse(body.begin(), body.end(), nullptr, false);
    const json ttl = parsed.is_object() ? parsed.value("ttl_seconds", json()) : json();
    std::int64_t seconds = 0;
    // Clamp first: a huge unsigned value must not wrap into range.
    if (ttl.is_number_unsigned())
        seconds = static_cast<std::int64_t>(std::min<std::uint64_t>(ttl.get<std::uint64_t>(), kLongestTtlSeconds + 1));
    else if (ttl.is_number_integer())
        seconds = ttl.get<std::int64_t>();
    if (seconds < 1 || seconds > kLongestTtlSeconds) {
        return ApiReply::error(400, "invalid_ttl",
                               "The body must be {\"ttl_seconds\": N}, N a whole number from 1 to " +
                                   std::to_string(kLongestTtlSeconds) + ".");
    }
    const BearerToken::Issued issued = token_.issue(std::chrono::seconds(seconds));
    return ApiReply::ok({{"token", issued.token}, {"expires_in", seconds}, {"expires_at", isoTime(issued.expiresAt)}});
}

}  // namespace pmssandbox
