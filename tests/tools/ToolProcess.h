#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// What a finished process left behind.
struct ToolRun {
    int exitStatus = -1;  ///< the exit status, or 128 + the signal that ended it
    std::string out;
    std::string err;
};

/// Starts `program` with `arguments` (and the environment of the test, minus the tool's own variables,
/// with `environment`'s "NAME=value" entries set), its standard output and error on `out` and `err`.
pid_t startProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment, int out, int err);
/// Waits for `pid` to end: its exit status, or 128 + the signal that ended it.
int waitForProgram(pid_t pid);

/// Runs `program` as startProgram() does until it exits, collecting both output streams.
ToolRun runTool(const std::string& program, const std::vector<std::string>& arguments,
                const std::vector<std::string>& environment = {});
