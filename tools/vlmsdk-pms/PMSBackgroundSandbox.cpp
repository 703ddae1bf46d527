#include "PMSBackgroundSandbox.h"

#include <pmssandbox/SandboxClient.h>
#include <pmssandbox/StateDirectory.h>

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// How long the service may take to start or to stop, and how often we look in the meantime.
constexpr auto kPatience = 10s;
constexpr auto kLookEvery = 50ms;
constexpr auto kAnswerTimeout = 2s;

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// A live process whose program is a pms-sandbox; a pid reused by anything else does not count.
bool isServiceProcess(long pid) {
    if (pid <= 1 || (::kill(static_cast<pid_t>(pid), 0) != 0 && errno != EPERM)) return false;
    const std::string commandLine = readText("/proc/" + std::to_string(pid) + "/cmdline");
    const std::string program = commandLine.substr(0, commandLine.find('\0'));
    return fs::path(program).filename().string().find("pms-sandbox") != std::string::npos;
}

// pms-sandbox beside this program (installed together), as a sibling in the build tree, or on PATH.
std::string serviceProgram() {
    if (const char* chosen = std::getenv("VLMSDK_PMS_SANDBOX"); chosen && *chosen) return chosen;
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (!error) {
        for (const fs::path& candidate :
             {self.parent_path() / "pms-sandbox", self.parent_path().parent_path() / "pms-sandbox" / "pms-sandbox"}) {
            if (::access(candidate.c_str(), X_OK) == 0) return candidate.string();
        }
    }
    return "pms-sandbox";
}

std::string lastLine(const std::string& text) {
    std::string trimmed = text;
    while (!trimmed.empty() && trimmed.back() == '\n') trimmed.pop_back();
    return trimmed.substr(trimmed.rfind('\n') == std::string::npos ? 0 : trimmed.rfind('\n') + 1);
}

}  // namespace

PMSBackgroundSandbox::PMSBackgroundSandbox(fs::path directory)
    : directory_(directory.empty() ? pmssandbox::StateDirectory::path() : std::move(directory)) {}

std::optional<PMSBackgroundSandbox::Record> PMSBackgroundSandbox::record() const {
    const auto document = nlohmann::json::parse(readText(recordFile()), nullptr, false);
    if (!document.is_object()) return std::nullopt;
    Record record;
    record.pid = document.value("pid", 0L);
    record.url = document.value("url", "");
    record.token = document.value("token", kDefaultToken);
    record.stateFile = document.value("state_file", "");
    record.logFile = document.value("log_file", "");
    if (!isServiceProcess(record.pid)) {
        std::error_code ignored;
        fs::remove(recordFile(), ignored);
        return std::nullopt;
    }
    return record;
}

std::optional<PMSBackgroundSandbox::Record> PMSBackgroundSandbox::running() const {
    auto found = record();
    if (!found) return std::nullopt;
    pmssandbox::SandboxClient client(found->url, found->token, kAnswerTimeout);
    if (client.send("GET", "/_sandbox/info").status != 200) return std::nullopt;
    return found;
}

std::optional<PMSBackgroundSandbox::Record> PMSBackgroundSandbox::start(int port, const std::string& token,
                                                                       std::string& error) const {
    if (auto already = running()) return already;
    if (record()) {
        error = "a pms-sandbox is running but does not answer; see " + recordFile().string();
        return std::nullopt;
    }
    if (directory_.empty()) {
        error = "no HOME or XDG_STATE_HOME to keep the service's state in";
        return std::nullopt;
    }
    std::error_code made;
    fs::create_directories(directory_, made);
    if (made) {
        error = "cannot create " + directory_.string() + ": " + made.message();
        return std::nullopt;
    }

    Record started;
    started.token = token;
    started.stateFile = (directory_ / "sandbox.db").string();
    started.logFile = (directory_ / "sandbox.log").string();
    const std::string program = serviceProgram();
    std::vector<std::string> arguments{program, "--state", started.stateFile, "--port", std::to_string(port),
                                       "--token", token};
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);

    // Its own session, so that the terminal's Ctrl-C for this command never reaches it; its output goes
    // to the log file, read below for the address it took.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, started.logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = 0;
    const int spawned = posix_spawnp(&pid, program.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawned != 0) {
        error = "cannot run " + program + ": " + std::strerror(spawned);
        return std::nullopt;
    }
    started.pid = pid;

    const std::string marker = "pms-sandbox listening on ";
    for (auto waited = 0ms; waited < kPatience; waited += kLookEvery) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            error = "pms-sandbox exited at once: " + lastLine(readText(started.logFile));
            return std::nullopt;
        }
        const std::string log = readText(started.logFile);
        const auto at = log.find(marker);
        const auto end = at == std::string::npos ? at : log.find('\n', at);
        if (end != std::string::npos) {
            started.url = log.substr(at + marker.size(), end - at - marker.size());
            pmssandbox::SandboxClient client(started.url, token, kAnswerTimeout);
            if (client.send("GET", "/_sandbox/info").status == 200) {
                writeRecord(started);
                return started;
            }
        }
        std::this_thread::sleep_for(kLookEvery);
    }
    ::kill(pid, SIGTERM);
    error = "pms-sandbox did not answer within " + std::to_string(kPatience.count()) + " s; see " + started.logFile;
    return std::nullopt;
}

bool PMSBackgroundSandbox::stop(std::optional<Record>& stopped, std::string& error) const {
    stopped = record();
    if (!stopped) return true;
    ::kill(static_cast<pid_t>(stopped->pid), SIGTERM);
    for (auto waited = 0ms; waited < kPatience; waited += kLookEvery) {
        if (!isServiceProcess(stopped->pid)) {
            std::error_code ignored;
            fs::remove(recordFile(), ignored);
            return true;
        }
        std::this_thread::sleep_for(kLookEvery);
    }
    error = "pms-sandbox (pid " + std::to_string(stopped->pid) + ") did not stop within " +
            std::to_string(kPatience.count()) + " s";
    return false;
}

void PMSBackgroundSandbox::writeRecord(const Record& record) const {
    const nlohmann::json document = {{"pid", record.pid},           {"url", record.url},
                                     {"token", record.token},       {"state_file", record.stateFile},
                                     {"log_file", record.logFile}};
    // Written whole, then renamed over the old one, so that a reader never sees half a file; only the
    // user may read it, since it holds the token.
    const fs::path temporary = recordFile().string() + ".tmp";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return;
    const std::string text = document.dump(2) + "\n";
    const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    if (written) ::rename(temporary.c_str(), recordFile().c_str());
}
