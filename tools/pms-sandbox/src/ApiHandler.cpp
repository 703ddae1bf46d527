#include "ApiHandler.h"

#include "Money.h"
#include "ReservationStore.h"
#include "Router.h"

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

namespace pmssandbox {

namespace {

using nlohmann::json;

constexpr std::int64_t kMaxQuantity = 999;
constexpr std::size_t kMaxItemsPerCharge = 100;

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    return text;
}

ApiReply invalid(std::string message) { return ApiReply::error(422, "invalid_request", message); }

// A request body field check failed; carries the ready reply.
struct Rejection {
    ApiReply reply;
};

json objectBody(std::string_view body) {
    json parsed = json::parse(body.begin(), body.end(), nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object())
        throw Rejection{ApiReply::error(422, "invalid_json", "The request body must be a JSON object.")};
    return parsed;
}

std::string requiredText(const json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_string())
        throw Rejection{invalid(std::string("'") + key + "' is required and must be a string.")};
    std::string text(trimmed(it->get_ref<const std::string&>()));
    if (text.empty()) throw Rejection{invalid(std::string("'") + key + "' must not be empty.")};
    return text;
}

bool requiredBool(const json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_boolean())
        throw Rejection{invalid(std::string("'") + key + "' is required and must be true or false.")};
    return it->get<bool>();
}

std::int64_t requiredAmount(const json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_number())
        throw Rejection{invalid(std::string("'") + key + "' is required and must be a number.")};
    auto cents = Money::centsFromJson(*it);
    if (!cents) throw Rejection{ApiReply::error(422, "invalid_amount", "The amount must be in whole cents.")};
    return *cents;
}

std::vector<ReservationStore::ChargeLine> chargeLines(const json& object) {
    auto items = object.find("deliverable_items");
    if (items == object.end() || !items->is_array() || items->empty() || items->size() > kMaxItemsPerCharge) {
        throw Rejection{invalid("'deliverable_items' must be an array of 1 to " + std::to_string(kMaxItemsPerCharge) +
                                " items.")};
    }
    std::vector<ReservationStore::ChargeLine> lines;
    for (const json& item : *items) {
        if (!item.is_object()) throw Rejection{invalid("Each deliverable item must be an object.")};
        ReservationStore::ChargeLine line;
        line.itemId = requiredText(item, "item_id");
        auto quantity = item.find("quantity");
        std::int64_t count = 0;
        if (quantity != item.end() && quantity->is_number_unsigned()) {
            // Clamp first: a huge unsigned value must not wrap into range.
            count = static_cast<std::int64_t>(
                std::min<std::uint64_t>(quantity->get<std::uint64_t>(), static_cast<std::uint64_t>(kMaxQuantity) + 1));
        } else if (quantity != item.end() && quantity->is_number_integer()) {
            count = quantity->get<std::int64_t>();
        }
        if (count < 1 || count > kMaxQuantity) {
            throw Rejection{invalid("'quantity' must be a whole number from 1 to " + std::to_string(kMaxQuantity) +
                                    ".")};
        }
        line.quantity = count;
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace

ApiHandler::ApiHandler(ReservationStore& store, std::string token, std::string_view pathPrefix)
    : store_(store), token_(std::move(token)), base_("/") {
    while (!pathPrefix.empty() && pathPrefix.front() == '/') pathPrefix.remove_prefix(1);
    while (!pathPrefix.empty() && pathPrefix.back() == '/') pathPrefix.remove_suffix(1);
    if (!pathPrefix.empty()) base_ += std::string(pathPrefix) + "/";
}

std::optional<std::string_view> ApiHandler::routePath(std::string_view path) const {
    if (path.substr(0, base_.size()) != base_) return std::nullopt;
    return path.substr(base_.size());
}

std::optional<ApiReply> ApiHandler::checkToken(std::optional<std::string_view> authorization) const {
    if (!authorization) {
        ApiReply reply = ApiReply::error(401, "missing_token", "This request needs an Authorization: Bearer token.");
        reply.headers.emplace_back("WWW-Authenticate", "Bearer");
        return reply;
    }
    const std::string_view value = trimmed(*authorization);
    const auto space = value.find(' ');
    std::string scheme(value.substr(0, space));
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const std::string_view token = space == std::string_view::npos ? std::string_view() : trimmed(value.substr(space));
    if (scheme == "bearer" && token == token_) return std::nullopt;
    ApiReply reply = ApiReply::error(401, "invalid_token", "The bearer token is not valid for this service.");
    reply.headers.emplace_back("WWW-Authenticate", "Bearer error=\"invalid_token\"");
    return reply;
}

ApiReply ApiHandler::handle(std::string_view method, std::string_view path,
                            std::optional<std::string_view> authorization, std::string_view body) const {
    if (auto refused = checkToken(authorization)) return std::move(*refused);

    const auto relative = routePath(path);
    const Router::Match route = relative ? Router::match(method, *relative) : Router::Match{};
    if (route.outcome == Router::Match::Outcome::NotFound)
        return ApiReply::error(404, "route_not_found", "Nothing is served at " + std::string(path) + ".");
    if (route.outcome == Router::Match::Outcome::MethodNotAllowed) {
        ApiReply reply = ApiReply::error(405, "method_not_allowed",
                                         std::string(method) + " is not allowed here; use " + route.allow + ".");
        reply.headers.emplace_back("Allow", route.allow);
        return reply;
    }

    const std::string& id = route.reservationId;
    try {
        switch (route.endpoint) {
        case Router::Endpoint::CreateReservation: {
            const json request = objectBody(body);
            const std::string reference = requiredText(request, "confirmation_id");
            const std::string venue = requiredText(request, "venue_id");
            return store_.create(reference, venue, requiredText(request, "last_name"));
        }
        case Router::Endpoint::GetReservation: return store_.reservation(id);
        case Router::Endpoint::UpdateReservation: {
            const json request = objectBody(body);
            return store_.setNotifyMe(id, requiredBool(request, "notify_me"));
        }
        case Router::Endpoint::MobileCheckin: return store_.mobileCheckin(id);
        case Router::Endpoint::MobileCheckout: return store_.mobileCheckout(id);
        case Router::Endpoint::CreateTransaction: {
            const json request = objectBody(body);
            const std::string card = requiredText(request, "credit_card_id");
            const std::int64_t cents = requiredAmount(request, "amount");
            const std::string currency = requiredText(request, "currency");
            return store_.pay(id, card, cents, currency);
        }
        case Router::Endpoint::GetFolio: return store_.folio(id);
        case Router::Endpoint::Charge: return store_.charge(id, chargeLines(objectBody(body)));
        }
    } catch (Rejection& rejection) {
        return std::move(rejection.reply);
    }
    return ApiReply::error(500, "internal_error", "The request reached no handler.");
}

}  // namespace pmssandbox
