#include "query/ScanPresentation.h"

#include <QMimeDatabase>

#include <algorithm>
#include <array>
#include <atomic>
#include <bitset>
#include <cctype>
#include <exception>
#include <stdexcept>
#include <memory>
#include <optional>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "model/PathText.h"
#include "query/ExtensionTable.h"
#include "query/ScanQuery.h"
#include "query/SubtreeWalk.h"

namespace tarnbridge {

std::int64_t itemCount(const NodeRecord& record)
{
    return record.isDirectory() ? std::int64_t(record.fileCount) + record.folderCount : 1;
}

namespace {

std::string lowered(std::string_view text)
{
    std::string out(text);
    for (char& c : out)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool oneOf(std::string_view value, std::initializer_list<std::string_view> list)
{
    return std::find(list.begin(), list.end(), value) != list.end();
}

} // namespace

bool isPackage(const ScanData& scan, NodeId id)
{
    if (!scan[id].isDirectory())
        return false;
    const std::string_view extension = PathText::pathExtension(scan.name(id));
    if (extension.empty())
        return false;
    const std::string lower = lowered(extension);
    if (oneOf(lower, {"app", "bundle", "framework", "plugin", "appex", "xpc", "photoslibrary",
                      "photolibrary", "playground", "xcodeproj", "xcworkspace"}))
        return true;
    // The shared MIME database knows few folder-like document types; ask it all the same.
    static thread_local QMimeDatabase database;
    const QString name = QStringLiteral("x.") + QString::fromUtf8(extension.data(), qsizetype(extension.size()));
    for (const QMimeType& type : database.mimeTypesForFileName(name))
        if (type.inherits(QStringLiteral("inode/directory")))
            return true;
    return false;
}

std::string_view kindName(const ScanData& scan, NodeId id)
{
    const NodeRecord& r = scan[id];
    if (r.isSymbolicLink())
        return "Symbolic link";
    if (isPackage(scan, id))
        return "Application";
    if (r.isDirectory())
        return "Folder";
    return FileCategory::classify(scan.name(id)).displayName();
}

std::string_view chartSymbol(const ScanData& scan, NodeId id)
{
    if (scan[id].isDirectory())
        return isPackage(scan, id) ? "package-x-generic" : "folder";
    switch (FileCategory::classify(scan.name(id))) {
    case FileCategory::video: return "video-x-generic";
    case FileCategory::audio: return "audio-x-generic";
    case FileCategory::image: return "image-x-generic";
    case FileCategory::document: return "x-office-document";
    case FileCategory::developer: return "text-x-script";
    case FileCategory::archive: return "package-x-generic";
    case FileCategory::other: break;
    }
    return "text-x-generic";
}

void FileTypeTotals::add(const NodeRecord& record, FileCategory category)
{
    allocated[category] += record.ownAllocatedSize();
    logical[category] += record.ownLogicalSize();
}

namespace {

// Sums in plain arrays while walking; maps only at the end.
struct Sums {
    std::array<std::int64_t, 7> allocated{};
    std::array<std::int64_t, 7> logical{};
    std::array<bool, 7> seen{};
    void add(const NodeRecord& r, FileCategory category)
    {
        allocated[category] += r.ownAllocatedSize();
        logical[category] += r.ownLogicalSize();
        seen[category] = true;
    }
    void add(const Sums& other)
    {
        for (FileCategory c : FileCategory::allCases()) {
            allocated[c] += other.allocated[c];
            logical[c] += other.logical[c];
            seen[c] = seen[c] || other.seen[c];
        }
    }
    bool any() const { return std::find(seen.begin(), seen.end(), true) != seen.end(); }
    void into(FileTypeTotals& totals) const
    {
        for (FileCategory c : FileCategory::allCases()) {
            if (!seen[c])
                continue;
            totals.allocated[c] += allocated[c];
            totals.logical[c] += logical[c];
        }
    }
};

// File type sums below one folder: its own files and per child folder.
struct TypeWalk {
    Sums direct;
    std::vector<Sums> folders;
    std::vector<NodeId> folderIds;

    void add(const NodeRecord& r, std::uint32_t slot, FileCategory category)
    {
        if (r.isDirectory())
            return;
        if (slot == kDirectChild) {
            direct.add(r, category);
            return;
        }
        if (slot >= folders.size())
            folders.resize(folderIds.size());
        folders[slot].add(r, category);
    }
    void into(const ScanData& d, FileTypeTotals& total, std::map<std::string, FileTypeTotals>& byFolder) const
    {
        Sums all = direct;
        for (std::size_t i = 0; i < folders.size(); ++i) {
            if (!folders[i].any())
                continue;
            all.add(folders[i]);
            folders[i].into(byFolder[d.path(folderIds[i])]);
        }
        all.into(total);
    }
};

} // namespace

TypeDistribution distribution(const ScanResult& scan, std::string_view focus, const CancellationFlag* cancellation)
{
    TypeDistribution out;
    const ScanData& d = scan.data();
    const NodeId start = d.empty() ? kNoNode : d.find(focus);
    if (start == kNoNode)
        return out;
    TypeWalk walk;
    try {
        forEachBelow(scan, start, cancellation, walk.folderIds, [&](NodeId id, const NodeRecord& r, std::uint32_t slot) {
            if (!r.isDirectory())
                walk.add(r, slot, FileCategory::classifyKey(FileCategory::extensionKey(d.name(id))));
        });
    } catch (const CancellationError&) {
        return {};
    }
    walk.into(d, out.total, out.folders);
    return out;
}

namespace {

constexpr std::array<QuickWinInfo, 12> kQuickWinInfo{{
    {"Downloads", "folder-download", "Downloaded files may be your only copy. Review each item before staging."},
    {"Caches & logs", "view-refresh",
     "Apps usually recreate caches and logs. Quit the associated apps before cleanup."},
    {"iOS Simulators", "phone",
     "Simulator device data may contain test apps and local data. Close Simulator and review before cleanup."},
    {"Large media", "video-x-generic", "Large photos, audio and video files. Keep originals you still need."},
    {"node_modules", "package-x-generic",
     "Dependencies can usually be reinstalled from the project's lockfile. Local edits will be lost."},
    {"Build artifacts", "applications-engineering",
     "Folders with build-output names. Verify they contain generated files rather than source files."},
    {"Xcode DerivedData", "applications-development", "Xcode recreates build products and indexes. Close Xcode first."},
    {"Containers & VMs", "computer",
     "Virtual disks and container data can contain entire operating systems and personal files. Quit the "
     "virtual machine or container app and verify backups before staging."},
    {"Android & Gradle", "phone",
     "Android SDK, emulator and Gradle data. Some items are regenerated; virtual devices may contain personal "
     "test data. Review each item."},
    {"Installers & images", "media-optical",
     "Downloaded installers and disk images. Eject mounted images before staging files you no longer need."},
    {"Trash", "user-trash",
     "Files already in Trash. Review and empty them in your file manager when ready; Tarnbridge does not "
     "permanently delete them."},
    {"Mail stores", "mail-message",
     "Local mail stores can contain your only copies of messages. Review their size here and manage storage "
     "in the mail app. These protected stores cannot be staged."},
}};

bool isTrashVolumeFolder(std::string_view name)
{
    // ".Trash-1000": a volume's trash of one user.
    constexpr std::string_view prefix = ".Trash-";
    if (name.size() <= prefix.size() || name.substr(0, prefix.size()) != prefix)
        return false;
    return std::all_of(name.begin() + prefix.size(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Each folder name belongs to one rule at most, so a table lookup finds the only rule that can
// apply; its path condition is then checked. Rules by extension come after. This is the same
// as trying the rules in their order (the Linux ones after the common ones), at the cost of one
// lookup per record.
struct NameRule {
    QuickWinKind kind;
    const char* pathPart; // the path must contain this, or nothing
};

// The folder names of the rules, with a cheap first test: most folders have a name no rule
// knows, and a look at its length and first byte tells most of them without hashing it.
class FolderRules {
public:
    FolderRules();
    const NameRule* find(std::string_view name) const
    {
        if (name.empty() || !maybe_[hint(name)])
            return nullptr;
        const auto it = rules_.find(name);
        return it == rules_.end() ? nullptr : &it->second;
    }

private:
    static std::size_t hint(std::string_view name)
    {
        const auto first = std::uint8_t(name.front());
        return (name.size() & 63) << 6 | ((first ^ first >> 6) & 63);
    }
    void emplace(std::string_view name, NameRule rule)
    {
        rules_.emplace(name, rule);
        maybe_.set(hint(name));
    }

    std::unordered_map<std::string_view, NameRule> rules_;
    std::bitset<4096> maybe_;
};

FolderRules::FolderRules()
{
    emplace("Downloads", NameRule{QuickWinKind::downloads, nullptr});
    emplace("DerivedData", NameRule{QuickWinKind::derivedData, "/Developer/Xcode/"});
    emplace("Devices", NameRule{QuickWinKind::simulators, "/CoreSimulator/"});
    emplace("node_modules", NameRule{QuickWinKind::dependencies, nullptr});
    for (const char* name : {".build", "build", "dist", ".next", "target", ".nuxt", "__pycache__", ".pytest_cache",
                             ".dart_tool", "Pods", ".turbo", ".parcel-cache"})
        emplace(name, NameRule{QuickWinKind::builds, nullptr});
    for (const char* name : {".android", ".gradle", "Android"})
        emplace(name, NameRule{QuickWinKind::android, nullptr});
    for (const char* name : {".colima", ".orbstack", "Virtual Machines.localized", "com.docker.docker", "OrbStack"})
        emplace(name, NameRule{QuickWinKind::virtualMachines, nullptr});
    emplace(".Trash", NameRule{QuickWinKind::trash, nullptr});
    emplace("Mail", NameRule{QuickWinKind::mail, "/Library/"});
    emplace(".cache", NameRule{QuickWinKind::caches, nullptr});
    emplace(".npm", NameRule{QuickWinKind::caches, nullptr});
    emplace("Caches", NameRule{QuickWinKind::caches, "/Library/"});
    emplace("Logs", NameRule{QuickWinKind::caches, "/Library/"});
    // Linux places.
    emplace("Trash", NameRule{QuickWinKind::trash, "/.local/share/"});
    emplace("journal", NameRule{QuickWinKind::caches, "/var/log/"});
    for (const char* name : {".venv", "venv", ".tox"})
        emplace(name, NameRule{QuickWinKind::dependencies, nullptr});
    emplace("containers", NameRule{QuickWinKind::virtualMachines, "/.local/share/"});
}

// Which extension rule could apply to a name.
enum class ExtensionRule : std::uint8_t { none, virtualDisk, installer, linuxInstaller, linuxDiskImage };

ExtensionRule extensionRule(std::string_view name, std::uint64_t key)
{
    static const ExtensionTable<ExtensionRule, 32> rules = [] {
        ExtensionTable<ExtensionRule, 32> t(ExtensionRule::none);
        for (const char* e : {"vmdk", "qcow2", "vhdx", "pvm", "vmwarevm"})
            t.add(e, ExtensionRule::virtualDisk);
        for (const char* e : {"dmg", "pkg", "iso"})
            t.add(e, ExtensionRule::installer);
        for (const char* e : {"deb", "rpm", "appimage", "flatpak", "snap"})
            t.add(e, ExtensionRule::linuxInstaller);
        for (const char* e : {"vdi", "img"})
            t.add(e, ExtensionRule::linuxDiskImage);
        // classifyWin skips this table for files of the other categories.
        for (const char* e : {"vmdk", "qcow2", "vhdx", "pvm", "vmwarevm", "dmg", "pkg", "iso"})
            if (const FileCategory c = FileCategory::classify(std::string("x.") + e);
                c != FileCategory::other && c != FileCategory::archive)
                throw std::logic_error("quick wins: a rule extension has a media category");
        return t;
    }();
    if (key != 0)
        return rules.find(key);
    // The one rule extension too long for a key.
    constexpr std::string_view sparse = "sparseimage";
    if (name.size() < sparse.size() + 2 || name[name.size() - sparse.size() - 1] != '.')
        return ExtensionRule::none;
    const std::string_view tail = name.substr(name.size() - sparse.size());
    for (std::size_t i = 0; i < sparse.size(); ++i) {
        const char c = tail[i];
        if ((c >= 'A' && c <= 'Z' ? char(c + 32) : c) != sparse[i])
            return ExtensionRule::none;
    }
    return ExtensionRule::installer;
}

// The kind of one record, given its name's extension key and, for a file, its category.
[[gnu::always_inline]] inline std::optional<QuickWinKind> classifyWin(const ScanData& d, NodeId id, const NodeRecord& r, std::string_view name,
                                        std::uint64_t key, FileCategory category)
{
    const bool folder = r.isDirectory();
    if (folder) {
        static const FolderRules rules;
        if (const NameRule* rule = rules.find(name)) {
            if (!rule->pathPart || d.path(id).find(rule->pathPart) != std::string::npos)
                return rule->kind;
        }
        if (isTrashVolumeFolder(name))
            return QuickWinKind::trash;
    } else if (category != FileCategory::other && category != FileCategory::archive) {
        // Every extension of a rule is Other or Archive: only the media rule is left.
        if (r.logicalSize >= 100'000'000 &&
            (category == FileCategory::video || category == FileCategory::audio || category == FileCategory::image))
            return QuickWinKind::media;
        return std::nullopt;
    }
    const ExtensionRule rule = extensionRule(name, key);
    if (rule == ExtensionRule::virtualDisk)
        return QuickWinKind::virtualMachines;
    if (folder)
        return std::nullopt;
    // Installers (13) come before large media (14), which cannot apply to Other or Archive.
    if (rule == ExtensionRule::installer || rule == ExtensionRule::linuxInstaller)
        return QuickWinKind::installers;
    if (rule == ExtensionRule::linuxDiskImage && r.logicalSize > 1'000'000'000)
        return QuickWinKind::virtualMachines;
    return std::nullopt;
}

// Ids of which no ancestor is among them, in plain path order.
std::vector<NodeId> topmostIds(const ScanData& d, std::vector<NodeId> ids)
{
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    std::vector<NodeId> kept;
    for (NodeId id : ids) {
        bool inside = false;
        for (NodeId up = d[id].parent; up != kNoNode && !inside; up = d[up].parent)
            inside = std::binary_search(ids.begin(), ids.end(), up);
        if (!inside)
            kept.push_back(id);
    }
    std::sort(kept.begin(), kept.end(), [&](NodeId a, NodeId b) { return comparePaths(d, a, b) < 0; });
    return kept;
}

using WinMatches = std::array<std::vector<NodeId>, 12>;

// Each kind's outermost matches, biggest first.
void reduce(const ScanData& d, WinMatches& matches)
{
    for (auto& ids : matches) {
        ids = topmostIds(d, std::move(ids));
        std::stable_sort(ids.begin(), ids.end(),
                         [&](NodeId a, NodeId b) { return d[a].allocatedSize > d[b].allocatedSize; });
    }
}

// Below this many records a second thread costs more than it saves.
constexpr std::size_t kRecordsForTwoThreads = 200'000;

// The names of a scan, looked at in blocks of ids that either thread may take: each record's
// category is kept for the type sums and the quick wins each thread finds are its own.
class NameBlocks {
public:
    static constexpr NodeId kBlock = 4096;

    explicit NameBlocks(const ScanData& d)
        : d_(d), categories_(d.size()), blocks_((d.size() + kBlock - 1) / kBlock), done_(blocks_)
    {
    }
    NameBlocks(const NameBlocks&) = delete;
    NameBlocks& operator=(const NameBlocks&) = delete;
    // Left by an exception: the helper stops after its block instead of reading all the rest.
    ~NameBlocks()
    {
        abandoned_ = true;
        helper_.reset();
    }

    // Reads one block of names; false when none is left, the flag is set or the pass was left.
    bool takeOne(WinMatches& found, const CancellationFlag* cancellation)
    {
        if (abandoned_.load(std::memory_order_relaxed) || (cancellation && cancellation->isCancelled()))
            return false;
        const std::size_t block = next_.fetch_add(1);
        if (block >= blocks_)
            return false;
        look(block, found);
        done_[block].store(true, std::memory_order_release);
        return true;
    }
    // Takes blocks on another thread until none is left.
    void startHelper(const CancellationFlag* cancellation)
    {
        helperEnded_ = false;
        helper_.emplace([this, cancellation] {
            try {
                while (takeOne(helperFound_, cancellation)) {
                }
            } catch (...) {
                helperFailure_ = std::current_exception();
            }
            helperEnded_.store(true, std::memory_order_release);
        });
    }
    // Waits for the helper; what it found joins `found`, a failure of its own is thrown here.
    void finishHelper(WinMatches& found)
    {
        if (!helper_)
            return;
        helper_.reset(); // joins
        if (helperFailure_)
            std::rethrow_exception(helperFailure_);
        for (std::size_t k = 0; k < found.size(); ++k)
            found[k].insert(found[k].end(), helperFound_[k].begin(), helperFound_[k].end());
    }
    // The category of `id`, once its block is done; takes other blocks while it waits.
    FileCategory category(NodeId id, WinMatches& found, const CancellationFlag* cancellation)
    {
        const std::size_t block = id / kBlock;
        while (!done_[block].load(std::memory_order_acquire)) {
            if (takeOne(found, cancellation))
                continue;
            if (cancellation)
                cancellation->check();
            // Only the helper can hold the block now; it ends early on a failure alone.
            if (helperEnded_.load(std::memory_order_acquire) && !done_[block].load(std::memory_order_acquire)) {
                if (helperFailure_)
                    std::rethrow_exception(helperFailure_);
                throw std::logic_error("quick wins: a block of names was left unread");
            }
            std::this_thread::yield();
        }
        return categories_[id];
    }

private:
    void look(std::size_t block, WinMatches& found)
    {
        const auto& table = FileCategory::keyTable();
        const NodeId end = NodeId(std::min<std::size_t>(d_.size(), (block + 1) * kBlock));
        for (NodeId id = NodeId(block * kBlock); id < end;) {
            auto run = d_.recordsFrom(id);
            run = run.first(std::min<std::size_t>(run.size(), end - id));
            for (const NodeRecord& r : run) {
                const std::string_view name = d_.name(id);
                const std::uint64_t key = FileCategory::extensionKey(name);
                const FileCategory category =
                    r.isDirectory() ? FileCategory(FileCategory::other) : FileCategory(table.find(key));
                categories_[id] = category;
                // The root is never a quick win.
                if (id != ScanData::rootId && !r.isSymbolicLink())
                    if (const auto kind = classifyWin(d_, id, r, name, key, category))
                        found[std::size_t(*kind)].push_back(id);
                ++id;
            }
        }
    }

    const ScanData& d_;
    std::vector<FileCategory::Value> categories_;
    std::size_t blocks_;
    std::vector<std::atomic<bool>> done_;
    std::atomic<std::size_t> next_{0};
    std::atomic<bool> abandoned_{false};
    WinMatches helperFound_;
    std::exception_ptr helperFailure_;
    std::atomic<bool> helperEnded_{true};
    // Joined in the destructor or by finishHelper, before anything it uses goes. It stops at
    // the flag, when no block is left, or when the pass is abandoned.
    std::optional<std::jthread> helper_;
};

// One pass over the scan that finds the quick wins and, when `types` is given, sums the file
// types below the root: each name is read and its extension looked up once for both. On a
// large scan a second thread takes blocks of names too, while this one adds up the types in
// id order as the blocks are done.
WinMatches discoverIds(const ScanResult& scan, TypeWalk* types, const CancellationFlag* cancellation)
{
    const ScanData& d = scan.data();
    WinMatches matches;
    if (d.empty())
        return matches;
    NameBlocks names(d);
    if (d.size() >= kRecordsForTwoThreads && std::thread::hardware_concurrency() > 1)
        names.startHelper(cancellation);
    if (types) {
        forEachBelow(scan, ScanData::rootId, cancellation, types->folderIds,
                     [&](NodeId id, const NodeRecord& r, std::uint32_t slot) {
                         types->add(r, slot, names.category(id, matches, cancellation));
                     });
    } else {
        while (names.takeOne(matches, cancellation)) {
        }
    }
    names.finishHelper(matches);
    if (cancellation)
        cancellation->check(); // blocks may have been left at the flag
    reduce(d, matches);
    return matches;
}

} // namespace

const QuickWinInfo& info(QuickWinKind kind) { return kQuickWinInfo[std::size_t(kind)]; }

const std::vector<QuickWinKind>& allQuickWinKinds()
{
    static const std::vector<QuickWinKind> kinds = [] {
        std::vector<QuickWinKind> out;
        for (std::size_t i = 0; i < kQuickWinInfo.size(); ++i)
            out.push_back(QuickWinKind(i));
        return out;
    }();
    return kinds;
}

std::int64_t QuickWin::bytes() const
{
    std::int64_t sum = 0;
    for (const DiskNode& n : nodes)
        sum += n.allocatedSize;
    return sum;
}

namespace {

// The twelve results, in kind order, from the ids of each kind's matches.
std::vector<QuickWin> winsOf(const ScanData& d, const WinMatches& matches)
{
    std::vector<QuickWin> out;
    for (QuickWinKind kind : allQuickWinKinds()) {
        QuickWin win{kind, {}};
        for (NodeId id : matches[std::size_t(kind)])
            win.nodes.push_back(d.node(id));
        out.push_back(std::move(win));
    }
    return out;
}

} // namespace

std::vector<QuickWin> QuickWin::discover(const ScanResult& scan)
{
    return winsOf(scan.data(), discoverIds(scan, nullptr, nullptr));
}

std::vector<DiskNode> QuickWin::topmost(const std::vector<DiskNode>& nodes)
{
    std::unordered_set<std::string_view> paths;
    std::vector<const DiskNode*> unique;
    for (const DiskNode& n : nodes)
        if (paths.insert(n.path).second)
            unique.push_back(&n);
    std::vector<DiskNode> out;
    for (const DiskNode* n : unique) {
        bool inside = false;
        if (n->path != "/" && paths.count("/"))
            inside = true;
        std::string_view prefix = n->path;
        while (!inside) {
            const auto slash = prefix.rfind('/');
            if (slash == std::string_view::npos || slash == 0)
                break;
            prefix = prefix.substr(0, slash);
            inside = paths.count(prefix) > 0;
        }
        if (!inside)
            out.push_back(*n);
    }
    std::stable_sort(out.begin(), out.end(),
                     [](const DiskNode& a, const DiskNode& b) { return PathText::compare(a.path, b.path) < 0; });
    return out;
}

ScanPresentation ScanPresentation::make(const ScanResult& scan, const CancellationFlag* cancellation)
{
    ScanPresentation p;
    const ScanData& d = scan.data();
    TypeWalk types;
    const auto matches = discoverIds(scan, &types, cancellation);
    types.into(d, p.types, p.folderTypes);
    p.quickWins = winsOf(d, matches);
    std::vector<NodeId> all;
    for (const auto& ids : matches)
        all.insert(all.end(), ids.begin(), ids.end());
    for (NodeId id : topmostIds(d, std::move(all)))
        p.uniqueQuickWinBytes += d[id].allocatedSize;
    return p;
}

} // namespace tarnbridge
