// Generates a deterministic folder tree for the scan benchmarks: the same seed and entry count
// give the same names, sizes, links and dates every time.
//
//   make_tree DIR [--entries N] [--seed S]
//
// Realistic shape: depth mostly 3 to 12 with a few deeper chains, small folders with a long
// tail of big ones, one folder of 100,000 entries, names of 5 to 40 bytes (some non-ASCII, a
// few not UTF-8), log-normal sizes written sparse (every 20th file gets up to 64 KiB of real
// data, so allocated sizes are not all zero), hard links, symbolic links (to files, to folders,
// dangling) and empty folders.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <string>
#include <vector>

#include "BenchRandom.h"

namespace {

using Random = BenchRandom;

[[noreturn]] void fail(const std::string& what)
{
    std::fprintf(stderr, "make_tree: %s: %s\n", what.c_str(), std::strerror(errno));
    std::exit(1);
}

const char* const kExtensions[] = {".txt", ".jpg", ".png", ".so", ".h", ".cpp", ".py", ".json",
                                   ".mp4", ".pdf", ".gz", ".log", ".html", ".js", "", ""};
const char* const kFragments[] = {"data", "cache", "photo", "report", "lib", "module", "index",
                                  "backup", "draft", "config", "image", "notes", "build", "test",
                                  "caf\xC3\xA9", "\xC3\xBC" "ber", "\xE6\x97\xA5\xE6\x9C\xAC", "v2"};

std::string makeName(Random& rng, std::uint64_t index)
{
    std::string name;
    const std::size_t target = 5 + rng.below(36); // 5..40 bytes
    while (name.size() + 6 < target) {
        name += kFragments[rng.below(sizeof kFragments / sizeof *kFragments)];
        name += rng.below(3) ? '_' : '-';
    }
    if (rng.below(500) == 0)
        name += "\xFF\xFE"; // not UTF-8
    name += std::to_string(index);
    name += kExtensions[rng.below(sizeof kExtensions / sizeof *kExtensions)];
    return name;
}

class Maker {
public:
    Maker(std::string root, std::uint64_t entries, std::uint64_t seed)
        : root_(std::move(root)), budget_(entries), rng_{seed}
    {
    }

    std::uint64_t run()
    {
        // The one huge folder first, so that it exists whatever the count.
        const std::string huge = root_ + "/huge-folder";
        folder(huge);
        const std::uint64_t hugeCount = std::min<std::uint64_t>(100000, budget_ / 10);
        for (std::uint64_t i = 0; i < hugeCount; ++i)
            file(huge + "/" + makeName(rng_, i), 1 + rng_.below(4096), false);

        pending_.push_back({root_, 0});
        while (budget_ > 0) {
            if (pending_.empty()) { // the tree stopped growing: start another top-level folder
                const std::string top = root_ + "/" + makeName(rng_, serial_++);
                folder(top);
                pending_.push_back({top, 1});
                continue;
            }
            // Take a random pending folder: a mix of deep and broad growth.
            const std::size_t pick = rng_.below(pending_.size());
            const Pending next = pending_[pick];
            pending_[pick] = pending_.back();
            pending_.pop_back();
            fill(next);
        }
        // Folders got their final times only now: every entry made inside touched them.
        for (auto it = folders_.rbegin(); it != folders_.rend(); ++it)
            setTime(it->first, it->second);
        setTime(root_, 1'750'000'000);
        return made_;
    }

private:
    struct Pending {
        std::string path;
        int depth;
    };

    void fill(const Pending& at)
    {
        // Most folders are small; some hold hundreds or thousands.
        std::uint64_t count = 1 + std::uint64_t(std::exp(1.6 + 1.1 * rng_.normal()));
        count = std::min<std::uint64_t>(count, 5000);
        // A few chains go far deeper than the rest.
        if (at.depth > 4 && rng_.below(2000) == 0) {
            std::string chain = at.path;
            for (int level = 0; level < 40 && budget_ > 0; ++level) {
                chain += "/deep" + std::to_string(level);
                folder(chain);
            }
            if (budget_ > 0)
                file(chain + "/bottom.txt", 100, false);
        }
        const double folderShare = at.depth < 2 ? 0.5 : (at.depth < 10 ? 0.16 : 0.03);
        for (std::uint64_t i = 0; i < count && budget_ > 0; ++i) {
            const std::string path = at.path + "/" + makeName(rng_, serial_++);
            const double roll = rng_.unit();
            if (roll < folderShare) {
                folder(path);
                if (rng_.below(25) != 0) // some folders stay empty
                    pending_.push_back({path, at.depth + 1});
            } else if (roll < folderShare + 0.02 && !files_.empty()) {
                link(files_[rng_.below(files_.size())], path);
            } else if (roll < folderShare + 0.035) {
                const int kind = int(rng_.below(3));
                std::string target = kind == 0 && !files_.empty() ? files_[rng_.below(files_.size())]
                                   : kind == 1                    ? at.path
                                                                  : at.path + "/missing-target";
                symlink(target, path);
            } else {
                const double size = std::exp(8.3 + 2.4 * rng_.normal()); // median about 4 kB
                file(path, std::uint64_t(std::min(size, 4e9)), rng_.below(20) == 0);
            }
        }
    }

    void counted()
    {
        ++made_;
        --budget_;
    }
    // Dates spread over about six years before a fixed moment.
    std::int64_t someDate() { return 1'750'000'000 - std::int64_t(rng_.below(6 * 365 * 86400)); }
    static void setTime(const std::string& path, std::int64_t when)
    {
        struct timespec times[2] = {{when, 0}, {when, 0}};
        if (::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
            fail("utimensat " + path);
    }
    void stamp(const std::string& path) { setTime(path, someDate()); }
    void folder(const std::string& path)
    {
        if (::mkdir(path.c_str(), 0755) != 0)
            fail("mkdir " + path);
        folders_.emplace_back(path, someDate());
        counted();
    }
    void file(const std::string& path, std::uint64_t size, bool realData)
    {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0)
            fail("open " + path);
        if (realData) {
            static char data[65536];
            const std::size_t n = std::size_t(std::min<std::uint64_t>(size, sizeof data));
            for (std::size_t i = 0; i < n; ++i)
                data[i] = char(rng_.next());
            if (::write(fd, data, n) != ssize_t(n))
                fail("write " + path);
        }
        if (::ftruncate(fd, off_t(size)) != 0)
            fail("ftruncate " + path);
        ::close(fd);
        stamp(path);
        if (files_.size() < 10000)
            files_.push_back(path);
        else
            files_[rng_.below(files_.size())] = path;
        counted();
    }
    void link(const std::string& existing, const std::string& path)
    {
        if (::link(existing.c_str(), path.c_str()) != 0)
            fail("link " + path);
        counted();
    }
    void symlink(const std::string& target, const std::string& path)
    {
        if (::symlink(target.c_str(), path.c_str()) != 0)
            fail("symlink " + path);
        stamp(path);
        counted();
    }

    std::string root_;
    std::uint64_t budget_;
    Random rng_;
    std::uint64_t made_ = 0;
    std::uint64_t serial_ = 0;
    std::vector<Pending> pending_;
    std::vector<std::string> files_;
    std::vector<std::pair<std::string, std::int64_t>> folders_;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || std::string(argv[1]) == "--help") {
        std::fprintf(stderr, "Usage: make_tree DIR [--entries N] [--seed S]\n");
        return 2;
    }
    std::string root = argv[1];
    std::uint64_t entries = 1'000'000, seed = 7;
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--entries")
            entries = std::strtoull(argv[i + 1], nullptr, 10);
        else if (option == "--seed")
            seed = std::strtoull(argv[i + 1], nullptr, 10);
        else {
            std::fprintf(stderr, "make_tree: unknown option %s\n", option.c_str());
            return 2;
        }
    }
    ::mkdir(root.c_str(), 0755);
    if (DIR* dir = ::opendir(root.c_str())) {
        int seen = 0;
        while (const dirent* e = ::readdir(dir))
            if (std::strcmp(e->d_name, ".") && std::strcmp(e->d_name, ".."))
                ++seen;
        ::closedir(dir);
        if (seen) {
            std::fprintf(stderr, "make_tree: %s is not empty; give a new or empty folder.\n", root.c_str());
            return 1;
        }
    } else {
        fail("opendir " + root);
    }
    Maker maker(root, entries, seed);
    const std::uint64_t made = maker.run();
    std::printf("%llu entries under %s\n", static_cast<unsigned long long>(made), root.c_str());
    return 0;
}
