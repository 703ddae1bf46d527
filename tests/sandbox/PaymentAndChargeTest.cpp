#include "SandboxTestSupport.h"

#include <regex>
#include <set>

namespace pmssandbox::testing {
namespace {

using nlohmann::json;

json payment(const std::string& card, json amount, const std::string& currency) {
    return {{"credit_card_id", card}, {"amount", std::move(amount)}, {"currency", currency}};
}

TEST_F(SandboxTest, PaymentLowersBothBalancesAndPostsToTheFolio) {
    const std::size_t linesBefore = client->send("GET", "guest/reservations/rsv_0003/folio").json["transactions"].size();

    Reply paid = client->send("POST", "guest/reservations/rsv_0003/transactions",
                              payment("card_cassia_visa_0077", 29.68, "USD"));
    ASSERT_EQ(paid.status, 200) << paid.text;
    EXPECT_DOUBLE_EQ(paid.json["reservation"]["outstanding_amount"].get<double>(), 100.0);
    const json& transaction = paid.json["transaction"];
    EXPECT_DOUBLE_EQ(transaction["amount"].get<double>(), 29.68);
    EXPECT_EQ(transaction["currency"], "USD");
    EXPECT_EQ(transaction["status"], "succeeded");
    EXPECT_EQ(transaction["credit_card_id"], "card_cassia_visa_0077");
    EXPECT_TRUE(std::regex_match(transaction["created_at"].get<std::string>(),
                                 std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));

    Reply folio = client->send("GET", "guest/reservations/rsv_0003/folio");
    EXPECT_DOUBLE_EQ(folio.json["outstanding_amount"].get<double>(), 100.0);
    ASSERT_EQ(folio.json["transactions"].size(), linesBefore + 1);
    EXPECT_DOUBLE_EQ(folio.json["transactions"].back()["amount"].get<double>(), -29.68);
    EXPECT_EQ(folio.json["transactions"].back()["currency_code"], "USD");

    // Paying the rest exactly is allowed and leaves nothing owed.
    Reply rest = client->send("POST", "guest/reservations/rsv_0003/transactions",
                              payment("card_cassia_amex_2002", 100, "USD"));
    ASSERT_EQ(rest.status, 200);
    EXPECT_NE(rest.json["transaction"]["id"], transaction["id"]);
    EXPECT_DOUBLE_EQ(client->outstanding("rsv_0003"), 0.0);
}

TEST_F(SandboxTest, RefusedPaymentsLeaveTheBalanceAlone) {
    struct Case {
        json body;
        int status;
        const char* code;
    };
    const Case cases[] = {
        {payment("card_ada_visa_4242", 10, "USD"), 402, "card_declined"},  // another guest's card
        {payment("card_nobody_0000", 10, "USD"), 402, "card_declined"},
        {payment("card_cassia_mc_0119", 10, "USD"), 402, "card_declined"},  // the issuer says no
        {payment("card_cassia_visa_0077", 0, "USD"), 422, "invalid_amount"},
        {payment("card_cassia_visa_0077", -5, "USD"), 422, "invalid_amount"},
        {payment("card_cassia_visa_0077", 1.005, "USD"), 422, "invalid_amount"},
        {payment("card_cassia_visa_0077", 10, "EUR"), 422, "currency_mismatch"},
        {payment("card_cassia_visa_0077", "10.00", "USD"), 422, "invalid_request"},
        {json{{"amount", 10}, {"currency", "USD"}}, 422, "invalid_request"},
        {payment("card_cassia_visa_0077", 129.69, "USD"), 409, "amount_exceeds_balance"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.body.dump());
        Reply reply = client->send("POST", "guest/reservations/rsv_0003/transactions", c.body);
        EXPECT_EQ(reply.status, c.status);
        EXPECT_EQ(reply.errorCode(), c.code);
    }
    EXPECT_DOUBLE_EQ(client->outstanding("rsv_0003"), 129.68);
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0003/folio").json["transactions"].size(), 4u);
}

TEST_F(SandboxTest, FolioKeepsAmountsTheHotelSentAsText) {
    Reply folio = client->send("GET", "guest/reservations/rsv_0003/folio");
    ASSERT_EQ(folio.status, 200);
    std::set<std::string> keys;
    for (const auto& item : folio.json.items()) keys.insert(item.key());
    EXPECT_EQ(keys, (std::set<std::string>{"folio_id", "outstanding_amount", "currency", "transactions"}));
    EXPECT_EQ(folio.json["folio_id"], "fol_0003");
    EXPECT_EQ(folio.json["currency"], "USD");
    const json& lines = folio.json["transactions"];
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[1], (json{{"posting_name", "Room tax - night 1"}, {"posting_code", "TAX"}, {"amount", "22.68"},
                              {"currency_code", "USD"}}));
    EXPECT_TRUE(lines[0]["amount"].is_number());
}

TEST_F(SandboxTest, ChargeAddsOnePostingPerItemAndRaisesTheBalance) {
    Reply folio = client->send(
        "POST", "guest/reservations/rsv_0009/charge",
        json{{"deliverable_items", {{{"item_id", "itm_laundry_bag"}, {"quantity", 2}},
                                    {{"item_id", "itm_picnic_hamper"}, {"quantity", 1}}}}});
    ASSERT_EQ(folio.status, 200) << folio.text;
    EXPECT_EQ(folio.json["folio_id"], "fol_0009");
    EXPECT_DOUBLE_EQ(folio.json["outstanding_amount"].get<double>(), 298.0);  // 238 + 2 x 12.50 + 35
    const json& lines = folio.json["transactions"];
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[2], (json{{"posting_name", "Laundry bag"}, {"posting_code", "LDY"}, {"amount", 25.0},
                              {"currency_code", "GBP"}}));
    EXPECT_EQ(lines[3]["posting_code"], "FB-PIC");
    EXPECT_DOUBLE_EQ(client->outstanding("rsv_0009"), 298.0);
}

TEST_F(SandboxTest, RefusedChargesLeaveTheFolioAlone) {
    auto items = [](json list) { return json{{"deliverable_items", std::move(list)}}; };
    struct Case {
        json body;
        const char* code;
    };
    const Case cases[] = {
        {items({{{"item_id", "itm_parking"}, {"quantity", 1}}}), "unknown_item"},  // sold by another venue
        {items({{{"item_id", "itm_laundry_bag"}, {"quantity", 1}}, {{"item_id", "itm_nothing"}, {"quantity", 1}}}),
         "unknown_item"},
        {items({{{"item_id", "itm_laundry_bag"}, {"quantity", 0}}}), "invalid_request"},
        {items({{{"item_id", "itm_laundry_bag"}, {"quantity", -1}}}), "invalid_request"},
        {items({{{"item_id", "itm_laundry_bag"}, {"quantity", 1.5}}}), "invalid_request"},
        {items({{{"item_id", "itm_laundry_bag"}, {"quantity", "2"}}}), "invalid_request"},
        {items({{{"item_id", "itm_laundry_bag"}, {"quantity", 18446744073709551615ull}}}), "invalid_request"},
        {items({{{"item_id", "itm_laundry_bag"}}}), "invalid_request"},
        {items({{{"quantity", 1}}}), "invalid_request"},
        {items(json::array()), "invalid_request"},
        {items(json::object()), "invalid_request"},
        {json::object(), "invalid_request"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.body.dump());
        Reply reply = client->send("POST", "guest/reservations/rsv_0009/charge", c.body);
        EXPECT_EQ(reply.status, 422);
        EXPECT_EQ(reply.errorCode(), c.code);
    }
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0009/folio").json["transactions"].size(), 2u);
    EXPECT_DOUBLE_EQ(client->outstanding("rsv_0009"), 238.0);
}

TEST_F(SandboxTest, CheckedOutReservationTakesNoCharges) {
    const json body{{"deliverable_items", {{{"item_id", "itm_parking"}, {"quantity", 1}}}}};
    client->create("HLI-47990", "ven_harborlight", "Lanternfish");
    Reply seeded = client->send("POST", "guest/reservations/rsv_0004/charge", body);
    EXPECT_EQ(seeded.status, 409);
    EXPECT_EQ(seeded.errorCode(), "reservation_checked_out");

    ASSERT_EQ(client->send("PATCH", "guest/reservations/rsv_0003/mobile_checkout").status, 200);
    EXPECT_EQ(client->send("POST", "guest/reservations/rsv_0003/charge", body).status, 409);
    // Settling up after departure still works.
    EXPECT_EQ(client->send("POST", "guest/reservations/rsv_0003/transactions",
                           payment("card_cassia_visa_0077", 129.68, "USD"))
                  .status,
              200);
}

}  // namespace
}  // namespace pmssandbox::testing
