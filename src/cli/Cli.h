#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Arguments.h"
#include "model/CancellationFlag.h"

namespace tarnbridge::cli {

// What a command gets besides its arguments.
struct Context {
    std::ostream& out;
    std::ostream& err;
    const CancellationFlag& cancellation;
    bool progressOnTerminal; // stderr is a terminal: draw a live progress line there
};

enum ExitCode : int { exitOk = 0, exitFailure = 1, exitUsage = 2, exitCancelled = 130 };

using Handler = int (*)(const Arguments&, Context&);
struct Command {
    CommandSpec spec;
    Handler handler;
};

// Each group of commands lives in its own file and lists itself here.
std::vector<Command> scanCommands();
std::vector<Command> queryCommands();
std::vector<Command> duplicateCommands();
std::vector<Command> appCommands();
std::vector<Command> monitorCommands();
std::vector<Command> cleanupCommands();
std::vector<Command> renderCommands();

// Runs one command line. Ctrl+C sets the cancellation flag; the command stops and 130 is
// returned.
int run(int argc, char** argv);
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        const CancellationFlag& cancellation, bool progressOnTerminal = false);

} // namespace tarnbridge::cli
