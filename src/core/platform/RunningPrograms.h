#pragma once

#include <string>
#include <vector>

namespace tarnbridge::platform {

// The resolved executables of the running processes this account may read (/proc/PID/exe),
// sorted, without repeats.
std::vector<std::string> runningExecutables();

// This program's own executable, and the AppImage it runs from when there is one.
std::vector<std::string> ownExecutables();

} // namespace tarnbridge::platform
