#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// pms-sandbox run as a process, the way a developer runs it. Its standard error goes to a file, so a
/// burst of request lines can never block it.
class SandboxProcess {
public:
    /// Starts `PMS_SANDBOX_EXE` with `arguments` and waits (at most 10 s) until it says where it listens;
    /// port() is 0 when it never did.
    explicit SandboxProcess(const std::vector<std::string>& arguments);
    /// Kills it if it still runs.
    ~SandboxProcess();
    SandboxProcess(const SandboxProcess&) = delete;
    SandboxProcess& operator=(const SandboxProcess&) = delete;

    int port() const { return port_; }
    /// Everything it wrote to standard output before it said where it listens, that line included.
    const std::string& output() const { return output_; }
    void signal(int number) const;
    /// Waits for it to end: its exit status, or 128 + the signal that ended it.
    int wait();
    /// What it wrote to standard error so far.
    std::string errors() const;

private:
    pid_t pid_ = -1;
    int port_ = 0;
    std::string output_;
    std::string errorFile_;
};
