#include "applications/ApplicationInventory.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <unordered_map>

#include "platform/DesktopEntry.h"
#include "model/Errors.h"
#include "model/PathText.h"
#include "model/TextEncoding.h"
#include "platform/DirectoryReader.h"
#include "platform/FileFacts.h"
#include "scan/DiskScanner.h"

namespace tarnbridge {

namespace {

constexpr std::size_t kWalkIssueLimit = 100;
// Desktop entries sit in "applications" and its subfolders ("kde4/…"); deeper is no menu.
constexpr int kEntryFolderDepth = 4;

std::string environment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

// An absolute $XDG_… value, else the standard default below the home folder.
std::string xdgFolder(const char* name, const std::string& home, const char* fallback)
{
    const std::string value = environment(name);
    return !value.empty() && value.front() == '/' ? value : PathText::join(home, fallback);
}

std::vector<std::string> splitList(const std::string& text, const char* fallback)
{
    std::vector<std::string> out;
    std::string_view rest = text.empty() ? std::string_view(fallback) : std::string_view(text);
    while (!rest.empty()) {
        const auto colon = rest.find(':');
        const std::string_view piece = rest.substr(0, colon);
        if (!piece.empty() &&
            piece.front() == '/') // relative entries are ignored, as the standard says
            out.emplace_back(piece);
        rest.remove_prefix(colon == std::string_view::npos ? rest.size() : colon + 1);
    }
    return out;
}

std::optional<std::string> realPath(const std::string& path)
{
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved)
        return std::nullopt;
    std::string out(resolved);
    std::free(resolved);
    return out;
}

bool lexists(const std::string& path)
{
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

bool isFolder(const std::string& path)
{
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The names in a folder, sorted so that a run reads the same way every time. 0 or the errno.
int listNames(const std::string& folder, std::vector<std::string>& out)
{
    out.clear();
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return errno ? errno : EIO;
    platform::DirectoryReader reader;
    const int error = reader.forEach(fd, [&](const char* name) { out.emplace_back(name); });
    ::close(fd);
    std::sort(out.begin(), out.end());
    return error;
}

bool caseInsensitiveEqual(std::string_view a, std::string_view b)
{
    // Stray bytes would all read as U+FFFD, so such names compare as bytes.
    if (!isValidUtf8(a) || !isValidUtf8(b))
        return a == b;
    return QString::fromUtf8(a.data(), qsizetype(a.size()))
               .compare(QString::fromUtf8(b.data(), qsizetype(b.size())), Qt::CaseInsensitive) == 0;
}

bool endsWithNoCase(std::string_view text, std::string_view suffix)
{
    return text.size() >= suffix.size() &&
           std::equal(suffix.begin(), suffix.end(), text.end() - std::ptrdiff_t(suffix.size()),
                      [](char a, char b) {
                          return std::tolower(static_cast<unsigned char>(a)) ==
                                 std::tolower(static_cast<unsigned char>(b));
                      });
}

// Where a desktop entry was found: Flatpak and Snap export folders say how the app is installed.
enum class FolderKind { plain, userFlatpak, systemFlatpak, snapd };

struct EntryFolder {
    std::string path;
    FolderKind kind;
};

std::vector<EntryFolder> entryFolders(const InventoryPlaces& places)
{
    std::vector<EntryFolder> out{
        {PathText::join(places.dataHome, "applications"), FolderKind::plain},
        {PathText::join(places.dataHome, "flatpak/exports/share/applications"),
         FolderKind::userFlatpak},
        {PathText::join(places.system.flatpak, "exports/share/applications"),
         FolderKind::systemFlatpak},
        {PathText::join(places.system.snapd, "desktop/applications"), FolderKind::snapd},
    };
    for (const std::string& dir : places.dataDirs)
        out.push_back({PathText::join(dir, "applications"), FolderKind::plain});
    return out;
}

struct EntryFile {
    std::string id;
    std::string path;
    FolderKind kind;
};

class EntryWalk {
public:
    EntryWalk(std::vector<std::string>& issues, const CancellationFlag& cancellation)
        : issues_(issues)
        , cancellation_(cancellation)
    {
    }

    void walk(const std::string& folder, const std::string& idPrefix, FolderKind kind, int level)
    {
        std::vector<std::string> names;
        if (const int error = listNames(folder, names)) {
            if (issues_.size() < kWalkIssueLimit)
                issues_.push_back(std::string(PathText::name(folder)) + ": " +
                                  std::strerror(error));
            if (names.empty())
                return;
        }
        for (const std::string& name : names) {
            cancellation_.check();
            const std::string path = PathText::join(folder, name);
            struct stat st {};
            if (::stat(path.c_str(), &st) != 0) // a dangling link is no entry
                continue;
            if (S_ISDIR(st.st_mode)) {
                if (level + 1 < kEntryFolderDepth)
                    walk(path, idPrefix + name + "-", kind, level + 1);
            } else if (S_ISREG(st.st_mode) && name.size() > 8 && name.ends_with(".desktop")) {
                files.push_back({idPrefix + name.substr(0, name.size() - 8), path, kind});
            }
        }
    }

    std::vector<EntryFile> files;

private:
    std::vector<std::string>& issues_;
    const CancellationFlag& cancellation_;
};

bool isExecutableFile(const std::string& path)
{
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

// A program given by path or found on the search path, links resolved.
std::optional<std::string> findProgram(const std::string& program, const InventoryPlaces& places)
{
    if (program.empty())
        return std::nullopt;
    if (program.find('/') != std::string::npos) {
        if (program.front() != '/' || !isExecutableFile(program))
            return std::nullopt;
        return realPath(program);
    }
    for (const std::string& dir : places.programPath) {
        const std::string candidate = PathText::join(dir, program);
        if (isExecutableFile(candidate))
            return realPath(candidate);
    }
    return std::nullopt;
}

// The folder of a program unpacked in the home folder: "~/idea-IC/bin/idea.sh" gives
// "~/idea-IC". A program in a shared folder (~/bin, ~/.local/bin) or straight in a data folder
// is only itself: its neighbours belong to other programs.
std::string homeInstallPath(const std::string& program, const InventoryPlaces& places)
{
    std::string folder(PathText::name(program).size() < program.size()
                           ? std::string_view(program).substr(
                                 0, program.size() - PathText::name(program).size() - 1)
                           : std::string_view());
    const std::string_view last = PathText::name(folder);
    if (last == "bin" || last == "sbin" || last == "libexec")
        folder.resize(folder.size() - last.size() - 1);
    if (folder.empty() || folder == places.home || !PathText::contains(folder, places.home))
        return program;
    for (const std::string& root :
         {places.dataHome, places.stateHome, places.configHome, places.cacheHome,
          PathText::join(places.home, ".var/app"), PathText::join(places.home, "snap")})
        if (PathText::contains(root, folder))
            return program;
    return folder;
}

// The program inside a Flatpak deployment, from its metadata's "command".
std::string flatpakExecutable(const std::string& deployment)
{
    try {
        const DesktopEntry metadata =
            DesktopEntry::read(PathText::join(deployment, "current/active/metadata"));
        std::string command = metadata.string("Application", "command").value_or("");
        if (command.empty())
            return {};
        if (command.starts_with("/app/"))
            command = command.substr(5);
        else if (command.find('/') == std::string::npos)
            command = "bin/" + command;
        else
            return {};
        return PathText::join(deployment, "current/active/files/" + command);
    } catch (const std::exception&) {
        return {}; // no date is all that is lost
    }
}

std::string snapRevision(const std::string& snapFolder)
{
    char target[256];
    const ssize_t n =
        ::readlink(PathText::join(snapFolder, "current").c_str(), target, sizeof target - 1);
    return n > 0 ? std::string(target, std::size_t(n)) : std::string("—");
}

// Where the application's files are, and what that makes it. False when it is not installed
// (a stale export, a program that is gone).
bool locate(DesktopApplication& app, FolderKind folder, const InventoryPlaces& places)
{
    if (!app.flatpakId.empty()) {
        app.kind = ApplicationKind::flatpak;
        const std::string user = PathText::join(places.dataHome, "flatpak/app/" + app.flatpakId);
        const std::string system = PathText::join(places.system.flatpak, "app/" + app.flatpakId);
        // An entry exported by one installation belongs to that one first.
        const bool systemFirst = folder == FolderKind::systemFlatpak;
        for (const std::string& candidate :
             systemFirst ? std::vector{system, user} : std::vector{user, system}) {
            if (isFolder(candidate)) {
                app.path = realPath(candidate).value_or(candidate);
                app.executable = flatpakExecutable(app.path);
                return true;
            }
        }
        return false;
    }
    if (!app.snapName.empty()) {
        app.kind = ApplicationKind::snap;
        const std::string folderPath = PathText::join(places.system.snapMount, app.snapName);
        if (!isFolder(folderPath))
            return false;
        app.path = realPath(folderPath).value_or(folderPath);
        app.version = snapRevision(folderPath);
        return true;
    }
    const auto program = findProgram(app.program, places);
    if (!program)
        return false;
    app.executable = *program;
    if (endsWithNoCase(*program, ".appimage")) {
        app.kind = ApplicationKind::appImage;
        app.path = *program;
    } else if (!places.home.empty() && places.home != "/" && *program != places.home &&
               PathText::contains(*program, places.home)) {
        app.kind = ApplicationKind::home;
        app.path = homeInstallPath(*program, places);
    } else {
        app.kind = ApplicationKind::system;
        app.path = *program;
    }
    return true;
}

struct Described {
    DesktopApplication app;
    bool application = false; // Type=Application and, with TryExec, its program is there
    bool visible = false;
    bool installed = false;
};

// What a desktop entry describes; nothing (and an issue) when the file is no usable entry.
std::optional<Described> describe(const EntryFile& file, const InventoryPlaces& places,
                                  std::vector<std::string>& issues)
{
    DesktopEntry entry;
    try {
        entry = DesktopEntry::read(file.path);
    } catch (const std::exception& error) {
        issues.push_back(file.path + ": " + describeError(error));
        return std::nullopt;
    }
    const std::string_view group = kDesktopEntryGroup;
    if (!entry.hasGroup(group)) {
        issues.push_back(file.path + ": There is no [Desktop Entry] group.");
        return std::nullopt;
    }
    const auto plainName = entry.string(group, "Name");
    if (!plainName || plainName->empty()) {
        issues.push_back(file.path + ": The entry has no Name.");
        return std::nullopt;
    }
    Described out;
    // Links and menu folders are no applications; TryExec is the standard's own "not installed".
    const auto tryExec = entry.string(group, "TryExec");
    out.application = entry.string(group, "Type").value_or("") == "Application" &&
                      (!tryExec || tryExec->empty() || findProgram(*tryExec, places));
    if (!out.application)
        return out;
    DesktopApplication& app = out.app;
    app.desktopId = file.id;
    app.entryPath = file.path;
    app.plainName = *plainName;
    app.name = entry.localeString(group, "Name", places.locale).value_or(*plainName);
    app.startupWMClass = entry.string(group, "StartupWMClass").value_or("");
    app.icon = entry.string(group, "Icon").value_or("");
    if (const auto args = DesktopEntry::splitExec(entry.string(group, "Exec").value_or(""))) {
        std::size_t at = 0;
        // "env VAR=value program …": the program is what runs.
        if (PathText::name((*args)[0]) == "env")
            for (at = 1; at < args->size() && ((*args)[at].find('=') != std::string::npos ||
                                               (*args)[at].starts_with('-'));)
                ++at;
        if (at < args->size())
            app.program = (*args)[at];
    }
    app.flatpakId = entry.string(group, "X-Flatpak").value_or("");
    if (app.flatpakId.empty() &&
        (file.kind == FolderKind::userFlatpak || file.kind == FolderKind::systemFlatpak))
        app.flatpakId = file.id;
    app.snapName = entry.string(group, "X-SnapInstanceName").value_or("");
    if (app.snapName.empty() && file.kind == FolderKind::snapd)
        app.snapName = file.id.substr(0, file.id.find('_'));
    const std::string snapBin = PathText::join(places.system.snapMount, "bin") + "/";
    if (app.snapName.empty() && app.program.starts_with(snapBin)) {
        const std::string command = app.program.substr(snapBin.size());
        app.snapName = command.substr(0, command.find('.'));
    }
    out.visible = !entry.boolean(group, "Hidden") && !entry.boolean(group, "NoDisplay");
    out.installed = locate(app, file.kind, places);
    return out;
}

std::optional<std::int64_t> lastUsed(const std::string& executable)
{
    struct stat st {};
    if (executable.empty() || ::stat(executable.c_str(), &st) != 0)
        return std::nullopt;
    // noatime and relatime mounts leave the access time behind the modification time.
    if (st.st_atim.tv_sec > st.st_mtim.tv_sec)
        return std::int64_t(st.st_atim.tv_sec);
    return std::nullopt;
}

struct LibraryRoot {
    const char* key;
    std::string folder;
    const char* category;
    bool byName = false;     // the application's name ties items here too
    bool hiddenOnly = false; // the home folder: only its dot entries are data folders
    const char* strip = "";  // removed from the start (".") or the end (".desktop") of a name
    std::vector<std::string> items; // full paths
};

std::vector<LibraryRoot> libraryRoots(const InventoryPlaces& p)
{
    using namespace LibraryRootKey;
    auto root = [](const char* key, std::string folder, const char* category, bool byName = false,
                   bool hiddenOnly = false, const char* strip = "") {
        return LibraryRoot{key, std::move(folder), category, byName, hiddenOnly, strip, {}};
    };
    return {
        root(config, p.configHome, "Settings", true),
        root(cache, p.cacheHome, "Cache"),
        root(data, p.dataHome, "Application Data", true),
        root(state, p.stateHome, "State"),
        root(sandbox, PathText::join(p.home, ".var/app"), "App Sandbox Data"),
        root(snap, PathText::join(p.home, "snap"), "Snap Data"),
        root(home, p.home, "Home Folder Data", true, true, "."),
        root(autostart, PathText::join(p.configHome, "autostart"), "Login Item", false, false,
             ".desktop"),
    };
}

// The name an item is matched by: "~/.mozilla" by "mozilla", an autostart "x.desktop" by "x".
std::string_view matchName(const LibraryRoot& root, std::string_view name)
{
    const std::string_view strip = root.strip;
    if (strip == "." && name.starts_with('.'))
        name.remove_prefix(1);
    else if (strip.size() > 1 && name.size() > strip.size() && name.ends_with(strip))
        name.remove_suffix(strip.size());
    return name;
}

std::size_t reverseDomainPieces(std::string_view name)
{
    std::size_t pieces = 0;
    while (!name.empty()) {
        const auto dot = name.find('.');
        if (dot != 0)
            ++pieces;
        name.remove_prefix(dot == std::string_view::npos ? name.size() : dot + 1);
    }
    return pieces;
}

} // namespace

std::int64_t InstalledApplication::bytes() const
{
    const auto root = bundleScan.isEmpty() ? 0 : bundleScan.data()[ScanData::rootId].allocatedSize;
    return root + supportBytes();
}

std::int64_t InstalledApplication::supportBytes() const
{
    std::int64_t total = 0;
    for (const AppSupportFile& file : support)
        total += file.node.allocatedSize;
    return total;
}

bool InstalledApplication::isSystem() const
{
    for (const char* root : {"/usr", "/bin", "/sbin", "/opt"})
        if (PathText::contains(path, root))
            return true;
    return false;
}

InventoryPlaces InventoryPlaces::fromEnvironment(SystemFolders system)
{
    InventoryPlaces p;
    p.home = environment("HOME");
    if (p.home.empty()) {
        if (const passwd* user = ::getpwuid(::getuid()); user && user->pw_dir)
            p.home = user->pw_dir;
    }
    p.dataHome = xdgFolder("XDG_DATA_HOME", p.home, ".local/share");
    p.configHome = xdgFolder("XDG_CONFIG_HOME", p.home, ".config");
    p.cacheHome = xdgFolder("XDG_CACHE_HOME", p.home, ".cache");
    p.stateHome = xdgFolder("XDG_STATE_HOME", p.home, ".local/state");
    p.dataDirs = splitList(environment("XDG_DATA_DIRS"), "/usr/local/share:/usr/share");
    p.programPath = splitList(environment("PATH"), "/usr/local/bin:/usr/bin:/bin");
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        p.locale = environment(name);
        if (!p.locale.empty())
            break;
    }
    p.system = std::move(system);
    return p;
}

std::vector<std::string> InventoryPlaces::applicationFolders() const
{
    std::vector<std::string> out;
    for (const EntryFolder& folder : entryFolders(*this))
        out.push_back(folder.path);
    return out;
}

ApplicationInventory::ApplicationInventory(Ownership ownership)
    : ownership_(ownership ? std::move(ownership) : Ownership(ApplicationOwnership::read))
{
}

ScanResult ApplicationInventory::scanItem(const std::string& path,
                                          const CancellationFlag& cancellation)
{
    const FileStat stat = platform::statPath(path);
    if (stat.identity.isDirectory())
        return DiskScanner::scan(path, cancellation);
    std::vector<DiskNode> nodes{DiskNode::make(path, std::nullopt, stat)};
    return ScanResult::fromNodes(QUuid::createUuid(), path,
                                 double(QDateTime::currentMSecsSinceEpoch()) / 1000.0, 0,
                                 std::move(nodes), {}, 0);
}

ApplicationReport ApplicationInventory::inspect(const InventoryPlaces& places,
                                                const CancellationFlag& cancellation,
                                                const Progress& progress) const
{
    ApplicationReport report;

    // Desktop entries: the first file of an id wins, in folder order.
    EntryWalk walk(report.issues, cancellation);
    for (const EntryFolder& folder : entryFolders(places))
        if (lexists(folder.path))
            walk.walk(folder.path, "", folder.kind, 0);

    std::set<std::string> seenIds;
    ApplicationOwnership known; // every installed identifier, hidden entries included
    struct Pending {
        DesktopApplication app;
        ApplicationOwnership ownership;
    };
    std::vector<Pending> pending;
    std::unordered_map<std::string, std::size_t> byPath;
    for (const EntryFile& file : walk.files) {
        cancellation.check();
        if (seenIds.count(file.id))
            continue;
        auto described = describe(file, places, report.issues);
        if (!described)
            continue; // a broken entry hides nothing: a later one of the id may serve
        seenIds.insert(file.id);
        if (!described->application)
            continue;
        ApplicationOwnership ownership = ownership_(described->app);
        known.identifiers.insert(ownership.identifiers.begin(), ownership.identifiers.end());
        if (!described->visible || !described->installed)
            continue;
        // Several entries of one program (an office suite's parts) are one application.
        const auto [it, added] = byPath.emplace(described->app.path, pending.size());
        if (added)
            pending.push_back({std::move(described->app), std::move(ownership)});
        else
            pending[it->second].ownership.identifiers.insert(ownership.identifiers.begin(),
                                                             ownership.identifiers.end());
    }
    // Installed without an entry of their own (runtimes, command-line snaps) is still installed.
    std::vector<std::string> names;
    for (const std::string& folder :
         {PathText::join(places.dataHome, "flatpak/app"),
          PathText::join(places.system.flatpak, "app"), places.system.snapMount})
        if (listNames(folder, names) == 0)
            for (const std::string& name : names)
                if (name != "bin")
                    known.identifiers.insert(name);

    // Library folders, each listed once.
    std::vector<LibraryRoot> roots = libraryRoots(places);
    for (LibraryRoot& root : roots) {
        if (!lexists(root.folder))
            continue;
        root.folder = realPath(root.folder).value_or(root.folder);
        if (const int error = listNames(root.folder, names)) {
            report.issues.push_back(std::string(root.key) + ": " + std::strerror(error));
            if (names.empty())
                continue;
        }
        for (const std::string& name : names)
            if (!root.hiddenOnly || name.starts_with('.'))
                root.items.push_back(PathText::join(root.folder, name));
    }
    // An item that holds another library folder or an application's own files is no one's data.
    for (LibraryRoot& root : roots) {
        std::erase_if(root.items, [&](const std::string& item) {
            for (const LibraryRoot& other : roots)
                if (PathText::contains(other.folder, item))
                    return true;
            for (const Pending& p : pending)
                if (PathText::contains(p.app.path, item))
                    return true;
            return false;
        });
    }
    auto rootByKey = [&](std::string_view key) -> const LibraryRoot& {
        return *std::find_if(roots.begin(), roots.end(),
                             [&](const LibraryRoot& r) { return r.key == key; });
    };

    std::set<std::string> claimed;
    std::unordered_map<std::string, std::optional<ScanResult>> scans;
    auto scanOf = [&](const std::string& path) -> const std::optional<ScanResult>& {
        auto it = scans.find(path);
        if (it == scans.end()) {
            std::optional<ScanResult> scan;
            try {
                scan = scanItem(path, cancellation);
            } catch (const std::exception&) {
                // Left out silently; a cancellation is seen at the next check.
            }
            if (scan && !scan->root())
                scan.reset();
            it = scans.emplace(path, std::move(scan)).first;
        }
        return it->second;
    };

    int finished = 0;
    for (Pending& p : pending) {
        cancellation.check();
        const DesktopApplication& app = p.app;
        if (progress)
            progress(app.name, finished);
        InstalledApplication record;
        record.path = app.path;
        record.name = app.name;
        record.bundleID = app.desktopId;
        record.version = app.version;
        record.kind = app.kind;
        record.entryPath = app.entryPath;
        record.icon = app.icon;
        try {
            record.bundleScan = scanItem(app.path, cancellation);
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            report.issues.push_back(app.name + ": " + describeError(error));
            ++finished;
            continue;
        }
        auto add = [&](const std::string& path, const char* match, const char* category) {
            const auto& scan = scanOf(path);
            if (!scan)
                return;
            record.support.push_back({*scan->root(), *scan, match, category, false});
            claimed.insert(path);
        };
        for (const LibraryRoot& root : roots) {
            for (const std::string& item : root.items) {
                const std::string_view itemName = matchName(root, PathText::name(item));
                const bool byOwnership = p.ownership.matches(itemName);
                const bool byName = root.byName && (caseInsensitiveEqual(itemName, app.name) ||
                                                    caseInsensitiveEqual(itemName, app.plainName));
                if (byOwnership || byName)
                    add(item, byOwnership ? kMatchIdentifier : kMatchName, root.category);
            }
        }
        for (const auto& product : ApplicationOwnership::supportSubpaths(app.desktopId)) {
            const LibraryRoot& root = rootByKey(product.root);
            const std::string path = PathText::join(root.folder, product.subpath);
            if (!lexists(path))
                continue;
            const auto same =
                std::find_if(record.support.begin(), record.support.end(),
                             [&](const AppSupportFile& f) { return f.node.path == path; });
            if (same == record.support.end())
                add(path, kMatchKnownProduct, root.category);
            else if (same->match == kMatchName) // the surer tie names it
                same->match = kMatchKnownProduct;
        }
        record.lastUsed = lastUsed(app.executable);
        std::stable_sort(record.support.begin(), record.support.end(),
                         [](const AppSupportFile& a, const AppSupportFile& b) {
                             return a.node.allocatedSize > b.node.allocatedSize;
                         });
        report.apps.push_back(std::move(record));
        ++finished;
    }

    // Sharing: an item two applications tie goes with neither of them.
    std::unordered_map<std::string, int> owners;
    for (const InstalledApplication& app : report.apps)
        for (const AppSupportFile& file : app.support)
            ++owners[file.node.path];
    for (InstalledApplication& app : report.apps)
        for (AppSupportFile& file : app.support)
            if (owners[file.node.path] > 1) {
                file.isShared = true;
                file.match = kMatchShared;
            }

    // Leftovers: sandboxes and snap folders of apps that are gone, and reverse-domain names
    // that no installed application claims.
    using namespace LibraryRootKey;
    for (const char* key : {sandbox, snap, config, cache, data}) {
        const LibraryRoot& root = rootByKey(key);
        const bool everyItem = std::string_view(key) == sandbox || std::string_view(key) == snap;
        for (const std::string& item : root.items) {
            if (claimed.count(item))
                continue;
            cancellation.check();
            const std::string_view candidate = PathText::name(item);
            if (!everyItem && reverseDomainPieces(candidate) < 3)
                continue;
            if (known.matches(candidate) || candidate.starts_with("com.tarnbridge."))
                continue;
            const auto& scan = scanOf(item);
            if (!scan)
                continue;
            report.orphans.push_back({*scan->root(), *scan, std::string(candidate), root.category});
        }
    }
    cancellation.check();
    std::stable_sort(report.apps.begin(), report.apps.end(),
                     [](const InstalledApplication& a, const InstalledApplication& b) {
                         return a.bytes() > b.bytes();
                     });
    std::stable_sort(report.orphans.begin(), report.orphans.end(),
                     [](const OrphanCandidate& a, const OrphanCandidate& b) {
                         return a.node.allocatedSize > b.node.allocatedSize;
                     });
    return report;
}

} // namespace tarnbridge
