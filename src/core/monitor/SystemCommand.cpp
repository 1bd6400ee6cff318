#include "monitor/SystemCommand.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "model/Errors.h"
#include "model/TextEncoding.h"

extern char** environ;

namespace tarnbridge {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class Pipe {
public:
    Pipe()
    {
        if (::pipe2(ends_, O_CLOEXEC) != 0)
            throw systemError(errno);
    }
    ~Pipe()
    {
        closeRead();
        closeWrite();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    int read() const { return ends_[0]; }
    int write() const { return ends_[1]; }
    void closeRead() { closeEnd(0); }
    void closeWrite() { closeEnd(1); }

private:
    void closeEnd(int i)
    {
        if (ends_[i] >= 0)
            ::close(ends_[i]);
        ends_[i] = -1;
    }
    int ends_[2] = {-1, -1};
};

pid_t launch(const std::string& program, const std::vector<std::string>& arguments, const Pipe& out,
             const Pipe& err)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.write(), 1);
    posix_spawn_file_actions_adddup2(&actions, err.write(), 2);

    // Its own process group, so that the time limit also ends what a shell started; default
    // handling of the signals we send, whatever the caller ignores or blocks.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                              POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    for (const int s : {SIGTERM, SIGPIPE, SIGINT, SIGHUP, SIGQUIT})
        sigaddset(&signals, s);
    posix_spawnattr_setsigdefault(&attributes, &signals);

    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    pid_t pid = -1;
    const int error =
        ::posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw systemError(error);
    return pid;
}

// Reads what is there; false at the end of the stream.
bool drain(int fd, std::string& into)
{
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) {
            into.append(buffer, std::size_t(n));
            return true;
        }
        if (n < 0 && errno == EINTR)
            continue;
        return n < 0 && errno == EAGAIN;
    }
}


int pollMilliseconds(Clock::duration wait)
{
    const auto ms = std::chrono::ceil<milliseconds>(wait).count();
    return int(std::clamp<std::int64_t>(ms, 0, INT_MAX));
}

} // namespace

std::string SystemCommand::run(const std::string& program,
                               const std::vector<std::string>& arguments,
                               std::chrono::duration<double> timeLimit)
{
    Pipe out;
    Pipe err;
    const pid_t pid = launch(program, arguments, out, err);
    out.closeWrite();
    err.closeWrite();

    // A year stands in for "no limit" without overflowing the clock.
    const auto limit = std::clamp(timeLimit, std::chrono::duration<double>(0),
                                  std::chrono::duration<double>(365.0 * 86400));
    enum class Phase { running, terminated, killed } phase = Phase::running;
    auto nextStep = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
    auto exitPoll = milliseconds(1);

    std::string output;
    std::string errors;
    pollfd fds[2] = {{out.read(), POLLIN, 0}, {err.read(), POLLIN, 0}};
    bool exited = false;
    int status = 0;
    for (;;) {
        if (!exited) {
            const pid_t reaped = ::waitpid(pid, &status, WNOHANG);
            // ECHILD: the caller ignores SIGCHLD and the kernel reaped it, status unknown.
            exited = reaped == pid || (reaped < 0 && errno == ECHILD);
        }
        const bool pipesOpen = fds[0].fd >= 0 || fds[1].fd >= 0;
        if (exited && !pipesOpen)
            break;
        const auto now = Clock::now();
        if (now >= nextStep) {
            if (phase == Phase::running) {
                ::kill(-pid, SIGTERM);
                phase = Phase::terminated;
                nextStep = now + std::chrono::seconds(2);
            } else if (phase == Phase::terminated) {
                ::kill(-pid, SIGKILL);
                phase = Phase::killed;
                nextStep = now + std::chrono::seconds(1);
            } else {
                break; // a process that left the group still holds the pipes: stop waiting on it
            }
            continue;
        }
        auto wait = nextStep - now;
        if (!pipesOpen) { // only the exit is awaited, which follows the pipes' close closely
            wait = std::min<Clock::duration>(wait, exitPoll);
            exitPoll = std::min(exitPoll * 2, milliseconds(50));
        }
        if (::poll(fds, 2, pollMilliseconds(wait)) < 0 && errno != EINTR) {
            const int error = errno;
            ::kill(-pid, SIGKILL);
            while (!exited && ::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
            throw systemError(error);
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd >= 0 && (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) &&
                !drain(fds[i].fd, i == 0 ? output : errors))
                fds[i].fd = -1;
        }
    }
    while (!exited && ::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }

    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        const std::string message(trimmed(errors));
        throw TarnbridgeError(isValidUtf8(message) ? message : "Command unavailable");
    }
    return isValidUtf8(output) ? output : std::string();
}

} // namespace tarnbridge
