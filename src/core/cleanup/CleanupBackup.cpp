#include "cleanup/CleanupBackup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <limits>
#include <memory>

#include "cleanup/CleanupService.h"
#include "model/Errors.h"
#include "model/Formatting.h"
#include "model/Identifiers.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"
#include "platform/AtomicFile.h"
#include "platform/FileFacts.h"
#include "platform/FileIO.h"
#include "platform/UserFolders.h"
#include "scan/DiskScanner.h"

namespace tarnbridge {

void BackupReceipt::write(json::Writer& w) const
{
    w.beginObject();
    w.key("id").string(id);
    w.key("directory").string(directory);
    w.key("createdAt").date(createdAt);
    w.key("items").beginArray();
    for (const BackupItem& item : items) {
        w.beginObject();
        w.key("originalPath").string(item.originalPath);
        w.key("relativePath").string(item.relativePath);
        w.key("bytes").integer(item.bytes);
        w.endObject();
    }
    w.endArray();
    w.endObject();
}

BackupReceipt BackupReceipt::read(const json::Value& v)
{
    BackupReceipt r;
    r.id = v.stringAt("id");
    r.directory = v.stringAt("directory");
    r.createdAt = json::dateAt(v, "createdAt");
    for (const json::Value& item : v.arrayAt("items"))
        r.items.push_back({item.stringAt("originalPath"),
                           item.stringAt("relativePath"),
                           item.integerAt("bytes")});
    return r;
}

namespace CleanupBackup {

namespace {

[[noreturn]] void refuse(const std::string& message)
{
    throw TarnbridgeError(message);
}

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

int openOrThrow(const std::string& path, int flags, mode_t mode = 0)
{
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode);
    if (fd < 0)
        throw systemError(errno);
    return fd;
}

std::string linkText(const std::string& path)
{
    std::string text(4096, '\0');
    for (;;) {
        const ssize_t n = ::readlink(path.c_str(), text.data(), text.size());
        if (n < 0)
            throw systemError(errno);
        if (std::size_t(n) < text.size()) {
            text.resize(std::size_t(n));
            return text;
        }
        text.resize(text.size() * 2);
    }
}

void copyFile(const std::string& from, const std::string& to, const struct stat& st)
{
    const FileDescriptor in(openOrThrow(from, O_RDONLY));
    const FileDescriptor out(openOrThrow(to, O_WRONLY | O_CREAT | O_EXCL, st.st_mode & 07777));
    // The kernel copies (or shares extents) where it can; plain reads and writes elsewhere.
    off_t left = st.st_size;
    bool kernelCopy = true;
    while (kernelCopy && left > 0) {
        const ssize_t n = ::copy_file_range(in.get(), nullptr, out.get(), nullptr, std::size_t(left), 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            kernelCopy = false;
            break;
        }
        left -= n;
    }
    if (!kernelCopy) {
        // Start over from where the kernel copy stopped.
        const off_t done = st.st_size - left;
        if (::lseek(in.get(), done, SEEK_SET) < 0 || ::lseek(out.get(), done, SEEK_SET) < 0)
            throw systemError(errno);
        std::unique_ptr<char[]> buffer(new char[1 << 20]);
        for (;;) {
            const std::size_t n = platform::readFully(in.get(), buffer.get(), 1 << 20);
            if (n == 0)
                break;
            for (std::size_t written = 0; written < n;) {
                const ssize_t w = ::write(out.get(), buffer.get() + written, n - written);
                if (w < 0 && errno == EINTR)
                    continue;
                if (w < 0)
                    throw systemError(errno);
                written += std::size_t(w);
            }
        }
    }
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    ::futimens(out.get(), times);
}

// Copies a file or a whole tree; links stay links.
void copyItem(const std::string& from, const std::string& to)
{
    struct stat st {};
    if (::lstat(from.c_str(), &st) != 0)
        throw systemError(errno);
    if (S_ISLNK(st.st_mode)) {
        if (::symlink(linkText(from).c_str(), to.c_str()) != 0)
            throw systemError(errno);
        return;
    }
    if (S_ISREG(st.st_mode)) {
        copyFile(from, to, st);
        return;
    }
    if (!S_ISDIR(st.st_mode))
        refuse(kOnlyRegularFiles);
    if (::mkdir(to.c_str(), 0700) != 0)
        throw systemError(errno);
    std::error_code error;
    for (const auto& child : std::filesystem::directory_iterator(from, error)) {
        const std::string name = child.path().filename().string();
        copyItem(PathText::join(from, name), PathText::join(to, name));
    }
    if (error)
        throw systemError(error.value());
    ::chmod(to.c_str(), st.st_mode & 07777);
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    ::utimensat(AT_FDCWD, to.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

std::string resolvedFolder(const std::string& path)
{
    char* out = ::realpath(ScanPaths::normalize(path).c_str(), nullptr);
    if (!out)
        throw systemError(errno);
    std::string result(out);
    std::free(out);
    return result;
}

// Removes the unfinished backup on every way out until `keep` is called.
class TemporaryFolder {
public:
    explicit TemporaryFolder(std::string path) : path_(std::move(path)) {}
    ~TemporaryFolder()
    {
        if (kept_)
            return;
        // Copies keep their folders' modes; a read-only one would keep its contents from going.
        std::error_code ignored;
        ::chmod(path_.c_str(), 0700);
        for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
             it != std::filesystem::recursive_directory_iterator(); it.increment(ignored))
            if (it->is_directory(ignored) && !it->is_symlink(ignored))
                ::chmod(it->path().c_str(), 0700);
        std::filesystem::remove_all(path_, ignored);
    }
    void keep() { kept_ = true; }

private:
    std::string path_;
    bool kept_ = false;
};

} // namespace

void compareFile(const std::string& a, const std::string& b, const CancellationFlag& cancellation)
{
    if (!platform::statPath(a).identity.isRegularFile() || !platform::statPath(b).identity.isRegularFile())
        refuse(kOnlyRegularFiles);
    const FileDescriptor left(openOrThrow(a, O_RDONLY));
    const FileDescriptor right(openOrThrow(b, O_RDONLY));
    constexpr std::size_t kBlock = 1 << 20;
    std::unique_ptr<char[]> one(new char[kBlock]), two(new char[kBlock]);
    for (;;) {
        cancellation.check();
        const std::size_t n = platform::readFully(left.get(), one.get(), kBlock);
        const std::size_t m = platform::readFully(right.get(), two.get(), kBlock);
        if (n != m || std::memcmp(one.get(), two.get(), n) != 0)
            refuse("The backup of " + std::string(PathText::name(a)) + " does not match the original.");
        if (n == 0)
            return;
    }
}

void verify(const std::string& source, const std::string& copy, const CancellationFlag& cancellation)
{
    if (!platform::statPath(source).identity.isDirectory()) {
        compareFile(source, copy, cancellation);
        return;
    }
    const ScanResult original = DiskScanner::scan(source, cancellation);
    const ScanResult backup = DiskScanner::scan(copy, cancellation);
    if (original.skippedCount() != 0 || backup.skippedCount() != 0 || original.nodeCount() != backup.nodeCount())
        refuse(kBackupNotVerified);
    const ScanData& o = original.data();
    const ScanData& b = backup.data();
    std::string path, counterpart;
    for (NodeId id = 0; id < o.size(); ++id) {
        cancellation.check();
        path.clear();
        o.appendPath(id, path);
        counterpart = copy + path.substr(source.size());
        const NodeId match = b.find(counterpart);
        const NodeRecord& r = o[id];
        const std::string notVerified = "The backup of " + std::string(o.name(id)) + " could not be verified.";
        if (match == kNoNode)
            refuse(notVerified);
        const NodeRecord& c = b[match];
        if (r.isDirectory() != c.isDirectory() || r.isSymbolicLink() != c.isSymbolicLink() ||
            r.logicalSize != c.logicalSize || r.isCloudPlaceholder())
            refuse(notVerified);
        if (r.isSymbolicLink()) {
            if (linkText(path) != linkText(counterpart))
                refuse(kLinkMismatch);
        } else if (!r.isDirectory()) {
            compareFile(path, counterpart, cancellation);
        }
    }
}

BackupReceipt create(const std::vector<CleanupEntry>& entries, const std::string& parent,
                     const CancellationFlag& cancellation, const Progress& progress)
{
    const std::vector<CleanupEntry> clean = CleanupEntry::normalized(entries);
    if (clean.empty())
        refuse(kNoFilesForBackup);
    cancellation.check();

    const std::string destination = resolvedFolder(parent);
    struct stat st {};
    if (::stat(destination.c_str(), &st) != 0)
        throw systemError(errno);
    if (!S_ISDIR(st.st_mode))
        refuse(kChooseBackupFolder);

    const auto destinationSpellings = ScanPaths::candidates(destination);
    for (const CleanupEntry& e : clean) {
        const std::string item = platform::resolvedPath(ScanPaths::normalize(e.node.path));
        for (const std::string& p : ScanPaths::candidates(item))
            for (const std::string& d : destinationSpellings)
                if (PathText::contains(d, p))
                    refuse(kBackupInsideItems);
        cancellation.check();
        e.validate(CleanupPolicy{platform::currentHome()});
    }

    std::int64_t needed = 0;
    for (const CleanupEntry& e : clean)
        if (e.node.logicalSize > 0)
            needed = e.node.logicalSize > std::numeric_limits<std::int64_t>::max() - needed
                         ? std::numeric_limits<std::int64_t>::max()
                         : needed + e.node.logicalSize;
    struct statvfs volume {};
    if (::statvfs(destination.c_str(), &volume) == 0) {
        // Free bytes saturate rather than wrap on a huge volume.
        const std::uint64_t blocks = volume.f_bavail, unit = volume.f_frsize ? volume.f_frsize : 1;
        const std::uint64_t free = blocks > std::numeric_limits<std::uint64_t>::max() / unit
                                       ? std::numeric_limits<std::uint64_t>::max()
                                       : blocks * unit;
        if (free < std::uint64_t(needed))
            refuse("The backup needs " + formattedBytes(needed) + ". Choose a disk with more free space.");
    }

    BackupReceipt receipt;
    receipt.id = newIdentifier();
    receipt.createdAt = now();
    const std::string stamp = formattedTime(std::int64_t(receipt.createdAt), "%Y-%m-%d %H.%M.%S", ClockZone::local);
    const std::string finalPath =
        PathText::join(destination, "Tarnbridge Backup " + stamp + " " + receipt.id.substr(0, 8));
    const std::string temporary = PathText::join(destination, ".Tarnbridge-backup-" + receipt.id);
    if (::mkdir(temporary.c_str(), 0700) != 0)
        throw systemError(errno);
    TemporaryFolder cleanup(temporary);

    auto report = [&](const std::string& text) {
        if (progress)
            progress(text);
    };
    for (std::size_t i = 0; i < clean.size(); ++i) {
        cancellation.check();
        const CleanupEntry& e = clean[i];
        const std::string name(PathText::name(e.node.path));
        char number[24];
        std::snprintf(number, sizeof number, "%04zu", i + 1);
        const std::string relative = std::string("Files/") + number + "/" + name;
        const std::string copy = PathText::join(temporary, relative);
        std::error_code error;
        std::filesystem::create_directories(parentFolder(copy), error);
        if (error)
            throw systemError(error.value());
        report("Backing up " + name + "…");
        copyItem(e.node.path, copy);
        cancellation.check();
        report("Verifying " + name + "…");
        verify(e.node.path, copy, cancellation);
        // The original may have changed while it was copied.
        e.validate(CleanupPolicy{platform::currentHome()});
        receipt.items.push_back({e.node.path, relative, e.node.logicalSize});
    }
    cancellation.check();

    receipt.directory = finalPath;
    json::Writer w;
    receipt.write(w);
    AtomicFile::write(PathText::join(temporary, "Manifest.json"), w.text());
    if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, finalPath.c_str(), RENAME_NOREPLACE) != 0)
        throw systemError(errno);
    cleanup.keep();
    return receipt;
}

} // namespace CleanupBackup

} // namespace tarnbridge
