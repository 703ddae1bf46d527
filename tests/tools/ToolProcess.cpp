#include "ToolProcess.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

pid_t startProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment, int out, int err) {
    std::vector<std::string> argumentTexts{program};
    argumentTexts.insert(argumentTexts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& text : argumentTexts) argv.push_back(text.data());
    argv.push_back(nullptr);
    // The tool's own variables would point it somewhere else than the test says.
    std::vector<std::string> settings = environment;
    std::vector<char*> envp;
    for (char** entry = environ; *entry; ++entry) {
        const bool replaced = std::any_of(settings.begin(), settings.end(), [&](const std::string& setting) {
            return std::strncmp(*entry, setting.c_str(), setting.find('=') + 1) == 0;
        });
        if (!replaced && std::strncmp(*entry, "VLMSDK_PMS_", std::strlen("VLMSDK_PMS_")) != 0) envp.push_back(*entry);
    }
    for (std::string& setting : settings) envp.push_back(setting.data());
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error("posix_spawn " + program + ": " + std::strerror(spawned));
    return pid;
}

int waitForProgram(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

ToolRun runTool(const std::string& program, const std::vector<std::string>& arguments,
                const std::vector<std::string>& environment) {
    int out[2];
    int err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }
    const pid_t pid = startProgram(program, arguments, environment, out[1], err[1]);
    ::close(out[1]);
    ::close(err[1]);

    // Read both streams as they come, so that neither pipe fills up and blocks the tool.
    ToolRun run;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string* sinks[2] = {&run.out, &run.err};
    for (int open = 2; open > 0;) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int index = 0; index < 2; ++index) {
            if (fds[index].fd < 0 || fds[index].revents == 0) continue;
            char buffer[4096];
            const ssize_t got = ::read(fds[index].fd, buffer, sizeof buffer);
            if (got > 0) {
                sinks[index]->append(buffer, static_cast<std::size_t>(got));
            } else if (got == 0 || errno != EINTR) {
                ::close(std::exchange(fds[index].fd, -1));
                --open;
            }
        }
    }
    for (const pollfd& fd : fds) {
        if (fd.fd >= 0) ::close(fd.fd);
    }
    run.exitStatus = waitForProgram(pid);
    return run;
}
