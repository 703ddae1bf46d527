#pragma once

#include "PMSOperationRunner.h"

#include <iosfwd>
#include <optional>
#include <string>

/// The vlmsdk-pms command line: parses the arguments, reaches the service and runs one subcommand.
class PMSCommandLine {
public:
    /// Exit statuses.
    static constexpr int kSucceeded = 0;
    static constexpr int kOperationFailed = 1;  ///< the operation (or a demo step) failed or timed out
    static constexpr int kUsageError = 2;       ///< the arguments could not be understood
    static constexpr int kServiceUnavailable = 3;  ///< the local reservation service could not start

    PMSCommandLine(std::ostream& out, std::ostream& err);

    /// Runs the whole command; answers the exit status.
    int run(int argc, const char* const* argv);

    /// "ITEM" or "ITEM:QTY" with QTY a whole number from 1 to 999; nullopt for anything else.
    static std::optional<PMSChargeItem> parseItem(const std::string& text);

private:
    std::ostream& out_;
    std::ostream& err_;
};
