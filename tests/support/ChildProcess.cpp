#include "ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> texts{program};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& text : texts) argv.push_back(text.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int spawned = posix_spawnp(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error("cannot start " + program + ": " + std::strerror(spawned));
}

ChildProcess::~ChildProcess() {
    if (exited_) return;
    ::kill(pid_, SIGTERM);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
}

bool ChildProcess::running() {
    if (exited_) return false;
    int status = 0;
    exited_ = ::waitpid(pid_, &status, WNOHANG) == pid_;
    return !exited_;
}

bool runCommand(const std::string& command) { return std::system(command.c_str()) == 0; }
