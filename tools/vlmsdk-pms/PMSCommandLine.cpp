#include "PMSCommandLine.h"

#include "PMSArgumentRules.h"
#include "PMSDemo.h"
#include "PMSFailureExplainer.h"
#include "PMSOutboxCommands.h"
#include "PMSOperationRunner.h"
#include "PMSOutputPrinter.h"
#include "PMSRecorder.h"
#include "PMSSandboxCommands.h"
#include "PMSServiceConnection.h"
#include "PMSSettings.h"
#include "PMSUsage.h"
#include "PMSWireLog.h"

#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>
#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutbox.h>

#include <CLI/CLI.hpp>

#include <sstream>

#include <functional>
#include <ostream>

namespace {

using Kind = PMSArgumentRules::Kind;

/// What a subcommand works with once the service is reached.
struct Session {
    const PMSOperationRunner& runner;
    const PMSOutputPrinter& printer;
    const PMSFailureExplainer& explainer;
    const PMSServiceConnection& connection;
};
using Action = std::function<int(const Session&)>;

// Prints the record of a successful outcome, or the failure; answers the exit status.
template <class Result, class Print>
int report(const Session& session, const char* operation, const std::optional<std::string>& reservationID,
           const PMSOutcome<Result>& outcome, Print print) {
    if (!outcome.succeeded()) {
        session.printer.printFailure(session.explainer.explain(operation, outcome.error, reservationID));
        return PMSCommandLine::kOperationFailed;
    }
    print(outcome.result);
    return PMSCommandLine::kSucceeded;
}

std::vector<PMSChargeItem> items(const std::vector<std::string>& texts) {
    std::vector<PMSChargeItem> parsed;
    for (const auto& text : texts) parsed.push_back(*PMSArgumentRules::item(text));
    return parsed;
}

}  // namespace

PMSCommandLine::PMSCommandLine(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

int PMSCommandLine::run(int argc, const char* const* argv) {
    CLI::App app{"Runs the reservation operations of the property-management kit against a reservation service.\n"
                 "Without --base-url it uses the background local service (vlmsdk-pms sandbox start) or,\n"
                 "when none runs, starts one in-process for this command only."};
    app.name("vlmsdk-pms");
    app.footer("Exit status: 0 done, 1 the operation failed, 2 usage error (nothing was sent), 3 the local service "
               "did not start or does not run, or (outbox send) items remain because the service did not take them.");
    app.fallthrough();

    PMSSettings settings;
    std::string baseURL;
    std::string token;
    std::string timeout = "30";
    CLI::Option* baseURLOption =
        app.add_option("--base-url", baseURL, "The reservation service, e.g. http://127.0.0.1:8080/")
            ->envname("VLMSDK_PMS_BASE_URL")
            ->type_name("URL")
            ->check(PMSUsage::rule(Kind::ServiceURL));
    CLI::Option* tokenOption =
        app.add_option("--token", token, "Bearer token to send (default: the local service's own token)")
            ->envname("VLMSDK_PMS_TOKEN")
            ->type_name("TOKEN");
    std::string caFile;
    CLI::Option* caFileOption =
        app.add_option("--ca-file", caFile, "CA certificates (PEM) to trust instead of the system's")
            ->envname("VLMSDK_PMS_CA_FILE")
            ->type_name("FILE")
            ->check(CLI::ExistingFile);
    std::string transport = "libcurl";
    app.add_option("--transport", transport,
                   "Who speaks HTTP: libcurl, as a host app does, or http1, the core's own HTTP/1.1 connections "
                   "(plain http to an address only; anything else still goes through libcurl)")
        ->envname("VLMSDK_PMS_TRANSPORT")
        ->type_name("libcurl|http1")
        ->check(CLI::IsMember({"libcurl", "http1"}))
        ->capture_default_str();
    std::string retries = "2";
    app.add_option("--retries", retries,
                   "Attempts after the first, only where sending again cannot act twice: a request that never "
                   "left, a GET after a lost connection, a timeout or 429/502/503/504, and with idempotency keys a "
                   "POST or PATCH too; 0 sends each request once")
        ->envname("VLMSDK_PMS_RETRIES")
        ->type_name("N")
        ->check(PMSUsage::rule(Kind::Retries))
        ->capture_default_str();
    std::string keys = "auto";
    app.add_option("--idempotency-keys", keys,
                   "Send an Idempotency-Key with each POST and PATCH, so that one whose answer was lost is sent "
                   "again and acted on once; auto: on for the local service (it honours keys), off for --base-url")
        ->envname("VLMSDK_PMS_IDEMPOTENCY_KEYS")
        ->type_name("auto|on|off")
        ->check(CLI::IsMember({"auto", "on", "off"}))
        ->capture_default_str();
    std::string tokenLifetime = "3600";
    app.add_option("--token-ttl", tokenLifetime,
                   "Seconds the tokens asked of the local service live (without --token); they are fetched anew "
                   "before they expire")
        ->envname("VLMSDK_PMS_TOKEN_TTL")
        ->type_name("SECONDS")
        ->check(PMSUsage::rule(Kind::Seconds))
        ->capture_default_str();
    app.add_flag("--json", settings.json, "Print one JSON document instead of text");
    app.add_flag("-v,--verbose", settings.verbosity,
                 "Show each HTTP request on standard error (twice: with headers and bodies)");
    app.add_option("--timeout", timeout, "Seconds one operation (or a whole 'outbox send') may take")
        ->type_name("SECONDS")
        ->check(PMSUsage::rule(Kind::Seconds))
        ->capture_default_str();
    std::string recordDirectory;
    app.add_option("--record", recordDirectory,
                   "Write each HTTP exchange of the operation into DIR as a fixture file the testing library loads "
                   "(VLMSDKFixture), numbered after those there; no token, card ids hidden")
        ->type_name("DIR");
    std::string outboxFile;
    CLI::Option* outboxOption =
        app.add_option("--outbox", outboxFile,
                       "The outbox file that --queue and 'outbox' use (default: outbox.db in the state directory)")
            ->envname("VLMSDK_PMS_OUTBOX")
            ->type_name("FILE")
            ->check(CLI::Validator(
                [](std::string& text) { return text.empty() ? std::string("wants a file name, not an empty value") : ""; },
                ""));
    bool version = false;
    app.add_flag("--version", version, "Print the version and exit");

    Action action;
    std::string reservationID;
    auto addID = [&reservationID](CLI::App* command) {
        command->add_option("ID", reservationID, "The reservation's platform identifier")
            ->required()
            ->check(PMSUsage::rule(Kind::Identifier));
    };
    // With --queue, `enqueue` stores the operation in the outbox instead of `action` sending it.
    bool queue = false;
    PMSOutboxCommands::Enqueue enqueue;
    auto addQueue = [&queue](CLI::App* command) {
        command->add_flag("--queue", queue,
                          "Store it in the outbox instead of sending it, even with the service away; "
                          "'vlmsdk-pms outbox send' sends it");
    };

    CLI::App* create = app.add_subcommand("create", "Create the reservation on the platform from a hotel booking");
    std::string confirmation;
    std::string venue;
    std::string lastName;
    create->add_option("--confirmation", confirmation, "The hotel's confirmation number")
        ->required()
        ->check(PMSUsage::rule(Kind::Text));
    create->add_option("--venue", venue, "The venue's platform identifier")
        ->required()
        ->check(PMSUsage::rule(Kind::Identifier));
    create->add_option("--last-name", lastName, "Last name the booking was made under")
        ->required()
        ->check(PMSUsage::rule(Kind::Text));
    create->callback([&] {
        action = [&](const Session& session) {
            return report(session, "create", std::nullopt, session.runner.createReservation(confirmation, venue, lastName),
                          [&](const auto& reservation) { session.printer.printReservation(*reservation); });
        };
    });

    CLI::App* fetch = app.add_subcommand("fetch", "Fetch a reservation");
    addID(fetch);
    fetch->callback([&] {
        action = [&](const Session& session) {
            return report(session, "fetch", reservationID, session.runner.fetchReservation(reservationID),
                          [&](const auto& reservation) { session.printer.printReservation(*reservation); });
        };
    });

    CLI::App* confirm = app.add_subcommand("confirm", "Confirm a reservation");
    addID(confirm);
    bool notify = true;
    confirm->add_flag("--notify,!--no-notify", notify,
                      "Ask (or not) to be told when mobile check-in opens (default: --notify)");
    addQueue(confirm);
    confirm->callback([&] {
        enqueue = [&](VLMSDKOutbox& outbox, VLMErrorPtr* error) {
            return outbox.enqueueConfirm(reservationID, notify, error);
        };
        action = [&](const Session& session) {
            return report(session, "confirm", reservationID, session.runner.confirmReservation(reservationID, notify),
                          [&](const auto& reservation) { session.printer.printConfirmation(*reservation, notify); });
        };
    });

    CLI::App* checkin = app.add_subcommand("checkin", "Perform mobile check-in");
    addID(checkin);
    addQueue(checkin);
    checkin->callback([&] {
        enqueue = [&](VLMSDKOutbox& outbox, VLMErrorPtr* error) { return outbox.enqueueMobileCheckin(reservationID, error); };
        action = [&](const Session& session) {
            return report(session, "checkin", reservationID, session.runner.checkin(reservationID),
                          [&](const auto& reservation) { session.printer.printReservation(*reservation); });
        };
    });

    CLI::App* checkout = app.add_subcommand("checkout", "Perform mobile check-out");
    addID(checkout);
    addQueue(checkout);
    checkout->callback([&] {
        enqueue = [&](VLMSDKOutbox& outbox, VLMErrorPtr* error) { return outbox.enqueueMobileCheckout(reservationID, error); };
        action = [&](const Session& session) {
            return report(session, "checkout", reservationID, session.runner.checkout(reservationID),
                          [&](bool success) { session.printer.printCheckout(reservationID, success); });
        };
    });

    CLI::App* pay = app.add_subcommand("pay", "Pay for a reservation with a stored card");
    addID(pay);
    std::string card;
    std::string amount;
    std::string currency = "USD";
    pay->add_option("--card", card, "The stored card's identifier")->required()->type_name("CARD")->check(PMSUsage::rule(Kind::Identifier));
    pay->add_option("--amount", amount, "Amount to pay, above 0 with at most two decimals, e.g. 61.00")
        ->required()
        ->type_name("AMOUNT")
        ->check(PMSUsage::rule(Kind::Amount));
    pay->add_option("--currency", currency, "Three-letter code of the amount's currency")
        ->type_name("CODE")
        ->check(PMSUsage::rule(Kind::Currency))
        ->capture_default_str();
    addQueue(pay);
    pay->callback([&] {
        enqueue = [&](VLMSDKOutbox& outbox, VLMErrorPtr* error) {
            return outbox.enqueuePay(reservationID, card, *PMSArgumentRules::amount(amount),
                                     *PMSArgumentRules::currency(currency), error);
        };
        action = [&](const Session& session) {
            const auto result = session.runner.pay(reservationID, card, *PMSArgumentRules::amount(amount),
                                                   *PMSArgumentRules::currency(currency));
            return report(session, "pay", reservationID, result,
                          [&](const auto& payment) { session.printer.printPayment(*payment); });
        };
    });

    CLI::App* folio = app.add_subcommand("folio", "Fetch a reservation's master bill");
    addID(folio);
    folio->callback([&] {
        action = [&](const Session& session) {
            return report(session, "folio", reservationID, session.runner.fetchFolio(reservationID),
                          [&](const auto& bill) { session.printer.printFolio(*bill); });
        };
    });

    CLI::App* charge = app.add_subcommand("charge", "Charge items to a reservation's master bill");
    addID(charge);
    std::vector<std::string> itemTexts;
    charge->add_option("ITEM", itemTexts, "Catalog item to charge, with a quantity (default 1): ITEM[:QTY]")
        ->required()
        ->type_name("ITEM[:QTY]")
        ->check(PMSUsage::rule(Kind::Item));
    addQueue(charge);
    charge->callback([&] {
        enqueue = [&](VLMSDKOutbox& outbox, VLMErrorPtr* error) {
            std::vector<std::pair<std::string, long>> charged;
            for (const PMSChargeItem& item : items(itemTexts)) charged.emplace_back(item.itemID, item.quantity);
            return outbox.enqueueCharge(reservationID, charged, error);
        };
        action = [&](const Session& session) {
            return report(session, "charge", reservationID, session.runner.charge(reservationID, items(itemTexts)),
                          [&](const auto& bill) { session.printer.printFolio(*bill); });
        };
    });

    CLI::App* demo = app.add_subcommand("demo", "Walk one guest's stay from booking to check-out");
    PMSDemoPlan plan;
    std::vector<std::string> demoItems;
    CLI::Option* demoConfirmation =
        demo->add_option("--confirmation", plan.confirmationNumber,
                         "A booking of your own to walk (default: the first seeded one still before check-in)")
            ->check(PMSUsage::rule(Kind::Text));
    demoConfirmation->needs(demo->add_option("--venue", plan.venueID, "Its venue")->check(PMSUsage::rule(Kind::Identifier)),
                            demo->add_option("--last-name", plan.lastName, "The last name on it")
                                ->check(PMSUsage::rule(Kind::Text)),
                            demo->add_option("--card", plan.creditCardID, "The stored card that pays its balance")
                                ->check(PMSUsage::rule(Kind::Identifier)));
    demo->add_option("--item", demoItems, "With --confirmation: an item to charge")
        ->type_name("ITEM[:QTY]")
        ->check(PMSUsage::rule(Kind::Item))
        ->needs(demoConfirmation);
    demo->callback([&] {
        action = [&](const Session& session) {
            plan.items = items(demoItems);
            PMSDemo walk(session.runner, session.printer, session.explainer, session.connection);
            const bool walked = walk.run(demoConfirmation->count() > 0 ? std::vector<PMSDemoPlan>{plan}
                                                                      : PMSDemo::seededBookings());
            return walked ? kSucceeded : kOperationFailed;
        };
    });

    PMSSandboxCommands sandboxCommands(app, out_, err_);
    PMSOutboxCommands outboxCommands(app, out_, err_);
    // Set last, so that no subcommand inherits it: a word no subcommand takes is reported below by name.
    app.allow_extras();

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        // A subcommand's help ends on its footer with no line break: the shell's prompt would follow it.
        std::ostringstream text;
        const int status = app.exit(help, text, err_);
        std::string shown = text.str();
        if (!shown.empty() && shown.back() != '\n') shown += '\n';
        out_ << shown;
        return status == 0 ? kSucceeded : kUsageError;
    } catch (const CLI::ParseError& error) {
        err_ << PMSUsage::line(app, error) << '\n';
        return kUsageError;
    }
    if (version) {
        out_ << "vlmsdk-pms " << VLMSDK_PMS_VERSION << '\n';
        return kSucceeded;
    }
    if (const std::string problem = PMSUsage::leftoverLine(app); !problem.empty()) {
        err_ << problem << '\n';
        return kUsageError;
    }

    if (baseURLOption->count() > 0 || !baseURL.empty()) settings.baseURL = baseURL;
    if (tokenOption->count() > 0 || !token.empty()) settings.token = token;
    if (caFileOption->count() > 0 || !caFile.empty()) settings.caFile = caFile;
    settings.timeout = *PMSArgumentRules::seconds(timeout);
    if (transport == "http1") settings.transport = VLMSDKHTTPRequestManagerOptions::Transport::HTTP1;
    settings.retries = *PMSArgumentRules::retries(retries);
    settings.tokenLifetime = std::chrono::ceil<std::chrono::seconds>(*PMSArgumentRules::seconds(tokenLifetime));
    if (keys != "auto") settings.idempotencyKeys = keys == "on";
    if (outboxOption->count() > 0 || !outboxFile.empty()) settings.outboxFile = outboxFile;
    // The tool reports every failure itself, once; -v shows the wire instead of the SDK's log lines.
    VLMSDKConsoleLogger::sharedLogger().setMaximumLevel(0);
    if (sandboxCommands.selected()) return sandboxCommands.run(settings);
    if (outboxCommands.selected() && !outboxCommands.sendSelected()) return outboxCommands.run(settings);
    if (queue) {
        if (!recordDirectory.empty()) {
            err_ << "vlmsdk-pms: --record: nothing is sent with --queue, so there is nothing to record\n";
            return kUsageError;
        }
        return outboxCommands.enqueue(settings, app.get_subcommands().front()->get_name(), reservationID, enqueue);
    }
    if (outboxCommands.sendSelected()) {
        action = [&](const Session& session) {
            return outboxCommands.send(settings, session.connection, session.printer, session.explainer);
        };
    }

    std::string problem;
    std::unique_ptr<PMSRecorder> recorder;
    if (!recordDirectory.empty()) {
        recorder = PMSRecorder::open(recordDirectory, &problem);
        if (!recorder) {
            err_ << "vlmsdk-pms: --record: " << problem << '\n';
            return kUsageError;
        }
    }
    const PMSWireLog wireLog(err_, settings.verbosity);
    VLMSDKHTTPExchangeObserver observer = wireLog.observer();
    if (recorder) {
        observer = [logged = std::move(observer), recorded = recorder->observer()](const VLMSDKHTTPExchange& exchange) {
            if (logged) logged(exchange);
            recorded(exchange);
        };
    }
    // Work kept for later is not sent to a service that ends with this command.
    std::unique_ptr<PMSServiceConnection> connection =
        PMSServiceConnection::open(settings, std::move(observer), &problem, !outboxCommands.sendSelected());
    if (!connection) {
        if (outboxCommands.sendSelected()) return outboxCommands.sendWithoutService(settings, problem);
        err_ << "vlmsdk-pms: " << problem << '\n';
        return kServiceUnavailable;
    }
    // Known only now for a local service; no request has gone out yet.
    if (recorder) recorder->setBaseURL(connection->shownURL());
    if (!connection->notice().empty()) err_ << "vlmsdk-pms: " << connection->notice() << '\n';
    const PMSOperationRunner runner(connection->apiManager(), settings.timeout);
    const PMSOutputPrinter printer(out_, err_, settings.json);
    const PMSFailureExplainer explainer(runner, connection->shownURL());
    const int status = action(Session{runner, printer, explainer, *connection});
    connection.reset();  // every exchange has been reported
    if (recorder && !recorder->writeProblem().empty()) {
        err_ << "vlmsdk-pms: --record: " << recorder->writeProblem() << '\n';
        return status == kSucceeded ? kOperationFailed : status;
    }
    return status;
}
