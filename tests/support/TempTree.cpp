#include "support/TempTree.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

extern char** environ;

namespace tarnbridge::test {

namespace fs = std::filesystem;

namespace {
void check(bool ok, const std::string& what)
{
    if (!ok)
        throw std::system_error(errno, std::generic_category(), what);
}
} // namespace

TempTree::TempTree()
{
    std::string pattern = (fs::temp_directory_path() / "tarnbridge-test-XXXXXX").string();
    check(::mkdtemp(pattern.data()) != nullptr, "mkdtemp");
    // realpath: the scanner reports canonical paths, and /tmp may be a link.
    char* resolved = ::realpath(pattern.c_str(), nullptr);
    root_ = resolved;
    std::free(resolved);
}

TempTree::~TempTree()
{
    std::error_code ec;
    // Give back the rights that tests took away, so that everything can be removed.
    for (auto it = fs::recursive_directory_iterator(root_, fs::directory_options::skip_permission_denied, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec))
            ::chmod(it->path().c_str(), 0700);
    }
    ::chmod(root_.c_str(), 0700);
    // A second pass reaches folders that were unreadable during the first.
    for (int pass = 0; pass < 3; ++pass) {
        for (auto it = fs::recursive_directory_iterator(root_, ec); !ec && it != fs::recursive_directory_iterator();
             it.increment(ec))
            if (it->is_directory(ec) && !it->is_symlink(ec))
                ::chmod(it->path().c_str(), 0700);
    }
    fs::remove_all(root_, ec);
}

std::string TempTree::path(const std::string& relative) const
{
    return relative.empty() ? root_ : root_ + "/" + relative;
}

std::string TempTree::folder(const std::string& relative)
{
    const std::string p = path(relative);
    fs::create_directories(p);
    return p;
}

std::string TempTree::file(const std::string& relative, std::int64_t size, char fill)
{
    const std::string p = path(relative);
    fs::create_directories(fs::path(p).parent_path());
    const int fd = ::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    check(fd >= 0, "open " + p);
    std::string block(65536, fill);
    for (std::int64_t left = size; left > 0;) {
        const auto n = std::min<std::int64_t>(left, std::int64_t(block.size()));
        check(::write(fd, block.data(), size_t(n)) == n, "write " + p);
        left -= n;
    }
    ::close(fd);
    return p;
}

std::string TempTree::fileWithText(const std::string& relative, const std::string& contents)
{
    const std::string p = path(relative);
    fs::create_directories(fs::path(p).parent_path());
    const int fd = ::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    check(fd >= 0, "open " + p);
    check(::write(fd, contents.data(), contents.size()) == ssize_t(contents.size()), "write " + p);
    ::close(fd);
    return p;
}

std::string TempTree::sparseFile(const std::string& relative, std::int64_t size)
{
    const std::string p = path(relative);
    fs::create_directories(fs::path(p).parent_path());
    const int fd = ::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    check(fd >= 0 && ::ftruncate(fd, size) == 0, "truncate " + p);
    ::close(fd);
    return p;
}

std::string TempTree::hardLink(const std::string& existing, const std::string& relative)
{
    const std::string p = path(relative);
    fs::create_directories(fs::path(p).parent_path());
    check(::link(path(existing).c_str(), p.c_str()) == 0, "link " + p);
    return p;
}

std::string TempTree::symlink(const std::string& target, const std::string& relative)
{
    const std::string p = path(relative);
    fs::create_directories(fs::path(p).parent_path());
    check(::symlink(target.c_str(), p.c_str()) == 0, "symlink " + p);
    return p;
}

void TempTree::chmod(const std::string& relative, mode_t mode)
{
    check(::chmod(path(relative).c_str(), mode) == 0, "chmod " + relative);
}

void TempTree::remove(const std::string& relative) { fs::remove_all(path(relative)); }

void TempTree::setModified(const std::string& relative, std::int64_t unixSeconds)
{
    struct timespec times[2];
    times[0].tv_sec = unixSeconds;
    times[0].tv_nsec = 0;
    times[1] = times[0];
    check(::utimensat(AT_FDCWD, path(relative).c_str(), times, AT_SYMLINK_NOFOLLOW) == 0,
          "utimensat " + relative);
}

FakeHome::FakeHome()
{
    tree_.folder("home/.local/share");
    tree_.folder("home/.config");
    tree_.folder("home/.cache");
    tree_.folder("home/.local/state");
    tree_.folder("state");
    const std::map<std::string, std::string> values{
        {"HOME", home()},
        {"XDG_DATA_HOME", dataHome()},
        {"XDG_CONFIG_HOME", configHome()},
        {"XDG_CACHE_HOME", cacheHome()},
        {"XDG_STATE_HOME", stateHome()},
        {"TARNBRIDGE_STATE_DIR", tree_.root() + "/state"},
    };
    for (const auto& [key, value] : values) {
        const char* old = std::getenv(key.c_str());
        saved_[key] = old ? std::optional<std::string>(old) : std::nullopt;
        ::setenv(key.c_str(), value.c_str(), 1);
    }
}

FakeHome::~FakeHome()
{
    for (const auto& [key, value] : saved_) {
        if (value)
            ::setenv(key.c_str(), value->c_str(), 1);
        else
            ::unsetenv(key.c_str());
    }
}

ProcessOutput runProcess(const std::vector<std::string>& argv, const std::string& input)
{
    int inPipe[2], outPipe[2], errPipe[2];
    check(::pipe2(inPipe, O_CLOEXEC) == 0 && ::pipe2(outPipe, O_CLOEXEC) == 0 &&
              ::pipe2(errPipe, O_CLOEXEC) == 0,
          "pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, inPipe[0], 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = ::posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(inPipe[0]);
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    if (spawned != 0) {
        ::close(inPipe[1]);
        ::close(outPipe[0]);
        ::close(errPipe[0]);
        throw std::system_error(spawned, std::generic_category(), "spawn " + argv[0]);
    }
    if (!input.empty())
        (void)!::write(inPipe[1], input.data(), input.size());
    ::close(inPipe[1]);
    ProcessOutput result;
    struct pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    int open = 2;
    char buffer[65536];
    while (open > 0) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n <= 0) {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            } else {
                (i == 0 ? result.out : result.err).append(buffer, size_t(n));
            }
        }
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

std::string cliPath()
{
    const char* path = std::getenv("TARNBRIDGE_CLI");
    return path ? path : TARNBRIDGE_CLI_PATH;
}

bool runningAsRoot() { return ::geteuid() == 0; }

} // namespace tarnbridge::test

#include <linux/capability.h>
#include <sys/syscall.h>

namespace tarnbridge::test {

namespace {
bool capabilities(__user_cap_data_struct (&data)[2], bool set)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    return ::syscall(set ? SYS_capset : SYS_capget, &header, data) == 0;
}
} // namespace

WithoutAdminRights::WithoutAdminRights()
{
    __user_cap_data_struct data[2] = {};
    if (!capabilities(data, false))
        return;
    effective_[0] = data[0].effective;
    effective_[1] = data[1].effective;
    const unsigned drop = (1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH) | (1u << CAP_FOWNER);
    if ((data[0].effective & drop) == 0)
        return;
    data[0].effective &= ~drop;
    changed_ = capabilities(data, true);
}

WithoutAdminRights::~WithoutAdminRights()
{
    if (!changed_)
        return;
    __user_cap_data_struct data[2] = {};
    if (!capabilities(data, false))
        return;
    data[0].effective = effective_[0];
    data[1].effective = effective_[1];
    capabilities(data, true);
}

} // namespace tarnbridge::test
