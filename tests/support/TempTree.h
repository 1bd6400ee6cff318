#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tarnbridge::test {

// A private folder tree for one test, removed afterwards (permissions restored first).
// Paths given to the helpers are relative to the tree's root.
class TempTree {
public:
    TempTree();
    ~TempTree();
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    const std::string& root() const { return root_; }
    std::string path(const std::string& relative) const;

    // Parent folders are made as needed. Returns the absolute path.
    std::string folder(const std::string& relative);
    std::string file(const std::string& relative, std::int64_t size, char fill = 'x');
    std::string fileWithText(const std::string& relative, const std::string& contents);
    std::string sparseFile(const std::string& relative, std::int64_t size);
    std::string hardLink(const std::string& existing, const std::string& relative);
    std::string symlink(const std::string& target, const std::string& relative);
    // chmod; the tree restores write and search rights before removing itself.
    void chmod(const std::string& relative, mode_t mode);
    void remove(const std::string& relative);
    void setModified(const std::string& relative, std::int64_t unixSeconds);

private:
    std::string root_;
};

// Points HOME and the XDG folders (data, config, cache, state) and TARNBRIDGE_STATE_DIR at a
// private tree for the life of the object, so no test touches the real home or Trash.
class FakeHome {
public:
    FakeHome();
    ~FakeHome();
    TempTree& tree() { return tree_; }
    std::string home() const { return tree_.root() + "/home"; }
    std::string dataHome() const { return home() + "/.local/share"; }
    std::string configHome() const { return home() + "/.config"; }
    std::string cacheHome() const { return home() + "/.cache"; }
    std::string stateHome() const { return home() + "/.local/state"; }

private:
    TempTree tree_;
    std::map<std::string, std::optional<std::string>> saved_;
};

// Runs a program and collects what it printed. Arguments are passed as they are (no shell).
struct ProcessOutput {
    int exitCode = -1;
    std::string out;
    std::string err;
};
ProcessOutput runProcess(const std::vector<std::string>& argv, const std::string& input = {});

// The tarnbridge-cli binary under test: the one built beside the tests, or $TARNBRIDGE_CLI.
std::string cliPath();

bool runningAsRoot();

} // namespace tarnbridge::test

namespace tarnbridge::test {

// Tests run as root in CI, and root reads every folder. While this object lives, the calling
// thread loses the capabilities that bypass file permissions, so "unreadable" means
// unreadable. Does nothing for an ordinary user.
class WithoutAdminRights {
public:
    WithoutAdminRights();
    ~WithoutAdminRights();
    WithoutAdminRights(const WithoutAdminRights&) = delete;
    WithoutAdminRights& operator=(const WithoutAdminRights&) = delete;

private:
    bool changed_ = false;
    unsigned effective_[2] = {0, 0};
};

} // namespace tarnbridge::test
