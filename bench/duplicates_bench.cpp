// Duplicate search against jdupes and rdfind on one generated tree, warm cache.
//
//   duplicates_bench --cli PATH [--files N] [--bytes N] [--runs N] [--seed S] [--parent DIR]
//                    [--keep]
//
// Makes a deterministic tree of N files (default 20,000) holding about BYTES of real data
// (default 2 GB, nothing sparse) in a new folder below PARENT (default /tmp): duplicate groups
// of 2 to 6 copies and of every size, near copies that differ only in their last byte, files
// of a group's size with other content, hard links and empty files. Then, after one untimed
// run each, times RUNS runs (default 3) of
//   tarnbridge-cli duplicates TREE --min-size 0 --json --quiet   (the scan included)
//   jdupes -r -q TREE
//   rdfind -dryrun true TREE
// and prints the median wall time, the peak resident size and each tool's time ratio to ours.
// Last it checks that all three report the groups the tree was built with, comparing groups as
// sets of inodes (hard links are one file, empty files are no duplicates). The tree is removed
// at the end, also after an error or Ctrl+C; --keep leaves it after a run that found the right
// groups, for profiling. Exit status 1 if the groups differ.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "BenchRandom.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

std::atomic<bool> interrupted{false};
extern "C" void onSignal(int) {
    interrupted = true;
}

void checkInterrupted() {
    if (interrupted)
        throw std::runtime_error("interrupted");
}

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

// One content of the tree: its copies, near copies and links become files.
struct Content {
    std::uint64_t seed;
    std::int64_t size = 0;
    int copies = 1;
    bool nearCopy = false;
    int links = 0;
    int sizeOf = -1; // a decoy takes the size of this content, with bytes of its own
};

struct Tree {
    std::string root;
    std::int64_t files = 0, bytes = 0, links = 0, nearCopies = 0, decoys = 0, empties = 0;
    std::vector<std::vector<std::string>> groups; // by construction: the copies of each content
};

// Deterministic bytes of one content; a near copy differs in the last byte only.
void writeContent(const std::string& path, const Content& c, bool near) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        fail("open " + path);
    BenchRandom random{c.seed};
    std::vector<std::uint64_t> block(1 << 17); // 1 MiB
    for (std::int64_t left = c.size; left > 0;) {
        for (auto& word : block)
            word = random.next();
        const std::size_t n =
            std::size_t(std::min<std::int64_t>(left, std::int64_t(block.size() * 8)));
        auto* bytes = reinterpret_cast<unsigned char*>(block.data());
        if (near && std::int64_t(n) == left)
            bytes[n - 1] ^= 0x5a;
        if (::write(fd, bytes, n) != ssize_t(n))
            fail("write " + path);
        left -= std::int64_t(n);
    }
    ::close(fd);
}

Tree makeTree(const std::string& root, std::int64_t fileCount, std::int64_t targetBytes,
              std::uint64_t seed) {
    BenchRandom random{seed};
    std::vector<Content> contents;
    std::int64_t files = 40; // empty files
    while (files < fileCount) {
        Content c;
        c.seed = random.next();
        // Mostly small files, log-uniform from 64 bytes to 2 MB, and a few big ones.
        c.size = random.unit() < 0.004
                     ? std::int64_t(8e6 + random.unit() * 56e6)
                     : std::int64_t(std::exp(std::log(64.0) + random.unit() * std::log(2e6 / 64)));
        const double kind = random.unit();
        if (kind < 0.30) {
            const double r = random.unit();
            c.copies = r < 0.45 ? 2 : r < 0.70 ? 3 : r < 0.85 ? 4 : r < 0.95 ? 5 : 6;
        } else if (kind < 0.38 && !contents.empty()) {
            c.sizeOf = int(random.below(contents.size()));
        }
        c.nearCopy = random.unit() < 0.06;
        c.links = random.unit() < 0.04 ? 1 + int(random.below(2)) : 0;
        files += c.copies + (c.nearCopy ? 1 : 0) + c.links;
        contents.push_back(c);
    }
    // Scale the sizes so the real bytes come to the target; decoys follow their model.
    double raw = 0;
    for (const Content& c : contents)
        raw += double(c.size) * (c.copies + (c.nearCopy ? 1 : 0));
    for (Content& c : contents)
        c.size =
            std::max<std::int64_t>(1, std::llround(double(c.size) * double(targetBytes) / raw));
    for (Content& c : contents)
        if (c.sizeOf >= 0)
            c.size = contents[std::size_t(c.sizeOf)].size;

    Tree tree;
    tree.root = root;
    for (int a = 0; a < 10; ++a)
        for (int b = 0; b < 10; ++b)
            fs::create_directories(root + "/a" + std::to_string(a) + "/b" + std::to_string(b));
    std::int64_t serial = 0;
    auto newPath = [&] {
        char name[64];
        std::snprintf(name, sizeof name, "/a%d/b%d/f%06lld.dat", int(random.below(10)),
                      int(random.below(10)), static_cast<long long>(serial++));
        return root + name;
    };
    for (int i = 0; i < 40; ++i) {
        const std::string p = newPath();
        std::ofstream{p};
        ++tree.empties;
    }
    for (const Content& c : contents) {
        checkInterrupted();
        std::vector<std::string> copies;
        for (int k = 0; k < c.copies; ++k) {
            copies.push_back(newPath());
            writeContent(copies.back(), c, false);
            tree.bytes += c.size;
        }
        if (c.nearCopy) {
            writeContent(newPath(), c, true);
            tree.bytes += c.size;
            ++tree.nearCopies;
        }
        for (int l = 0; l < c.links; ++l) {
            const std::string p = newPath();
            if (::link(copies.front().c_str(), p.c_str()) != 0)
                fail("link " + p);
            ++tree.links;
        }
        tree.decoys += c.sizeOf >= 0;
        if (c.copies >= 2)
            tree.groups.push_back(copies);
    }
    tree.files = serial;
    return tree;
}

struct Timing {
    double seconds;
    long peakKB;
};

// Runs argv with stdout to `output` (or /dev/null) and stderr to /dev/null. The peak size comes
// from /usr/bin/time: a child spawned from here would carry this program's own peak along.
Timing runOnce(const std::vector<std::string>& command, const std::string& output = "/dev/null") {
    char report[] = "/tmp/tarnbridge-dup-bench-time-XXXXXX";
    const int reportFd = ::mkstemp(report);
    if (reportFd < 0)
        fail("mkstemp");
    ::close(reportFd);
    std::vector<std::string> argv{"/usr/bin/time", "-f", "%M", "-o", report};
    argv.insert(argv.end(), command.begin(), command.end());
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    // A process group of its own: on Ctrl+C the tool goes with /usr/bin/time before the tree.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int error = ::posix_spawn(&pid, args[0], &actions, &attributes, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        errno = error;
        ::unlink(report);
        fail("cannot run " + command[0]);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            fail("wait");
        if (interrupted)
            ::kill(-pid, SIGTERM);
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    long peakKB = 0;
    {
        std::ifstream in(report);
        for (std::string line; std::getline(in, line);) // a failed command adds a line before
            if (!line.empty() && std::isdigit(static_cast<unsigned char>(line[0])))
                peakKB = std::stol(line);
    }
    ::unlink(report);
    checkInterrupted();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error(command[0] + " failed with status " + std::to_string(status));
    return {seconds, peakKB};
}

// One untimed run for the cache, then `runs` timed ones; the first timed run's output is kept.
Timing measure(const std::vector<std::string>& argv, int runs, const std::string& output) {
    runOnce(argv);
    std::vector<double> times;
    std::vector<long> peaks;
    for (int i = 0; i < runs; ++i) {
        const Timing t = runOnce(argv, i == 0 ? output : "/dev/null");
        times.push_back(t.seconds);
        peaks.push_back(t.peakKB);
    }
    std::sort(times.begin(), times.end());
    std::sort(peaks.begin(), peaks.end());
    return {times[times.size() / 2], peaks[peaks.size() / 2]};
}

using InodeGroup = std::set<std::pair<dev_t, ino_t>>;
using Groups = std::set<InodeGroup>;

// Groups as sets of files on disk: hard links of one inode are one member, and a group of one
// remaining file is none.
Groups byInode(const std::vector<std::vector<std::string>>& groups) {
    Groups out;
    for (const auto& paths : groups) {
        InodeGroup g;
        for (const auto& p : paths) {
            struct stat st {};
            if (::lstat(p.c_str(), &st) != 0)
                fail("lstat " + p);
            g.emplace(st.st_dev, st.st_ino);
        }
        if (g.size() >= 2)
            out.insert(g);
    }
    return out;
}

std::vector<std::string> lines(const std::string& file) {
    std::ifstream in(file);
    std::vector<std::string> out;
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

// Our JSON lines: the generated names need no unescaping.
std::vector<std::vector<std::string>> oursGroups(const std::string& file) {
    std::vector<std::vector<std::string>> out;
    for (const auto& line : lines(file)) {
        if (line.find("\"kind\":\"group\"") == std::string::npos)
            continue;
        out.emplace_back();
        for (auto at = line.find("{\"path\":\""); at != std::string::npos;
             at = line.find("{\"path\":\"", at + 1)) {
            const auto start = at + 9;
            out.back().push_back(line.substr(start, line.find('"', start) - start));
        }
    }
    return out;
}

// jdupes: one path a line, groups separated by an empty line.
std::vector<std::vector<std::string>> jdupesGroups(const std::string& file) {
    std::vector<std::vector<std::string>> out(1);
    for (const auto& line : lines(file)) {
        if (line.empty()) {
            if (!out.back().empty())
                out.emplace_back();
        } else {
            out.back().push_back(line);
        }
    }
    if (out.back().empty())
        out.pop_back();
    return out;
}

// rdfind's results file: "duptype id depth size device inode priority name"; the members of a
// set share the absolute value of id.
std::vector<std::vector<std::string>> rdfindGroups(const std::string& file) {
    std::map<long long, std::vector<std::string>> sets;
    for (const auto& line : lines(file)) {
        if (line.empty() || line[0] == '#')
            continue;
        std::size_t at = 0;
        std::vector<std::string> fields;
        for (int i = 0; i < 7; ++i) {
            const auto space = line.find(' ', at);
            fields.push_back(line.substr(at, space - at));
            at = space + 1;
        }
        sets[std::llabs(std::stoll(fields[1]))].push_back(line.substr(at));
    }
    std::vector<std::vector<std::string>> out;
    for (auto& [id, paths] : sets)
        out.push_back(std::move(paths));
    return out;
}

std::int64_t members(const Groups& g) {
    std::int64_t n = 0;
    for (const auto& group : g)
        n += std::int64_t(group.size());
    return n;
}

std::string option(int argc, char** argv, const char* name, const std::string& fallback) {
    for (int i = 1; i + 1 < argc; ++i)
        if (std::strcmp(argv[i], name) == 0)
            return argv[i + 1];
    return fallback;
}

} // namespace

int main(int argc, char** argv) {
    const std::string cli = option(argc, argv, "--cli", "");
    if (cli.empty()) {
        std::fprintf(
            stderr,
            "usage: duplicates_bench --cli PATH [--files N] [--bytes N] [--runs N] [--seed S] "
            "[--parent DIR] [--keep]\n");
        return 2;
    }
    const std::int64_t fileCount = std::stoll(option(argc, argv, "--files", "20000"));
    std::int64_t bytes = std::stoll(option(argc, argv, "--bytes", "2000000000"));
    const int runs = std::stoi(option(argc, argv, "--runs", "3"));
    const std::uint64_t seed = std::stoull(option(argc, argv, "--seed", "11"));
    const std::string parent = option(argc, argv, "--parent", "/tmp");
    const bool keep = std::find_if(argv + 1, argv + argc, [](const char* a) {
                          return std::strcmp(a, "--keep") == 0;
                      }) != argv + argc;

    struct sigaction action {};
    action.sa_handler = onSignal; // no SA_RESTART: a wait is interrupted and the tree removed
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    // Keep a quarter of the free space free; with less room the files get smaller, never sparse.
    struct statvfs vfs {};
    if (::statvfs(parent.c_str(), &vfs) == 0) {
        const double room = double(vfs.f_bavail) * double(vfs.f_frsize) * 0.75;
        if (double(bytes) > room) {
            std::printf("Only %.2f GB free below %s: the tree holds %.2f GB instead.\n",
                        room / 1e9 / 0.75, parent.c_str(), room / 2e9);
            bytes = std::int64_t(room / 2);
        }
    }

    std::string root = parent + "/tarnbridge-dup-bench-XXXXXX";
    if (!::mkdtemp(root.data())) {
        std::perror("mkdtemp");
        return 1;
    }
    int status = 0;
    try {
        const auto start = std::chrono::steady_clock::now();
        const Tree tree = makeTree(root, fileCount, bytes, seed);
        std::printf(
            "Tree %s: %lld files, %.2f GB of data, %zu duplicate groups, %lld near copies, %lld "
            "same-size decoys, %lld hard links, %lld empty files (made in %.1f s)\n",
            root.c_str(), static_cast<long long>(tree.files), double(tree.bytes) / 1e9,
            tree.groups.size(), static_cast<long long>(tree.nearCopies),
            static_cast<long long>(tree.decoys), static_cast<long long>(tree.links),
            static_cast<long long>(tree.empties),
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());

        const std::string ours = root + ".ours", jdupes = root + ".jdupes",
                          rdfind = root + ".rdfind";
        struct Tool {
            const char* label;
            std::vector<std::string> argv;
            std::string output;
        };
        const std::vector<Tool> tools{
            {"tarnbridge-cli duplicates",
             {cli, "duplicates", root, "--min-size", "0", "--json", "--quiet"},
             ours},
            {"jdupes -r", {"jdupes", "-r", "-q", root}, jdupes},
            {"rdfind -dryrun true",
             {"rdfind", "-dryrun", "true", "-outputname", rdfind, root},
             "/dev/null"},
        };
        std::printf("\n%-28s %10s %10s %11s   (%d runs each, warm cache)\n", "tool", "median s",
                    "peak MB", "time ratio", runs);
        double oursSeconds = 0;
        for (const Tool& tool : tools) {
            const Timing t = measure(tool.argv, runs, tool.output);
            if (oursSeconds == 0)
                oursSeconds = t.seconds;
            std::printf("%-28s %10.2f %10.1f %11.2f\n", tool.label, t.seconds,
                        double(t.peakKB) / 1000, t.seconds / oursSeconds);
        }

        const Groups expected = byInode(tree.groups);
        const std::vector<std::pair<const char*, Groups>> found{
            {"tarnbridge-cli", byInode(oursGroups(ours))},
            {"jdupes -r", byInode(jdupesGroups(jdupes))},
            {"rdfind", byInode(rdfindGroups(rdfind))},
        };
        std::printf("\nGroups by construction: %zu (%lld files)\n", expected.size(),
                    static_cast<long long>(members(expected)));
        for (const auto& [label, groups] : found) {
            std::size_t missing = 0, extra = 0;
            for (const auto& g : expected)
                missing += groups.count(g) == 0;
            for (const auto& g : groups)
                extra += expected.count(g) == 0;
            std::printf("%-16s %zu groups (%lld files): %s", label, groups.size(),
                        static_cast<long long>(members(groups)),
                        missing + extra == 0 ? "the same\n" : "DIFFERENT: ");
            if (missing + extra) {
                std::printf("%zu missing, %zu not expected\n", missing, extra);
                status = 1;
            }
        }
        if (found[0].second != found[1].second) {
            std::printf("tarnbridge-cli and jdupes -r disagree.\n");
            status = 1;
        } else {
            std::printf("tarnbridge-cli and jdupes -r find the same groups.\n");
        }
        for (const auto& f : {ours, jdupes, rdfind})
            fs::remove(f);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "duplicates_bench: %s\n", e.what());
        status = 1;
    }
    std::error_code ignored;
    if (keep && status == 0 && !interrupted)
        std::printf("Tree kept: %s\n", root.c_str());
    else
        fs::remove_all(root, ignored);
    for (const char* suffix : {".ours", ".jdupes", ".rdfind"})
        fs::remove(root + suffix, ignored);
    return status;
}
