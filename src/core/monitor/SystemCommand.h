#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace tarnbridge {

// Runs an external tool and hands back what it printed.
class SystemCommand {
public:
    SystemCommand() = delete;

    // Runs `program` (a path; no search of PATH) with `arguments`, stdin empty. Returns its
    // standard output as UTF-8, or "" when that is not UTF-8. A tool still running at
    // `timeLimit` is sent SIGTERM, with its whole process group, and SIGKILL if that is
    // ignored. A failed launch throws std::system_error; a tool that exits other than with 0,
    // or was ended, throws TarnbridgeError with its standard error, trimmed ("" if it wrote
    // none, "Command unavailable" if that is not UTF-8).
    static std::string run(const std::string& program, const std::vector<std::string>& arguments,
                           std::chrono::duration<double> timeLimit);
};

} // namespace tarnbridge
