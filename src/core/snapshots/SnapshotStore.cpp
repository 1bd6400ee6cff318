#include "snapshots/SnapshotStore.h"

#include <QUuid>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <unordered_map>

#include "model/Errors.h"
#include "model/Identifiers.h"
#include "model/PathText.h"
#include "platform/AtomicFile.h"
#include "platform/FileIO.h"
#include "storage/ScanJson.h"

namespace tarnbridge {

void SnapshotRecord::write(json::Writer& w) const
{
    w.beginObject();
    w.key("id").string(id);
    w.key("title").string(title);
    w.key("createdAt").date(createdAt);
    w.key("rootPath").string(rootPath);
    w.key("bytes").integer(bytes);
    w.key("fileCount").integer(fileCount);
    w.endObject();
}

SnapshotRecord SnapshotRecord::read(const json::Value& v)
{
    SnapshotRecord r;
    r.id = v.stringAt("id");
    r.title = v.stringAt("title");
    r.createdAt = json::dateAt(v, "createdAt");
    r.rootPath = v.stringAt("rootPath");
    r.bytes = v.integerAt("bytes");
    r.fileCount = v.integerAt("fileCount");
    return r;
}

namespace {

QUuid uuidOf(const std::string& text)
{
    return QUuid::fromString(QString::fromStdString(text));
}

} // namespace

SnapshotRecord SnapshotStore::save(const ScanResult& scan, const std::string& title) const
{
    std::error_code error;
    std::filesystem::create_directories(directory_, error);
    if (error)
        throw systemError(error.value());
    SnapshotRecord record;
    record.id = newIdentifier();
    record.title = title;
    record.createdAt = now();
    record.rootPath = scan.rootPath();
    if (const auto root = scan.isEmpty() ? std::nullopt : scan.root()) {
        record.bytes = root->allocatedSize;
        record.fileCount = root->fileCount;
    }
    // The heavy file first: the entry only appears once its scan is in place.
    ScanJson::writeFile(scan, PathText::join(directory_, record.id + ".json"));
    json::Writer w;
    record.write(w);
    AtomicFile::write(PathText::join(directory_, record.id + ".meta"), w.text());
    return record;
}

SnapshotCatalog SnapshotStore::catalog() const
{
    SnapshotCatalog catalog;
    struct stat st {};
    if (::stat(directory_.c_str(), &st) != 0)
        return catalog;
    DIR* dir = ::opendir(directory_.c_str());
    if (!dir)
        throw systemError(errno);
    std::vector<std::string> metas;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (PathText::pathExtension(name) == "meta" && name != ".meta")
            metas.push_back(PathText::join(directory_, name));
    }
    ::closedir(dir);
    std::sort(metas.begin(), metas.end());

    for (const std::string& meta : metas) {
        try {
            std::string text;
            text = platform::readWholeFile(meta);
            SnapshotRecord record;
            try {
                record = SnapshotRecord::read(json::parse(text));
            } catch (const std::exception&) {
                throw TarnbridgeError(kSnapshotUnreadable);
            }
            std::string base(PathText::name(meta));
            base.resize(base.size() - 5);
            const QUuid fromName = uuidOf(base);
            if (fromName.isNull() || fromName != uuidOf(record.id))
                throw TarnbridgeError(kSnapshotMismatch);
            const std::string scanFile = PathText::join(directory_, record.id + ".json");
            struct stat info {};
            if (::stat(scanFile.c_str(), &info) != 0)
                throw systemError(errno);
            if (!S_ISREG(info.st_mode) || ::access(scanFile.c_str(), R_OK) != 0)
                throw TarnbridgeError(kSnapshotUnavailable);
            catalog.records.push_back(std::move(record));
        } catch (const std::exception& error) {
            catalog.issues.push_back({meta, describeError(error)});
        }
    }
    std::stable_sort(catalog.records.begin(), catalog.records.end(), [](const auto& a, const auto& b) {
        if (a.createdAt != b.createdAt)
            return a.createdAt > b.createdAt;
        return a.id < b.id;
    });
    return catalog;
}

ScanResult SnapshotStore::load(const SnapshotRecord& record) const
{
    return ScanJson::readFile(PathText::join(directory_, record.id + ".json"));
}

void SnapshotStore::remove(const SnapshotRecord& record) const
{
    // The scan first: if it stays, so does the record that lists it.
    if (::unlink(PathText::join(directory_, record.id + ".json").c_str()) != 0)
        throw systemError(errno);
    if (::unlink(PathText::join(directory_, record.id + ".meta").c_str()) != 0)
        throw systemError(errno);
}

std::vector<SnapshotChange> SnapshotStore::compare(const ScanResult& older, const ScanResult& newer, bool logical)
{
    if (older.rootPath() != newer.rootPath())
        throw TarnbridgeError(kSnapshotDifferentRoots);
    auto size = [logical](const NodeRecord& r) { return logical ? r.logicalSize : r.allocatedSize; };
    std::vector<SnapshotChange> changes;
    const ScanData& o = older.data();
    const ScanData& n = newer.data();
    // One pass over each scan with hash lookups: the older sizes by path, then the newer scan.
    std::unordered_map<std::string, std::int64_t> before;
    before.reserve(o.size());
    for (NodeId id = 0; id < o.size(); ++id)
        before.emplace(o.path(id), size(o[id]));
    for (NodeId id = 0; id < n.size(); ++id) {
        std::string path = n.path(id);
        const std::int64_t after = size(n[id]);
        const auto hit = before.find(path);
        if (hit == before.end()) {
            changes.push_back({std::move(path), 0, after, SnapshotChangeStatus::added});
            continue;
        }
        if (hit->second != after)
            changes.push_back({path, hit->second, after, SnapshotChangeStatus::changed});
        before.erase(hit);
    }
    for (auto& [path, was] : before)
        changes.push_back({path, was, 0, SnapshotChangeStatus::removed});
    std::sort(changes.begin(), changes.end(), [](const SnapshotChange& a, const SnapshotChange& b) {
        if (a.magnitude() != b.magnitude())
            return a.magnitude() > b.magnitude();
        return PathText::less(a.path, b.path);
    });
    return changes;
}

std::vector<const SnapshotChange*> SnapshotStore::visibleChanges(const std::vector<SnapshotChange>& changes,
                                                                 std::int64_t minimumChange, ChangeLevel level,
                                                                 const std::optional<std::string>& root)
{
    std::vector<const SnapshotChange*> out;
    if (level == ChangeLevel::topLevelOnly && !root)
        return out;
    const std::uint64_t minimum = minimumChange > 0 ? std::uint64_t(minimumChange) : 0;
    for (const SnapshotChange& change : changes) {
        if (change.magnitude() < minimum)
            continue;
        if (level == ChangeLevel::topLevelOnly && parentFolder(change.path) != *root)
            continue;
        out.push_back(&change);
    }
    return out;
}

const char* statusText(SnapshotChangeStatus status)
{
    switch (status) {
    case SnapshotChangeStatus::added: return "Added";
    case SnapshotChangeStatus::removed: return "Removed";
    case SnapshotChangeStatus::changed: break;
    }
    return "Changed";
}

} // namespace tarnbridge
