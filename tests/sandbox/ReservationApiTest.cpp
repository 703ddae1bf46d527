#include "SandboxTestSupport.h"

#include <set>

namespace pmssandbox::testing {
namespace {

using nlohmann::json;

json createBody(const std::string& reference, const std::string& venue, const std::string& lastName) {
    return {{"confirmation_id", reference}, {"venue_id", venue}, {"last_name", lastName}};
}

TEST_F(SandboxTest, CreateFindsBookingByReferenceVenueAndLastName) {
    struct Case {
        const char* reference;
        const char* venue;
        const char* lastName;
        const char* expectedId;
    };
    const Case cases[] = {
        {"HLI-48213", "ven_harborlight", "Quillfeather", "rsv_0001"},
        {" hli-48213 ", "ven_harborlight", "  qUILLFEATHER ", "rsv_0001"},
        {"HLI-48213", "ven_cobaltridge", "Quillfeather", "rsv_0012"},  // same reference, other venue
        {"FHL-20955", "ven_fernhill", "Underbough", "rsv_0006"},       // the booker, not staying
        {"FHL-20955", "ven_fernhill", "Kettlewell", "rsv_0006"},       // the guest
        {"QH-7745", "ven_quarry_house", "fenwick-doe", "rsv_0009"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.reference) + " at " + c.venue + " for " + c.lastName);
        Reply reply = client->send("POST", "guest/reservations", createBody(c.reference, c.venue, c.lastName));
        ASSERT_EQ(reply.status, 200) << reply.text;
        EXPECT_EQ(reply.json["reservation"]["id"], c.expectedId);
        EXPECT_EQ(reply.json["reservation"]["venue_id"], c.venue);
    }
}

TEST_F(SandboxTest, RepeatedCreateReturnsTheSameReservation) {
    Reply first = client->send("POST", "guest/reservations", createBody("HLI-48227", "ven_harborlight", "Oddleigh"));
    Reply again = client->send("POST", "guest/reservations", createBody("HLI-48227", "ven_harborlight", "oddleigh"));
    ASSERT_EQ(first.status, 200);
    EXPECT_EQ(first.json, again.json);
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0002").json, first.json);
}

TEST_F(SandboxTest, CreateWithoutMatchingBookingIsNotFound) {
    const json cases[] = {
        createBody("HLI-48240", "ven_fernhill", "Wrenfield"),      // right name, wrong venue
        createBody("HLI-48240", "ven_harborlight", "Quillfeather"), // a name from another booking
        createBody("HLI-48240", "ven_harborlight", "Wren"),         // only part of the name
        createBody("NOPE-1", "ven_harborlight", "Wrenfield"),
    };
    for (const json& body : cases) {
        SCOPED_TRACE(body.dump());
        Reply reply = client->send("POST", "guest/reservations", body);
        EXPECT_EQ(reply.status, 404);
        EXPECT_EQ(reply.errorCode(), "reservation_not_found");
    }
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0003").json["reservation"]["id"], "rsv_0003");
}

TEST_F(SandboxTest, CreateRejectsMalformedBodies) {
    struct Case {
        std::string body;
        const char* code;
    };
    const Case cases[] = {
        {"not json", "invalid_json"},
        {"[1, 2]", "invalid_json"},
        {"{}", "invalid_request"},
        {R"({"confirmation_id": "HLI-48213", "venue_id": 7, "last_name": "Quillfeather"})", "invalid_request"},
        {R"({"confirmation_id": "HLI-48213", "venue_id": "ven_harborlight", "last_name": "  "})", "invalid_request"},
        {R"({"confirmation_id": null, "venue_id": "ven_harborlight", "last_name": "Quillfeather"})", "invalid_request"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.body);
        Reply reply = client->sendText("POST", "guest/reservations", c.body, "Bearer sandbox-token");
        EXPECT_EQ(reply.status, 422);
        EXPECT_EQ(reply.errorCode(), c.code);
    }
}

TEST_F(SandboxTest, ReservationIsReachableByIdOnlyOnceCreatedUnlessSeededOnPlatform) {
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0001").status, 404);
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0001/folio").status, 404);
    client->create("HLI-48213", "ven_harborlight", "Quillfeather");
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0001").status, 200);

    Reply seeded = client->send("GET", "guest/reservations/rsv_0005");
    EXPECT_EQ(seeded.status, 200);
    Reply unknown = client->send("GET", "guest/reservations/rsv_9999");
    EXPECT_EQ(unknown.status, 404);
    EXPECT_EQ(unknown.errorCode(), "reservation_not_found");
}

TEST_F(SandboxTest, ReservationCarriesExactlyTheAgreedMembers) {
    Reply reply = client->send("GET", "guest/reservations/rsv_0003");
    ASSERT_EQ(reply.status, 200);
    ASSERT_EQ(reply.json.size(), 1u);
    const json& r = reply.json["reservation"];
    std::set<std::string> keys;
    for (const auto& item : r.items()) keys.insert(item.key());
    EXPECT_EQ(keys, (std::set<std::string>{"id", "checkin_id", "user_id", "venue_id", "confirmation_id",
                                           "reservation_number", "client_number", "currency_code", "checkin_date",
                                           "checkout_date", "total_stay_amount", "room_number", "guests",
                                           "not_synced_amount", "checkin_is_available", "reservation_info",
                                           "outstanding_amount", "status"}));
    EXPECT_DOUBLE_EQ(r["outstanding_amount"].get<double>(), 129.68);  // 189 + "22.68" + 18 - 100
    EXPECT_DOUBLE_EQ(r["not_synced_amount"].get<double>(), -22.68);
    EXPECT_EQ(r["checkin_date"], "2030-06-10");
    ASSERT_EQ(r["guests"].size(), 3u);
    EXPECT_EQ(r["guests"][2], (json{{"first_name", "Ivy"}, {"last_name", "Wrenfield"}, {"profile_code", "PRF-10006"}}));
}

TEST_F(SandboxTest, NotifyMeIsRecordedAndQueryable) {
    EXPECT_EQ(sandbox->notifyMe("rsv_0005"), std::nullopt);
    for (bool value : {true, false}) {
        SCOPED_TRACE(value);
        Reply reply = client->send("PATCH", "guest/reservations/rsv_0005", json{{"notify_me", value}});
        EXPECT_EQ(reply.status, 200);
        EXPECT_EQ(reply.json["reservation"]["id"], "rsv_0005");
        EXPECT_EQ(sandbox->notifyMe("rsv_0005"), value);
    }
    EXPECT_EQ(client->send("PATCH", "guest/reservations/rsv_9999", json{{"notify_me", true}}).status, 404);

    sandbox->resetData();
    EXPECT_EQ(sandbox->notifyMe("rsv_0005"), std::nullopt);
}

TEST_F(SandboxTest, NotifyMeMustBeABoolean) {
    const json cases[] = {json::object(), json{{"notify_me", "yes"}}, json{{"notify_me", 1}},
                          json{{"notify_me", nullptr}}, json::array({true})};
    for (const json& body : cases) {
        SCOPED_TRACE(body.dump());
        EXPECT_EQ(client->send("PATCH", "guest/reservations/rsv_0005", body).status, 422);
    }
    EXPECT_EQ(sandbox->notifyMe("rsv_0005"), std::nullopt);
}

TEST_F(SandboxTest, MobileCheckinThenCheckoutWalksTheStay) {
    Reply in = client->send("PATCH", "guest/reservations/rsv_0011/mobile_checkin");
    ASSERT_EQ(in.status, 200) << in.text;
    EXPECT_EQ(in.json["reservation"]["status"], "in_house");
    EXPECT_EQ(in.json["reservation"]["room_number"], "801");
    EXPECT_EQ(in.json["reservation"]["checkin_is_available"], false);

    Reply again = client->send("PATCH", "guest/reservations/rsv_0011/mobile_checkin");
    EXPECT_EQ(again.status, 409);

    Reply out = client->send("PATCH", "guest/reservations/rsv_0011/mobile_checkout");
    ASSERT_EQ(out.status, 200);
    EXPECT_EQ(out.json["reservation"]["status"], "checked_out");
    EXPECT_EQ(client->send("PATCH", "guest/reservations/rsv_0011/mobile_checkout").status, 409);
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0011").json["reservation"]["status"], "checked_out");
}

TEST_F(SandboxTest, MobileCheckinAndCheckoutRefuseTheWrongState) {
    client->create("HLI-48213", "ven_cobaltridge", "Quillfeather");  // reserved, check-in not open
    client->create("HLI-47990", "ven_harborlight", "Lanternfish");   // checked out
    struct Case {
        const char* id;
        const char* action;
        const char* code;
    };
    const Case cases[] = {
        {"rsv_0012", "mobile_checkin", "checkin_unavailable"},
        {"rsv_0003", "mobile_checkin", "invalid_status"},
        {"rsv_0004", "mobile_checkin", "invalid_status"},
        {"rsv_0005", "mobile_checkout", "invalid_status"},
        {"rsv_0004", "mobile_checkout", "invalid_status"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.action) + " " + c.id);
        Reply reply = client->send("PATCH", std::string("guest/reservations/") + c.id + "/" + c.action);
        EXPECT_EQ(reply.status, 409);
        EXPECT_EQ(reply.errorCode(), c.code);
    }
}

TEST(SandboxRooms, CheckinTakesTheFirstRoomNobodyHolds) {
    json seed = minimalSeed();
    seed["bookings"].push_back(seedBooking("b2", "REF-2", "reserved", "1"));  // room 1 promised already
    seed["bookings"].push_back(seedBooking("b3", "REF-3", "reserved", ""));
    seed["bookings"].push_back(seedBooking("b4", "REF-4", "in_house", "9"));  // a room outside the pool
    SandboxConfig config;
    config.seedJson = seed.dump();
    SandboxServer sandbox(config);
    auto port = sandbox.start();
    ASSERT_TRUE(port) << sandbox.lastError();
    SandboxClient client(*port);

    Reply first = client.send("PATCH", "guest/reservations/b1/mobile_checkin");
    EXPECT_EQ(first.json["reservation"]["room_number"], "2");
    Reply none = client.send("PATCH", "guest/reservations/b3/mobile_checkin");
    EXPECT_EQ(none.status, 409);
    EXPECT_EQ(none.errorCode(), "no_room_available");
    EXPECT_EQ(client.send("GET", "guest/reservations/b3").json["reservation"]["status"], "reserved");

    ASSERT_EQ(client.send("PATCH", "guest/reservations/b1/mobile_checkout").status, 200);  // frees room 2
    EXPECT_EQ(client.send("PATCH", "guest/reservations/b3/mobile_checkin").json["reservation"]["room_number"], "2");
}

}  // namespace
}  // namespace pmssandbox::testing
