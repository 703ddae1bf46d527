#pragma once

#include <filesystem>

namespace pmssandbox {

/// Where the local service and the command-line tool keep their state: $XDG_STATE_HOME/vlmsdk-pms, or
/// ~/.local/state/vlmsdk-pms when XDG_STATE_HOME is unset or not absolute.
class StateDirectory {
public:
    /// Empty when neither XDG_STATE_HOME nor HOME says where.
    static std::filesystem::path path();
};

}  // namespace pmssandbox
