#include "ToolProcess.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

// Environment variables that would point the tool somewhere else than the test says.
bool isToolSetting(const char* entry) {
    return std::strncmp(entry, "VLMSDK_PMS_", std::strlen("VLMSDK_PMS_")) == 0;
}

class Pipe {
public:
    Pipe() {
        if (::pipe2(ends_, O_CLOEXEC) != 0) throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }
    ~Pipe() {
        closeRead();
        closeWrite();
    }
    int read() const { return ends_[0]; }
    int write() const { return ends_[1]; }
    void closeRead() { close(ends_[0]); }
    void closeWrite() { close(ends_[1]); }

private:
    static void close(int& fd) {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
    int ends_[2] = {-1, -1};
};

}  // namespace

ToolRun runTool(const std::string& program, const std::vector<std::string>& arguments,
                const std::vector<std::string>& environment) {
    std::vector<std::string> argumentTexts{program};
    argumentTexts.insert(argumentTexts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& text : argumentTexts) argv.push_back(text.data());
    argv.push_back(nullptr);
    std::vector<std::string> settings = environment;
    const auto setHere = [&](const char* entry) {
        return std::any_of(settings.begin(), settings.end(), [&](const std::string& setting) {
            const auto name = setting.substr(0, setting.find('=') + 1);
            return std::strncmp(entry, name.c_str(), name.size()) == 0;
        });
    };
    std::vector<char*> envp;
    for (char** entry = environ; *entry; ++entry) {
        if (!isToolSetting(*entry) && !setHere(*entry)) envp.push_back(*entry);
    }
    for (std::string& setting : settings) envp.push_back(setting.data());
    envp.push_back(nullptr);

    Pipe out;
    Pipe err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out.write(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.write(), STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, out.read());
    posix_spawn_file_actions_addclose(&actions, err.read());
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error("posix_spawn " + program + ": " + std::strerror(spawned));
    out.closeWrite();
    err.closeWrite();

    // Read both streams as they come, so that neither pipe fills up and blocks the tool.
    ToolRun run;
    pollfd fds[2] = {{out.read(), POLLIN, 0}, {err.read(), POLLIN, 0}};
    std::string* sinks[2] = {&run.out, &run.err};
    int open = 2;
    while (open > 0) {
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
                fds[index].fd = -1;
                --open;
            }
        }
    }

    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    run.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}
