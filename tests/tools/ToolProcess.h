#pragma once

#include <string>
#include <vector>

/// What a finished process left behind.
struct ToolRun {
    int exitStatus = -1;  ///< the exit status, or -1 when it did not exit normally
    std::string out;
    std::string err;
};

/// Runs `program` with `arguments` (and the environment of the test, minus the tool's own variables,
/// with `environment`'s "NAME=value" entries set) until it exits, collecting both output streams.
ToolRun runTool(const std::string& program, const std::vector<std::string>& arguments,
                const std::vector<std::string>& environment = {});
