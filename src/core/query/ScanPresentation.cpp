#include "query/ScanPresentation.h"

#include <QMimeDatabase>

#include <algorithm>
#include <array>
#include <cctype>
#include <unordered_set>

#include "model/PathText.h"

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

TypeDistribution distribution(const ScanResult& scan, std::string_view focus, const CancellationFlag* cancellation)
{
    TypeDistribution out;
    const ScanData& d = scan.data();
    const NodeId start = d.empty() ? kNoNode : d.find(focus);
    if (start == kNoNode)
        return out;
    const NodeRecord& f = d[start];
    std::uint64_t step = 0;
    for (std::uint32_t i = 0; i < f.childCount; ++i) {
        const NodeId child = f.firstChild + i;
        if (!d[child].isDirectory()) {
            out.total.add(d[child], FileCategory::classify(d.name(child)));
            continue;
        }
        FileTypeTotals* owner = nullptr;
        bool cancelled = false;
        scan.forEachDescendant(child, [&](NodeId id) {
            if (cancelled || (cancellation && (step++ & 1023) == 0 && cancellation->isCancelled())) {
                cancelled = true;
                return;
            }
            const NodeRecord& r = d[id];
            if (r.isDirectory())
                return;
            const FileCategory category = FileCategory::classify(d.name(id));
            out.total.add(r, category);
            if (!owner)
                owner = &out.folders[d.path(child)];
            owner->add(r, category);
        });
        if (cancelled || (cancellation && cancellation->isCancelled()))
            return {};
    }
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

// The first rule that applies decides; the Linux rules come after the common ones and never
// override them.
std::optional<QuickWinKind> classifyWin(const ScanData& d, NodeId id)
{
    const NodeRecord& r = d[id];
    const std::string_view name = d.name(id);
    const bool folder = r.isDirectory();
    const std::string ext = lowered(PathText::pathExtension(name));
    auto pathHas = [&](std::string_view part) { return d.path(id).find(part) != std::string::npos; };
    if (folder) {
        if (name == "Downloads")
            return QuickWinKind::downloads;
        if (name == "DerivedData" && pathHas("/Developer/Xcode/"))
            return QuickWinKind::derivedData;
        if (name == "Devices" && pathHas("/CoreSimulator/"))
            return QuickWinKind::simulators;
        if (name == "node_modules")
            return QuickWinKind::dependencies;
        if (oneOf(name, {".build", "build", "dist", ".next", "target", ".nuxt", "__pycache__", ".pytest_cache",
                         ".dart_tool", "Pods", ".turbo", ".parcel-cache"}))
            return QuickWinKind::builds;
        if (oneOf(name, {".android", ".gradle", "Android"}))
            return QuickWinKind::android;
        if (oneOf(name, {".colima", ".orbstack", "Virtual Machines.localized", "com.docker.docker", "OrbStack"}))
            return QuickWinKind::virtualMachines;
    }
    if (oneOf(ext, {"vmdk", "qcow2", "vhdx", "pvm", "vmwarevm"}))
        return QuickWinKind::virtualMachines;
    if (folder) {
        if (name == ".Trash")
            return QuickWinKind::trash;
        if (name == "Mail" && pathHas("/Library/"))
            return QuickWinKind::mail;
        if (name == ".cache" || name == ".npm")
            return QuickWinKind::caches;
        if ((name == "Caches" || name == "Logs") && pathHas("/Library/"))
            return QuickWinKind::caches;
    } else {
        if (oneOf(ext, {"dmg", "pkg", "iso", "sparseimage"}))
            return QuickWinKind::installers;
        if (r.logicalSize >= 100'000'000) {
            const FileCategory c = FileCategory::classify(name);
            if (c == FileCategory::video || c == FileCategory::audio || c == FileCategory::image)
                return QuickWinKind::media;
        }
    }
    // Linux places.
    if (folder) {
        if ((name == "Trash" && pathHas("/.local/share/")) || isTrashVolumeFolder(name))
            return QuickWinKind::trash;
        if (name == "journal" && pathHas("/var/log/"))
            return QuickWinKind::caches;
        if (oneOf(name, {".venv", "venv", ".tox"}))
            return QuickWinKind::dependencies;
        if (name == "containers" && pathHas("/.local/share/"))
            return QuickWinKind::virtualMachines;
    } else {
        if (oneOf(ext, {"deb", "rpm", "appimage", "flatpak", "snap"}))
            return QuickWinKind::installers;
        if (oneOf(ext, {"vdi", "img"}) && r.logicalSize > 1'000'000'000)
            return QuickWinKind::virtualMachines;
    }
    return std::nullopt;
}

// Ids of which no ancestor is among them, in plain path order.
std::vector<NodeId> topmostIds(const ScanData& d, const std::vector<NodeId>& ids)
{
    const std::unordered_set<NodeId> set(ids.begin(), ids.end());
    std::vector<NodeId> kept;
    std::unordered_set<NodeId> seen;
    for (NodeId id : ids) {
        if (!seen.insert(id).second)
            continue;
        bool inside = false;
        for (NodeId up = d[id].parent; up != kNoNode && !inside; up = d[up].parent)
            inside = set.count(up) > 0;
        if (!inside)
            kept.push_back(id);
    }
    std::vector<std::pair<std::string, NodeId>> byPath;
    for (NodeId id : kept)
        byPath.emplace_back(d.path(id), id);
    std::stable_sort(byPath.begin(), byPath.end(),
                     [](const auto& a, const auto& b) { return PathText::compare(a.first, b.first) < 0; });
    std::vector<NodeId> out;
    for (const auto& [path, id] : byPath)
        out.push_back(id);
    return out;
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
    std::array<std::vector<NodeId>, 12> matches;
    for (NodeId id = 1; id < d.size(); ++id) {
        if (d[id].isSymbolicLink())
            continue;
        if (const auto kind = classifyWin(d, id))
            matches[std::size_t(*kind)].push_back(id);
    }
    std::vector<QuickWin> out;
    for (QuickWinKind kind : allQuickWinKinds()) {
        std::vector<NodeId> ids = topmostIds(d, matches[std::size_t(kind)]);
        std::stable_sort(ids.begin(), ids.end(),
                         [&](NodeId a, NodeId b) { return d[a].allocatedSize > d[b].allocatedSize; });
        QuickWin win{kind, {}};
        for (NodeId id : ids)
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
    p.quickWins = QuickWin::discover(scan);
    std::vector<DiskNode> all;
    for (const QuickWin& win : p.quickWins)
        all.insert(all.end(), win.nodes.begin(), win.nodes.end());
    for (const DiskNode& n : QuickWin::topmost(all))
        p.uniqueQuickWinBytes += n.allocatedSize;
    return p;
}

} // namespace tarnbridge
