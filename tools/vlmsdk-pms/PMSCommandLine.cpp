#include "PMSCommandLine.h"

#include "PMSDemo.h"
#include "PMSOutputPrinter.h"
#include "PMSSandboxCommands.h"
#include "PMSServiceConnection.h"
#include "PMSSettings.h"

#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>

#include <CLI/CLI.hpp>

#include <cmath>
#include <functional>
#include <ostream>

namespace {

constexpr int kMaximumQuantity = 999;

using Action = std::function<int(const PMSOperationRunner&, const PMSOutputPrinter&, const PMSServiceConnection&)>;

// Prints the record of a successful outcome, or the failure; answers the exit status.
template <class Result, class Print>
int report(const char* operation, const PMSOutcome<Result>& outcome, const PMSOutputPrinter& printer, Print print) {
    if (!outcome.succeeded()) {
        printer.printFailure(operation, *outcome.error);
        return PMSCommandLine::kOperationFailed;
    }
    print(outcome.result);
    return PMSCommandLine::kSucceeded;
}

int consoleLevel(int verbosity) {
    if (verbosity <= 0) return 0;  // the tool reports every failure itself
    return static_cast<int>(verbosity == 1 ? VLMSDKLogLevel::Info : VLMSDKLogLevel::Debug);
}

CLI::Validator itemValidator() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            if (PMSCommandLine::parseItem(text)) return {};
            return "'" + text + "' is not ITEM or ITEM:QTY with QTY a whole number from 1 to " +
                   std::to_string(kMaximumQuantity);
        },
        "");
}

}  // namespace

PMSCommandLine::PMSCommandLine(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

std::optional<PMSChargeItem> PMSCommandLine::parseItem(const std::string& text) {
    const auto colon = text.rfind(':');
    PMSChargeItem item{text.substr(0, colon), 1};
    if (colon != std::string::npos) {
        const std::string quantity = text.substr(colon + 1);
        if (quantity.empty() || quantity.size() > 3) return std::nullopt;
        int value = 0;
        for (char digit : quantity) {
            if (digit < '0' || digit > '9') return std::nullopt;
            value = value * 10 + (digit - '0');
        }
        if (value < 1 || value > kMaximumQuantity) return std::nullopt;
        item.quantity = value;
    }
    if (item.itemID.empty()) return std::nullopt;
    return item;
}

int PMSCommandLine::run(int argc, const char* const* argv) {
    CLI::App app{"Runs the reservation operations of the property-management kit against a reservation service.\n"
                 "Without --base-url it uses the background local service (vlmsdk-pms sandbox start) or,\n"
                 "when none runs, starts one in-process for this command only."};
    app.name("vlmsdk-pms");
    app.footer("Exit status: 0 done, 1 the operation failed, 2 usage error, 3 the local service did not start.");
    app.require_subcommand(1);
    app.fallthrough();

    PMSSettings settings;
    std::string baseURL;
    std::string token;
    double timeoutSeconds = 30;
    CLI::Option* baseURLOption =
        app.add_option("--base-url", baseURL, "The reservation service, e.g. http://127.0.0.1:8080/")
            ->envname("VLMSDK_PMS_BASE_URL");
    CLI::Option* tokenOption =
        app.add_option("--token", token, "Bearer token to send (default: the local service's own token)")
            ->envname("VLMSDK_PMS_TOKEN");
    std::string caFile;
    CLI::Option* caFileOption =
        app.add_option("--ca-file", caFile, "CA certificates (PEM) to trust instead of the system's")
            ->envname("VLMSDK_PMS_CA_FILE")
            ->check(CLI::ExistingFile);
    app.add_flag("--json", settings.json, "Print one JSON document instead of text");
    app.add_flag("-v,--verbose", settings.verbosity, "Show the SDK's log lines (twice: debug lines too)");
    app.add_option("--timeout", timeoutSeconds, "Seconds one operation may take")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.set_version_flag("--version", std::string("vlmsdk-pms ") + VLMSDK_PMS_VERSION);

    Action action;

    CLI::App* create = app.add_subcommand("create", "Create the reservation on the platform from a hotel booking");
    std::string confirmation;
    std::string venue;
    std::string lastName;
    create->add_option("--confirmation", confirmation, "The hotel's confirmation number")->required();
    create->add_option("--venue", venue, "The venue's platform identifier")->required();
    create->add_option("--last-name", lastName, "Last name the booking was made under")->required();
    create->callback([&] {
        action = [&](const PMSOperationRunner& runner, const PMSOutputPrinter& printer, const PMSServiceConnection&) {
            return report("create", runner.createReservation(confirmation, venue, lastName), printer,
                          [&](const auto& reservation) { printer.printReservation(*reservation); });
        };
    });

    std::string reservationID;
    auto addID = [&reservationID](CLI::App* command) {
        command->add_option("ID", reservationID, "The reservation's platform identifier")->required();
    };

    CLI::App* fetch = app.add_subcommand("fetch", "Fetch a reservation");
    addID(fetch);
    fetch->callback([&] {
        action = [&](const PMSOperationRunner& runner, const PMSOutputPrinter& printer, const PMSServiceConnection&) {
            return report("fetch", runner.fetchReservation(reservationID), printer,
                          [&](const auto& reservation) { printer.printReservation(*reservation); });
        };
    });

    CLI::App* confirm = app.add_subcommand("confirm", "Confirm a reservation");
    addID(confirm);
    bool notify = true;
    confirm->add_flag("--notify,!--no-notify", notify,
                      "Ask (or not) to be told when mobile check-in opens (default: --notify)");
    confirm->callback([&] {
        action = [&](const PMSOperationRunner& runner, const PMSOutputPrinter& printer, const PMSServiceConnection&) {
            return report("confirm", runner.confirmReservation(reservationID, notify), printer,
                          [&](const auto& reservation) { printer.printReservation(*reservation); });
        };
    });

    CLI::App* checkin = app.add_subcommand("checkin", "Perform mobile check-in");
    addID(checkin);
    checkin->callback([&] {
        action = [&](const PMSOperationRunner& runner, const PMSOutputPrinter& printer, const PMSServiceConnection&) {
            return report("checkin", runner.checkin(reservationID), printer,
                          [&](const auto& reservation) { printer.printReservation(*reservation); });
        };
    });

    CLI::App* checkout = app.add_subcommand("checkout", "Perform mobile check-out");
    addID(checkout);
    checkout->callback([&] {
        action = [&](const PMSOperationRunner& runner, const PMSOutputPrinter& printer, const PMSServiceConnection&) {
            return report("checkout", runner.checkout(reservationID), printer,
                          [&](bool success) { printer.printCheckout(reservationID, success); });
        };
    });

    CLI::App* pay = app.add_subcommand("pay", "Pay for a reservation with a stored card");
    addID(pay);
    std::string card;
    double amount = 0;
    std::string currency = "USD";
    pay->add_option("--card", card, "The stored card's identifier")->required();
    pay->add_option("--amount", amount, "Amount to pay, e.g. 61.00")->required();
    pay->add_option("--currency", currency, "Currency code of the amount")->capture_default_str();
    pay->callback([&] {
        action = [&](const PMSOperationRunner& runner, const PMSOutputPrinter& printer, const PMSServiceConnection&) {
            return report("pay", runner.pay(reservationID, card, amount, currency), printer,
                          [&](const auto& result) { printer.printPayment(*result); });
        };
    });

    CLI::App* folio = app.add_subcommand("folio", "Fetch a reservation's master bill");
    addID(folio);
    folio->callback([&] {
        action = [&](const PMSOperationRunner& runner, const PMSOutputPrinter& printer, const PMSServiceConnection&) {
            return report("folio", runner.fetchFolio(reservationID), printer,
                          [&](const auto& bill) { printer.printFolio(*bill); });
        };
    });

    CLI::App* charge = app.add_subcommand("charge", "Charge items to a reservation's master bill");
    addID(charge);
    std::vector<std::string> itemTexts;
    charge->add_option("ITEM", itemTexts, "Catalog item to charge, with a quantity (default 1): ITEM[:QTY]")
        ->required()
        ->type_name("ITEM[:QTY]")
        ->check(itemValidator());
    charge->callback([&] {
        action = [&](const PMSOperationRunner& runner, const PMSOutputPrinter& printer, const PMSServiceConnection&) {
            std::vector<PMSChargeItem> items;
            for (const auto& text : itemTexts) items.push_back(*parseItem(text));
            return report("charge", runner.charge(reservationID, items), printer,
                          [&](const auto& bill) { printer.printFolio(*bill); });
        };
    });

    CLI::App* demo = app.add_subcommand("demo", "Walk one guest's stay from booking to check-out");
    PMSDemoPlan plan;
    std::vector<std::string> demoItems;
    demo->add_option("--confirmation", plan.confirmationNumber, "The booking's confirmation number")
        ->capture_default_str();
    demo->add_option("--venue", plan.venueID, "The booking's venue")->capture_default_str();
    demo->add_option("--last-name", plan.lastName, "Last name on the booking")->capture_default_str();
    demo->add_option("--card", plan.creditCardID, "Stored card that pays the balance")->capture_default_str();
    demo->add_option("--item", demoItems, "Item to charge (default: itm_breakfast:2 itm_parking)")
        ->type_name("ITEM[:QTY]")
        ->check(itemValidator());
    demo->callback([&] {
        action = [&](const PMSOperationRunner& runner, const PMSOutputPrinter& printer,
                     const PMSServiceConnection& connection) {
            if (!demoItems.empty()) {
                plan.items.clear();
                for (const auto& text : demoItems) plan.items.push_back(*parseItem(text));
            }
            PMSDemo walk(runner, printer, connection.baseURL(), connection.isEmbedded());
            return walk.run(plan) ? kSucceeded : kOperationFailed;
        };
    });

    PMSSandboxCommands sandboxCommands(app, out_, err_);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version are "errors" with status 0; every real usage error exits 2.
        const int status = app.exit(error, out_, err_);
        return status == static_cast<int>(CLI::ExitCodes::Success) ? kSucceeded : kUsageError;
    }

    if (baseURLOption->count() > 0 || !baseURL.empty()) settings.baseURL = baseURL;
    if (tokenOption->count() > 0 || !token.empty()) settings.token = token;
    if (caFileOption->count() > 0 || !caFile.empty()) settings.caFile = caFile;
    settings.timeout = std::chrono::milliseconds(std::llround(timeoutSeconds * 1000.0));
    VLMSDKConsoleLogger::sharedLogger().setMaximumLevel(consoleLevel(settings.verbosity));
    if (sandboxCommands.selected()) return sandboxCommands.run(settings);

    std::string problem;
    std::unique_ptr<PMSServiceConnection> connection = PMSServiceConnection::open(settings, &problem);
    if (!connection) {
        err_ << "vlmsdk-pms: " << problem << '\n';
        return kServiceUnavailable;
    }
    if (!connection->notice().empty()) err_ << "vlmsdk-pms: " << connection->notice() << '\n';
    const PMSOperationRunner runner(connection->apiManager(), settings.timeout);
    const PMSOutputPrinter printer(out_, err_, settings.json);
    return action(runner, printer, *connection);
}
