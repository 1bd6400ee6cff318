#pragma once

#include <string>

namespace tarnbridge::platform {

// The home folder of this account, links resolved ($HOME first, "/" without one).
std::string currentHome();

// An XDG base folder: the variable when it holds an absolute path (the specification ignores
// relative ones), else `fallback` below the home folder.
std::string xdgFolder(const char* variable, const char* fallback);

// $XDG_DATA_HOME, default ~/.local/share.
inline std::string dataHome() { return xdgFolder("XDG_DATA_HOME", ".local/share"); }
// $XDG_CONFIG_HOME, default ~/.config.
inline std::string configHome() { return xdgFolder("XDG_CONFIG_HOME", ".config"); }

} // namespace tarnbridge::platform
