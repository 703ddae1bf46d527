// Sends a fixed number of guest requests to a running pms-sandbox over keep-alive connections, one
// thread per connection, and prints errors and latencies. Loopback only; scripts/sandbox-load.sh runs it.
//
//   vlmsdk-bench-sandbox-load --url http://127.0.0.1:PORT/ [--requests 20000] [--connections 32]
#include <pmssandbox/SandboxClient.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// Every seeded booking that can take charges and payments, with a card of its guest and an item of its
// venue; spread over all of them, no folio grows far beyond what a long stay has.
struct Stay {
    const char* id;
    const char* create;  // the body that puts it on the platform
    const char* card;
    const char* currency;
    const char* item;
    const char* price;
};
constexpr Stay kStays[] = {
    {"rsv_0001", R"({"confirmation_id": "HLI-48213", "venue_id": "ven_harborlight", "last_name": "Quillfeather"})",
     "card_ada_visa_4242", "USD", "itm_sparkling_water", "4.50"},
    {"rsv_0002", R"({"confirmation_id": "HLI-48227", "venue_id": "ven_harborlight", "last_name": "Oddleigh"})",
     "card_bart_visa_1881", "USD", "itm_parking", "25.00"},
    {"rsv_0003", R"({"confirmation_id": "HLI-48240", "venue_id": "ven_harborlight", "last_name": "Wrenfield"})",
     "card_cassia_visa_0077", "USD", "itm_breakfast", "18.00"},
    {"rsv_0005", R"({"confirmation_id": "FHL-20931", "venue_id": "ven_fernhill", "last_name": "Moorhen"})",
     "card_elspeth_mc_4444", "EUR", "itm_dog_fee", "15.00"},
    {"rsv_0006", R"({"confirmation_id": "FHL-20955", "venue_id": "ven_fernhill", "last_name": "Underbough"})",
     "card_greta_visa_7777", "EUR", "itm_spa_pass", "45.00"},
    {"rsv_0008", R"({"confirmation_id": "QH-7731", "venue_id": "ven_quarry_house", "last_name": "Saltmarsh"})",
     "card_ines_visa_2020", "GBP", "itm_laundry_bag", "12.50"},
    {"rsv_0009", R"({"confirmation_id": "QH-7745", "venue_id": "ven_quarry_house", "last_name": "Fenwick-Doe"})",
     "card_jasper_visa_3141", "GBP", "itm_afternoon_tea", "28.00"},
    {"rsv_0011", R"({"confirmation_id": "CRS-00318", "venue_id": "ven_cobaltridge", "last_name": "Puddlestone"})",
     "card_lorcan_visa_6060", "USD", "itm_gym_pass", "10.00"},
    {"rsv_0012", R"({"confirmation_id": "HLI-48213", "venue_id": "ven_cobaltridge", "last_name": "Quillfeather"})",
     "card_rufus_visa_1234", "USD", "itm_airport_shuttle", "22.00"},
    {"rsv_0013", R"({"confirmation_id": "CRS-00342", "venue_id": "ven_cobaltridge", "last_name": "Quillfeather"})",
     "card_ada_visa_4242", "USD", "itm_room_service", "31.75"},
};

struct Outcome {
    std::vector<double> milliseconds;
    int errors = 0;
    std::string firstError;
};

double percentile(const std::vector<double>& sorted, double p) {
    if (sorted.empty()) return 0;
    return sorted[std::min(sorted.size() - 1, static_cast<std::size_t>(p * static_cast<double>(sorted.size())))];
}

}  // namespace

int main(int argc, char** argv) {
    std::string url;
    std::string token = "sandbox-token";
    int requests = 20000;
    int connections = 32;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--url")) url = argv[i + 1];
        else if (!std::strcmp(argv[i], "--token")) token = argv[i + 1];
        else if (!std::strcmp(argv[i], "--requests")) requests = std::atoi(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--connections")) connections = std::atoi(argv[i + 1]);
    }
    if (url.rfind("http://127.", 0) != 0 || requests < 1 || requests > 1000000 || connections < 1 || connections > 256) {
        std::fprintf(stderr, "usage: %s --url http://127.0.0.1:PORT/ [--requests N] [--connections C]\n", argv[0]);
        return 2;
    }
    const std::string base = url.substr(url.find('/', std::strlen("http://")));

    pmssandbox::SandboxClient setup(url, token);
    for (const Stay& stay : kStays) {
        const auto reply = setup.send("POST", base + "guest/reservations", stay.create);
        if (reply.status != 200) {
            std::fprintf(stderr, "setup failed: %d %s %s\n", reply.status, reply.error.c_str(), reply.body.c_str());
            return 1;
        }
    }

    std::vector<Outcome> outcomes(static_cast<std::size_t>(connections));
    const auto started = Clock::now();
    {
        std::vector<std::jthread> threads;
        for (int c = 0; c < connections; ++c) {
            threads.emplace_back([&, c] {
                Outcome& outcome = outcomes[static_cast<std::size_t>(c)];
                pmssandbox::SandboxClient client(url, token, std::chrono::seconds(10), true);
                const Stay& stay = kStays[c % std::size(kStays)];
                const std::string reservation = base + "guest/reservations/" + stay.id;
                const std::string charge = std::string(R"({"deliverable_items": [{"item_id": ")") + stay.item +
                                           R"(", "quantity": 1}]})";
                const std::string pay = std::string(R"({"credit_card_id": ")") + stay.card + R"(", "amount": )" +
                                        stay.price + R"(, "currency": ")" + stay.currency + "\"}";
                const int mine = requests / connections + (c < requests % connections ? 1 : 0);
                for (int i = 0; i < mine; ++i) {
                    // A guest's charge always comes before the payment that settles it.
                    const int kind = i % 4;
                    const auto sent = Clock::now();
                    const auto reply = kind == 1   ? client.send("POST", reservation + "/charge", charge)
                                       : kind == 3 ? client.send("POST", reservation + "/transactions", pay)
                                                   : client.send("GET", reservation);
                    outcome.milliseconds.push_back(std::chrono::duration<double, std::milli>(Clock::now() - sent).count());
                    if (reply.status / 100 != 2) {
                        if (outcome.errors++ == 0)
                            outcome.firstError = std::to_string(reply.status) + " " + reply.error + " " + reply.body.substr(0, 200);
                    }
                }
            });
        }
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - started).count();

    std::vector<double> all;
    int errors = 0;
    for (const Outcome& outcome : outcomes) {
        all.insert(all.end(), outcome.milliseconds.begin(), outcome.milliseconds.end());
        errors += outcome.errors;
        if (!outcome.firstError.empty()) std::fprintf(stderr, "first error on a connection: %s\n", outcome.firstError.c_str());
    }
    std::sort(all.begin(), all.end());
    std::printf("requests %zu over %d keep-alive connections in %.2f s (%.0f req/s)\n", all.size(), connections,
                seconds, static_cast<double>(all.size()) / seconds);
    std::printf("errors %d\n", errors);
    std::printf("latency ms: p50 %.2f  p99 %.2f  max %.2f\n", percentile(all, 0.50), percentile(all, 0.99),
                all.empty() ? 0.0 : all.back());
    return errors == 0 ? 0 : 1;
}
