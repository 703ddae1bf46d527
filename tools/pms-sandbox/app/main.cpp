// pms-sandbox: serves the local reservation service until SIGINT or SIGTERM.

#include <pmssandbox/SandboxServer.h>
#include <pmssandbox/StateDirectory.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <pthread.h>

namespace {

constexpr int kUsageError = 2;

int fail(int status, std::string message) {
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::cerr << "pms-sandbox: " << message << '\n';
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app{"Local reservation service speaking the kit's guest API, with an admin API under /_sandbox/ "
                     "and a dashboard at /."};
        app.name("pms-sandbox");
        pmssandbox::SandboxConfig config;
        std::string seedFile;
        std::string stateFile;
        bool inMemory = false;
        bool quiet = false;
        app.add_option("--port", config.port, "TCP port on 127.0.0.1; 0 picks a free one")
            ->check(CLI::Range(0, 65535))
            ->capture_default_str();
        app.add_option("--token", config.token, "Bearer token clients must send")->capture_default_str();
        app.add_option("--seed", seedFile, "JSON file of bookings to serve instead of the built-in ones")
            ->check(CLI::ExistingFile);
        app.add_option("--prefix", config.pathPrefix, "Path prefix in front of every guest route, e.g. api/v1");
        CLI::Option* state = app.add_option(
            "--state", stateFile, "SQLite file keeping the bookings' state (default: $XDG_STATE_HOME/vlmsdk-pms/sandbox.db)");
        app.add_flag("--in-memory", inMemory, "Keep the state in memory only; it is gone when the service stops")
            ->excludes(state);
        app.add_flag("-q,--quiet", quiet, "Write no line per request to standard error");
        app.set_version_flag("--version", std::string("pms-sandbox ") + PMS_SANDBOX_VERSION);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            // Help and version exit 0 with their text; every real usage error is one line and status 2.
            if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(error);
            return fail(kUsageError, error.what());
        }
        if (!seedFile.empty()) config.seedFile = seedFile;
        if (!inMemory) {
            if (stateFile.empty()) {
                const std::filesystem::path directory = pmssandbox::StateDirectory::path();
                if (directory.empty()) return fail(1, "no HOME or XDG_STATE_HOME; use --state FILE or --in-memory");
                std::filesystem::create_directories(directory);
                stateFile = (directory / "sandbox.db").string();
            }
            config.stateFile = stateFile;
        }
        if (!quiet) {
            // One write per line, so lines of concurrent requests never interleave.
            config.requestLine = [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); };
        }

        // Block the stop signals before any thread starts so that every thread inherits the mask
        // and only sigwait() below ever sees them.
        sigset_t stopSignals;
        sigemptyset(&stopSignals);
        sigaddset(&stopSignals, SIGINT);
        sigaddset(&stopSignals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

        // The server, and with it the database, closes before main returns: the log folds into the file.
        pmssandbox::SandboxServer server(config);
        if (!server.start()) return fail(1, server.lastError());
        std::cout << "pms-sandbox listening on " << server.baseUrl() << '\n'
                  << "pms-sandbox dashboard on http://127.0.0.1:" << server.port() << "/\n"
                  << "pms-sandbox state " << (config.stateFile ? "in " + *config.stateFile : "in memory") << std::endl;

        int received = 0;
        sigwait(&stopSignals, &received);
        server.stop();
        return 0;
    } catch (const std::exception& e) {
        return fail(1, e.what());
    }
}
