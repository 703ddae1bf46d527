#include "Router.h"

#include <array>
#include <vector>

namespace pmssandbox {

namespace {

using Endpoint = Router::Endpoint;

struct Route {
    bool hasId;             // guest/reservations/{id}...
    std::string_view tail;  // the segment after the id, if any
    std::string_view method;
    Endpoint endpoint;
};

constexpr std::array kRoutes{
    Route{false, "", "POST", Endpoint::CreateReservation},
    Route{true, "", "GET", Endpoint::GetReservation},
    Route{true, "", "PATCH", Endpoint::UpdateReservation},
    Route{true, "mobile_checkin", "PATCH", Endpoint::MobileCheckin},
    Route{true, "mobile_checkout", "PATCH", Endpoint::MobileCheckout},
    Route{true, "transactions", "POST", Endpoint::CreateTransaction},
    Route{true, "folio", "GET", Endpoint::GetFolio},
    Route{true, "charge", "POST", Endpoint::Charge},
};

std::vector<std::string_view> split(std::string_view path) {
    std::vector<std::string_view> segments;
    while (true) {
        const auto slash = path.find('/');
        segments.push_back(path.substr(0, slash));
        if (slash == std::string_view::npos) break;
        path.remove_prefix(slash + 1);
    }
    return segments;
}

}  // namespace

Router::Match Router::match(std::string_view method, std::string_view path) {
    Match result;
    const auto segments = split(path);
    if (segments.size() < 2 || segments.size() > 4 || segments[0] != "guest" || segments[1] != "reservations")
        return result;
    const bool hasId = segments.size() >= 3;
    if (hasId && segments[2].empty()) return result;
    const std::string_view tail = segments.size() == 4 ? segments[3] : std::string_view();
    if (segments.size() == 4 && tail.empty()) return result;

    for (const Route& route : kRoutes) {
        if (route.hasId != hasId || route.tail != tail) continue;
        if (route.method == method) {
            result.outcome = Match::Outcome::Found;
            result.endpoint = route.endpoint;
            if (hasId) result.reservationId = std::string(segments[2]);
            return result;
        }
        result.outcome = Match::Outcome::MethodNotAllowed;
        if (!result.allow.empty()) result.allow += ", ";
        result.allow += route.method;
    }
    return result;
}

}  // namespace pmssandbox
