#include "SandboxProcess.h"

#include "ToolProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

SandboxProcess::SandboxProcess(const std::vector<std::string>& arguments) {
    static int started = 0;
    errorFile_ = (std::filesystem::temp_directory_path() /
                  ("pms-sandbox-" + std::to_string(getpid()) + "-" + std::to_string(++started) + ".err"))
                     .string();
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) return;
    const int err = ::open(errorFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    pid_ = startProgram(PMS_SANDBOX_EXE, arguments, {}, out[1], err);
    ::close(err);
    ::close(out[1]);

    // The bound only stops a broken binary from hanging the suite.
    const std::string marker = "listening on http://127.0.0.1:";
    pollfd readable{out[0], POLLIN, 0};
    char c = 0;
    while (output_.find(marker) == std::string::npos && ::poll(&readable, 1, 10000) > 0 && ::read(out[0], &c, 1) == 1)
        output_ += c;
    while (output_.find(marker) != std::string::npos && output_.back() != '\n' && ::poll(&readable, 1, 10000) > 0 &&
           ::read(out[0], &c, 1) == 1)
        output_ += c;
    // Later output only goes to a closed pipe; the service writes none after this line's two companions.
    ::close(out[0]);
    const auto at = output_.find(marker);
    if (at != std::string::npos) port_ = std::atoi(output_.c_str() + at + marker.size());
}

SandboxProcess::~SandboxProcess() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        wait();
    }
    std::filesystem::remove(errorFile_);
}

void SandboxProcess::signal(int number) const {
    if (pid_ > 0) ::kill(pid_, number);
}

int SandboxProcess::wait() { return pid_ > 0 ? waitForProgram(std::exchange(pid_, -1)) : -1; }

std::string SandboxProcess::errors() const {
    std::ifstream in(errorFile_);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}
