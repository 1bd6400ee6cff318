#include "query/ScanPresentation.h"

#include <QMimeDatabase>

#include <algorithm>
#include <array>
#include <cctype>
#include <unordered_map>
#include <unordered_set>

#include "model/PathText.h"
#include "query/ScanQuery.h"

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
} // namespace

TypeDistribution distribution(const ScanResult& scan, std::string_view focus, const CancellationFlag* cancellation)
{
    TypeDistribution out;
    const ScanData& d = scan.data();
    const NodeId start = d.empty() ? kNoNode : d.find(focus);
    if (start == kNoNode)
        return out;
    const NodeRecord& f = d[start];
    std::uint64_t step = 0;
    Sums total;
    for (std::uint32_t i = 0; i < f.childCount; ++i) {
        const NodeId child = f.firstChild + i;
        if (!d[child].isDirectory()) {
            total.add(d[child], FileCategory::classify(d.name(child)));
            continue;
        }
        Sums folder;
        bool cancelled = false;
        scan.forEachDescendant(child, [&](NodeId id) {
            if (cancelled || (cancellation && (step++ & 1023) == 0 && cancellation->isCancelled())) {
                cancelled = true;
                return;
            }
            const NodeRecord& r = d[id];
            if (!r.isDirectory())
                folder.add(r, FileCategory::classify(d.name(id)));
        });
        if (cancelled || (cancellation && cancellation->isCancelled()))
            return {};
        bool any = false;
        for (FileCategory c : FileCategory::allCases()) {
            if (!folder.seen[c])
                continue;
            any = true;
            total.allocated[c] += folder.allocated[c];
            total.logical[c] += folder.logical[c];
            total.seen[c] = true;
        }
        if (any)
            folder.into(out.folders[d.path(child)]);
    }
    total.into(out.total);
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

const std::unordered_map<std::string_view, NameRule>& folderRules()
{
    static const std::unordered_map<std::string_view, NameRule> rules = [] {
        std::unordered_map<std::string_view, NameRule> r;
        r.emplace("Downloads", NameRule{QuickWinKind::downloads, nullptr});
        r.emplace("DerivedData", NameRule{QuickWinKind::derivedData, "/Developer/Xcode/"});
        r.emplace("Devices", NameRule{QuickWinKind::simulators, "/CoreSimulator/"});
        r.emplace("node_modules", NameRule{QuickWinKind::dependencies, nullptr});
        for (const char* name : {".build", "build", "dist", ".next", "target", ".nuxt", "__pycache__", ".pytest_cache",
                                 ".dart_tool", "Pods", ".turbo", ".parcel-cache"})
            r.emplace(name, NameRule{QuickWinKind::builds, nullptr});
        for (const char* name : {".android", ".gradle", "Android"})
            r.emplace(name, NameRule{QuickWinKind::android, nullptr});
        for (const char* name : {".colima", ".orbstack", "Virtual Machines.localized", "com.docker.docker", "OrbStack"})
            r.emplace(name, NameRule{QuickWinKind::virtualMachines, nullptr});
        r.emplace(".Trash", NameRule{QuickWinKind::trash, nullptr});
        r.emplace("Mail", NameRule{QuickWinKind::mail, "/Library/"});
        r.emplace(".cache", NameRule{QuickWinKind::caches, nullptr});
        r.emplace(".npm", NameRule{QuickWinKind::caches, nullptr});
        r.emplace("Caches", NameRule{QuickWinKind::caches, "/Library/"});
        r.emplace("Logs", NameRule{QuickWinKind::caches, "/Library/"});
        // Linux places.
        r.emplace("Trash", NameRule{QuickWinKind::trash, "/.local/share/"});
        r.emplace("journal", NameRule{QuickWinKind::caches, "/var/log/"});
        for (const char* name : {".venv", "venv", ".tox"})
            r.emplace(name, NameRule{QuickWinKind::dependencies, nullptr});
        r.emplace("containers", NameRule{QuickWinKind::virtualMachines, "/.local/share/"});
        return r;
    }();
    return rules;
}

std::optional<QuickWinKind> classifyWin(const ScanData& d, NodeId id)
{
    const NodeRecord& r = d[id];
    const std::string_view name = d.name(id);
    const bool folder = r.isDirectory();
    if (folder) {
        const auto& rules = folderRules();
        if (const auto it = rules.find(name); it != rules.end()) {
            if (!it->second.pathPart || d.path(id).find(it->second.pathPart) != std::string::npos)
                return it->second.kind;
        }
        if (isTrashVolumeFolder(name))
            return QuickWinKind::trash;
    }
    const std::string_view rawExt = PathText::pathExtension(name);
    if (rawExt.empty() || rawExt.size() > 11)
        return std::nullopt;
    char buffer[12];
    for (std::size_t i = 0; i < rawExt.size(); ++i)
        buffer[i] = char(std::tolower(static_cast<unsigned char>(rawExt[i])));
    const std::string_view ext(buffer, rawExt.size());
    // Which extension rule could apply: 1 virtual disks (any record), 2 installers, 3 Linux
    // installers, 4 Linux disk images over 1 GB.
    static const std::unordered_map<std::string_view, int> extensionRules = [] {
        std::unordered_map<std::string_view, int> m;
        for (const char* e : {"vmdk", "qcow2", "vhdx", "pvm", "vmwarevm"})
            m.emplace(e, 1);
        for (const char* e : {"dmg", "pkg", "iso", "sparseimage"})
            m.emplace(e, 2);
        for (const char* e : {"deb", "rpm", "appimage", "flatpak", "snap"})
            m.emplace(e, 3);
        for (const char* e : {"vdi", "img"})
            m.emplace(e, 4);
        return m;
    }();
    const auto rule = extensionRules.find(ext);
    const int which = rule == extensionRules.end() ? 0 : rule->second;
    if (which == 1)
        return QuickWinKind::virtualMachines;
    if (folder)
        return std::nullopt;
    if (which == 2)
        return QuickWinKind::installers;
    if (r.logicalSize >= 100'000'000) {
        const FileCategory c = FileCategory::classify(name);
        if (c == FileCategory::video || c == FileCategory::audio || c == FileCategory::image)
            return QuickWinKind::media;
    }
    if (which == 3)
        return QuickWinKind::installers;
    if (which == 4 && r.logicalSize > 1'000'000'000)
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

std::array<std::vector<NodeId>, 12> discoverIds(const ScanData& d, const CancellationFlag* cancellation)
{
    std::array<std::vector<NodeId>, 12> matches;
    for (NodeId id = 1; id < d.size(); ++id) {
        if (cancellation && (id & 4095) == 0)
            cancellation->check();
        if (d[id].isSymbolicLink())
            continue;
        if (const auto kind = classifyWin(d, id))
            matches[std::size_t(*kind)].push_back(id);
    }
    for (auto& ids : matches) {
        ids = topmostIds(d, std::move(ids));
        std::stable_sort(ids.begin(), ids.end(),
                         [&](NodeId a, NodeId b) { return d[a].allocatedSize > d[b].allocatedSize; });
    }
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

std::vector<QuickWin> QuickWin::discover(const ScanResult& scan)
{
    const ScanData& d = scan.data();
    const auto matches = discoverIds(d, nullptr);
    std::vector<QuickWin> out;
    for (QuickWinKind kind : allQuickWinKinds()) {
        QuickWin win{kind, {}};
        for (NodeId id : matches[std::size_t(kind)])
            win.nodes.push_back(d.node(id));
        out.push_back(std::move(win));
    }
    return out;
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
    TypeDistribution types = distribution(scan, scan.rootPath(), cancellation);
    p.types = std::move(types.total);
    p.folderTypes = std::move(types.folders);
    const ScanData& d = scan.data();
    const auto matches = discoverIds(d, cancellation);
    std::vector<NodeId> all;
    for (QuickWinKind kind : allQuickWinKinds()) {
        QuickWin win{kind, {}};
        for (NodeId id : matches[std::size_t(kind)]) {
            win.nodes.push_back(d.node(id));
            all.push_back(id);
        }
        p.quickWins.push_back(std::move(win));
    }
    for (NodeId id : topmostIds(d, std::move(all)))
        p.uniqueQuickWinBytes += d[id].allocatedSize;
    return p;
}

} // namespace tarnbridge
