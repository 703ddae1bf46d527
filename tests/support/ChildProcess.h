#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

/// A program a test runs in the background (a test server), with its output discarded; stopped with
/// SIGTERM and waited for when destroyed.
class ChildProcess {
public:
    /// Starts `program` (a path, or a name looked up in PATH) with `arguments`; throws std::runtime_error
    /// when it cannot start.
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// False once the program has exited.
    bool running();

private:
    pid_t pid_ = -1;
    bool exited_ = false;
};

/// Runs `command` through the shell to its end; true when it exited with status 0.
bool runCommand(const std::string& command);
