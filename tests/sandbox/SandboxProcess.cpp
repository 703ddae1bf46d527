#include "SandboxProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

extern char** environ;

SandboxProcess::SandboxProcess(const std::vector<std::string>& arguments) {
    static int started = 0;
    errorFile_ = (std::filesystem::temp_directory_path() /
                  ("pms-sandbox-" + std::to_string(getpid()) + "-" + std::to_string(++started) + ".err"))
                     .string();
    std::vector<std::string> texts{PMS_SANDBOX_EXE};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& text : texts) argv.push_back(text.data());
    argv.push_back(nullptr);

    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (posix_spawn(&pid_, texts[0].c_str(), &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);

    // The bound only stops a broken binary from hanging the suite.
    const std::string marker = "listening on http://127.0.0.1:";
    pollfd readable{out[0], POLLIN, 0};
    char c = 0;
    while (pid_ > 0 && output_.find(marker) == std::string::npos && ::poll(&readable, 1, 10000) > 0 &&
           ::read(out[0], &c, 1) == 1)
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

int SandboxProcess::wait() {
    if (pid_ <= 0) return -1;
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string SandboxProcess::errors() const {
    std::ifstream in(errorFile_);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}
