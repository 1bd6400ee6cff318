#include "Cli.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QGuiApplication>
#include <QLocale>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string_view>

#include "model/Errors.h"

namespace tarnbridge::cli {

namespace {

std::vector<Command> allCommands()
{
    std::vector<Command> all;
    for (auto group : {scanCommands, queryCommands, cleanupCommands, renderCommands, appCommands, monitorCommands, duplicateCommands})
        for (auto& command : group())
            all.push_back(std::move(command));
    return all;
}

std::string overview(const std::vector<Command>& commands)
{
    std::string out = "Usage: tarnbridge-cli COMMAND [options]\n\n"
                      "Tarnbridge measures where the bytes are on your disk. Nothing is ever "
                      "deleted: cleanup only moves items to the Trash, with a receipt.\n\n"
                      "Commands:\n";
    std::size_t width = 0;
    for (const auto& c : commands)
        width = std::max(width, c.spec.name.size());
    for (const auto& c : commands) {
        std::string name = c.spec.name;
        name.resize(width + 3, ' ');
        out += "  " + name + c.spec.summary + "\n";
    }
    out += "\nRun \"tarnbridge-cli COMMAND --help\" for the options of one command.\n";
    return out;
}

CancellationFlag* interruptFlag = nullptr;

extern "C" void onInterrupt(int)
{
    // Only an atomic store: safe in a signal handler.
    if (interruptFlag)
        interruptFlag->cancel();
}

} // namespace

int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        const CancellationFlag& cancellation, bool progressOnTerminal)
{
    const auto commands = allCommands();
    if (args.empty() || args[0] == "--help" || args[0] == "help" || args[0] == "-h") {
        (args.empty() ? err : out) << overview(commands);
        return args.empty() ? exitUsage : exitOk;
    }
    // The longest command name that the words start with ("snapshot save" before "snapshot").
    const Command* chosen = nullptr;
    std::size_t words = 0;
    for (const auto& c : commands) {
        std::size_t n = 0, pos = 0;
        bool match = true;
        const std::string& name = c.spec.name;
        while (pos <= name.size()) {
            const auto space = name.find(' ', pos);
            const std::string word = name.substr(pos, space - pos);
            if (n >= args.size() || args[n] != word) {
                match = false;
                break;
            }
            ++n;
            if (space == std::string::npos)
                break;
            pos = space + 1;
        }
        if (match && n > words) {
            chosen = &c;
            words = n;
        }
    }
    if (!chosen) {
        err << "tarnbridge-cli: unknown command \"" << args[0]
            << "\". Run \"tarnbridge-cli --help\" for the list.\n";
        return exitUsage;
    }
    Context context{out, err, cancellation, progressOnTerminal};
    try {
        const Arguments parsed = Arguments::parse(
            chosen->spec, std::vector<std::string>(args.begin() + std::ptrdiff_t(words), args.end()));
        if (parsed.wantsHelp()) {
            out << helpText(chosen->spec);
            return exitOk;
        }
        return chosen->handler(parsed, context);
    } catch (const UsageError& e) {
        err << "tarnbridge-cli " << chosen->spec.name << ": " << e.what() << "\nRun \"tarnbridge-cli "
            << chosen->spec.name << " --help\" for its options.\n";
        return exitUsage;
    } catch (const CancellationError&) {
        err << "Cancelled.\n";
        return exitCancelled;
    } catch (const std::exception& e) {
        err << describeError(e) << "\n";
        return exitFailure;
    }
}

int run(int argc, char** argv)
{
    // Qt's locale services (collation, number formatting) need no event loop, but some
    // need an application object; a core one costs nothing without a display.
    // Pictures need fonts and painting, so "render" gets a GUI application object; without a
    // display it draws offscreen. Everything else stays free of the graphics stack.
    std::unique_ptr<QCoreApplication> app;
    if (argc > 1 && std::string_view(argv[1]) == "render") {
        if (!std::getenv("QT_QPA_PLATFORM") && !std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY"))
            ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
        // Qt complains about a missing runtime folder on servers; a picture needs none.
        static const QtMessageHandler previous = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext& where, const QString& text) {
                if (text.startsWith(QLatin1String("QStandardPaths: XDG_RUNTIME_DIR")))
                    return;
                if (previous)
                    previous(type, where, text);
                else
                    std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, where, text)));
            });
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QLocale::setDefault(QLocale::system());
    static CancellationFlag flag;
    interruptFlag = &flag;
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    // A signal sent while we started up may be waiting, blocked: take it now that it is handled.
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    pthread_sigmask(SIG_UNBLOCK, &stops, nullptr);
    std::vector<std::string> args(argv + 1, argv + argc);
    std::ios::sync_with_stdio(false);
    const int code = run(args, std::cout, std::cerr, flag, ::isatty(STDERR_FILENO) == 1);
    std::cout.flush();
    return code;
}

} // namespace tarnbridge::cli
