#include <pmssandbox/StateDirectory.h>

#include <cstdlib>

namespace pmssandbox {

std::filesystem::path StateDirectory::path() {
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state && std::filesystem::path(state).is_absolute()) return std::filesystem::path(state) / "vlmsdk-pms";
    const char* home = std::getenv("HOME");
    if (home && *home) return std::filesystem::path(home) / ".local" / "state" / "vlmsdk-pms";
    return {};
}

}  // namespace pmssandbox
