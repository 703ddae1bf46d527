#pragma once

#include <iosfwd>

/// The vlmsdk-pms command line: parses and checks the arguments, reaches the service and runs one
/// subcommand.
class PMSCommandLine {
public:
    /// Exit statuses.
    static constexpr int kSucceeded = 0;
    static constexpr int kOperationFailed = 1;     ///< the operation (or a demo step) failed or timed out
    static constexpr int kUsageError = 2;          ///< the arguments are not what the tool takes; nothing was sent
    static constexpr int kServiceUnavailable = 3;  ///< the local reservation service did not start or does not run

    PMSCommandLine(std::ostream& out, std::ostream& err);

    /// Runs the whole command; answers the exit status.
    int run(int argc, const char* const* argv);

private:
    std::ostream& out_;
    std::ostream& err_;
};
