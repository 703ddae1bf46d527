#include "ApiHandler.h"

#include "AsciiText.h"
#include "BearerToken.h"
#include "IdempotencyStore.h"
#include "Money.h"
#include "ReservationStore.h"
#include "StateDatabase.h"

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

namespace pmssandbox {

namespace {

using nlohmann::json;

constexpr std::int64_t kMaxQuantity = 999;
constexpr std::size_t kMaxItemsPerCharge = 100;

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

ApiHandler::ApiHandler(StateDatabase& database, ReservationStore& store, IdempotencyStore& keys,
                       const BearerToken& token, std::string_view pathPrefix)
    : database_(database), store_(store), keys_(keys), token_(token), base_("/") {
    while (!pathPrefix.empty() && pathPrefix.front() == '/') pathPrefix.remove_prefix(1);
    while (!pathPrefix.empty() && pathPrefix.back() == '/') pathPrefix.remove_suffix(1);
    if (!pathPrefix.empty()) base_ += std::string(pathPrefix) + "/";
}

std::optional<std::string_view> ApiHandler::routePath(std::string_view path) const {
    if (path.substr(0, base_.size()) != base_) return std::nullopt;
    return path.substr(base_.size());
}

ApiReply ApiHandler::handle(std::string_view method, std::string_view path,
                            std::optional<std::string_view> authorization, std::string_view body,
                            std::optional<std::string_view> idempotencyKey) const {
    if (auto refused = token_.refusal(authorization)) return std::move(*refused);

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

    const bool changes = method == "POST" || method == "PATCH";
    if (!changes) return database_.read([&] { return dispatch(route, body); });
    if (!idempotencyKey) return database_.write([&] { return dispatch(route, body); });
    if (!IdempotencyStore::isValidKey(*idempotencyKey)) {
        return ApiReply::error(422, "invalid_idempotency_key",
                               "An Idempotency-Key must be 1 to 255 visible ASCII characters.");
    }
    return database_.write([&] { return once(route, method, *relative, body, std::string(*idempotencyKey)); });
}

ApiReply ApiHandler::once(const Router::Match& route, std::string_view method, std::string_view routePath,
                          std::string_view body, const std::string& key) const {
    const std::string fingerprint = IdempotencyStore::fingerprint(method, routePath, body);
    if (auto stored = keys_.find(key)) {
        if (stored->fingerprint != fingerprint) {
            return ApiReply::error(422, "idempotency_key_reused",
                                   "This Idempotency-Key was already used for a different request.");
        }
        stored->reply.headers.emplace_back(kReplayedHeader, "true");
        return std::move(stored->reply);
    }
    ApiReply reply = dispatch(route, body);
    keys_.save(key, fingerprint, reply);
    return reply;
}

ApiReply ApiHandler::dispatch(const Router::Match& route, std::string_view body) const {
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
