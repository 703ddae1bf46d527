#pragma once

#include <string>
#include <string_view>

namespace pmssandbox {

/// Maps a method and a base-relative path such as "guest/reservations/rsv_1/folio" to an endpoint.
class Router {
public:
    enum class Endpoint {
        CreateReservation,
        GetReservation,
        UpdateReservation,
        MobileCheckin,
        MobileCheckout,
        CreateTransaction,
        GetFolio,
        Charge,
    };

    /// An endpoint, no route at all (404), or a route that takes other methods (405).
    struct Match {
        enum class Outcome { Found, NotFound, MethodNotAllowed };
        Outcome outcome = Outcome::NotFound;
        Endpoint endpoint = Endpoint::GetReservation;
        std::string reservationId;
        /// For MethodNotAllowed: the methods the route does take, as an Allow header value.
        std::string allow;
    };

    static Match match(std::string_view method, std::string_view path);
};

}  // namespace pmssandbox
