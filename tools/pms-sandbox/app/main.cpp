// pms-sandbox: serves the in-memory reservation service until SIGINT or SIGTERM.

#include <pmssandbox/SandboxServer.h>

#include <CLI/CLI.hpp>

#include <csignal>
#include <exception>
#include <iostream>
#include <pthread.h>

int main(int argc, char** argv) {
    try {
        CLI::App app{"Local reservation service speaking the kit's guest API, with bookings held in memory."};
        pmssandbox::SandboxConfig config;
        std::string seedFile;
        app.add_option("--port", config.port, "TCP port on 127.0.0.1; 0 picks a free one")
            ->check(CLI::Range(0, 65535))
            ->capture_default_str();
        app.add_option("--token", config.token, "Bearer token clients must send")->capture_default_str();
        app.add_option("--seed", seedFile, "JSON file of bookings to serve instead of the built-in ones")
            ->check(CLI::ExistingFile);
        app.add_option("--prefix", config.pathPrefix, "Path prefix in front of every route, e.g. api/v1");
        CLI11_PARSE(app, argc, argv);
        if (!seedFile.empty()) config.seedFile = seedFile;

        // Block the stop signals before any thread starts so that every thread inherits the mask
        // and only sigwait() below ever sees them.
        sigset_t stopSignals;
        sigemptyset(&stopSignals);
        sigaddset(&stopSignals, SIGINT);
        sigaddset(&stopSignals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

        pmssandbox::SandboxServer server(config);
        if (!server.start()) {
            std::cerr << "pms-sandbox: " << server.lastError() << '\n';
            return 1;
        }
        std::cout << "pms-sandbox listening on " << server.baseUrl() << std::endl;

        int received = 0;
        sigwait(&stopSignals, &received);
        server.stop();
        return 0;
    } catch (const std::exception& e) {
        std::cerr << "pms-sandbox: " << e.what() << '\n';
        return 1;
    }
}
