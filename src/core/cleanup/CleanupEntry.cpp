#include "cleanup/CleanupEntry.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>

#include "model/Errors.h"
#include "model/Identifiers.h"
#include "model/PathText.h"
#include "platform/FileFacts.h"
#include "platform/RunningPrograms.h"
#include "platform/UserFolders.h"
#include "scan/DiskScanner.h"

namespace tarnbridge {

namespace {

[[noreturn]] void refuse(const std::string& message)
{
    throw TarnbridgeError(message);
}

std::string named(std::string_view path)
{
    return std::string(PathText::name(path));
}

// Characters, not bytes: a UTF-8 continuation byte adds nothing.
std::size_t characterCount(std::string_view text)
{
    std::size_t n = 0;
    for (unsigned char c : text)
        n += (c & 0xC0) != 0x80;
    return n;
}

} // namespace

CleanupEntry CleanupEntry::stage(const DiskNode& node, const ScanResult& scan, std::string reason,
                                 const CleanupPolicy& policy)
{
    if (auto refusal = policy.rejection(node.path))
        refuse(*refusal);
    if (node.isSymbolicLink || node.isCloudPlaceholder)
        refuse(kLinksCannotBeStaged);
    for (const ScanIssue& issue : scan.issues())
        if (PathText::contains(issue.path, node.path))
            refuse(kNotFullyScanned);

    CleanupEntry entry;
    entry.node = node;
    entry.reason = std::move(reason);
    entry.stagedAt = now();

    const ScanData& d = scan.data();
    const NodeId start = scan.isEmpty() ? kNoNode : scan.find(node.path);
    if (start == kNoNode || d[start].identity() != node.identity)
        refuse(kNotInCurrentScan);

    // The arena holds every child of a folder, so the walk never meets a missing record.
    auto record = [&](NodeId id, const std::string& path) {
        const NodeRecord& r = d[id];
        if (r.isCloudPlaceholder())
            refuse(kCloudOnlyInside);
        if (id != start && r.isDirectory() && CleanupPolicy::isProtectedSystemApp(path))
            refuse(kProtectedAppInside);
        entry.identities.emplace(path, r.identity());
    };
    record(start, node.path);
    std::string path;
    scan.forEachDescendant(start, [&](NodeId id) {
        path.clear();
        d.appendPath(id, path);
        record(id, path);
    });

    const auto own = entry.identities.find(node.path);
    if (own == entry.identities.end() || own->second != node.identity)
        refuse(kNotInCurrentScan);
    return entry;
}

void CleanupEntry::validate(const CleanupPolicy& policy) const
{
    const std::string& path = node.path;
    if (auto refusal = policy.rejection(path))
        refuse(*refusal);
    const FileStat now = platform::statPath(path);
    if (now.identity != node.identity)
        refuse(named(path) + " changed since the scan. Rescan and stage it again.");

    for (const auto& [copy, expected] : retainedCopies) {
        const FileStat current = platform::statPath(copy); // a vanished copy: the system's text
        if (current.identity != expected)
            refuse(kRetainedCopyChanged);
    }

    if (node.isDirectory) {
        // A flag of its own: the user's cancel does not cut a check short.
        CancellationFlag own;
        const ScanResult fresh = DiskScanner::scan(path, own);
        const std::string contentsChanged = "Contents of " + named(path) + " changed since the scan. Rescan before cleanup.";
        if (fresh.skippedCount() != 0 || fresh.nodeCount() != identities.size())
            refuse(contentsChanged);
        const ScanData& d = fresh.data();
        std::vector<std::string> paths(d.size());
        for (NodeId id = 0; id < d.size(); ++id) {
            d.appendPath(id, paths[id]);
            const auto known = identities.find(paths[id]);
            if (known == identities.end() || known->second != d[id].identity())
                refuse(contentsChanged);
        }
        for (NodeId id = 0; id < d.size(); ++id)
            if (d[id].isCloudPlaceholder())
                refuse(kCloudOnlyInside);
        for (NodeId id = 0; id < d.size(); ++id)
            if (auto flag = CleanupPolicy::fileProtection(paths[id]))
                refuse(named(paths[id]) + ": " + *flag);
        for (NodeId id = 0; id < d.size(); ++id)
            if (d[id].isDirectory() && CleanupPolicy::isProtectedSystemApp(paths[id]))
                refuse(kProtectedAppInside);
    }

    for (const std::string& program : platform::runningExecutables())
        if (PathText::contains(program, path))
            refuse("Quit " + named(path) + " before moving it to Trash.");
}

std::vector<CleanupEntry> CleanupEntry::normalized(const std::vector<CleanupEntry>& entries)
{
    std::vector<const CleanupEntry*> order;
    order.reserve(entries.size());
    for (const CleanupEntry& e : entries)
        order.push_back(&e);
    std::stable_sort(order.begin(), order.end(), [](const CleanupEntry* a, const CleanupEntry* b) {
        return characterCount(a->node.path) < characterCount(b->node.path);
    });

    std::vector<CleanupEntry> kept;
    std::unordered_map<std::string, std::size_t> index;
    for (const CleanupEntry* e : order) {
        std::string current = e->node.path;
        std::optional<std::size_t> cover;
        for (;;) {
            if (const auto hit = index.find(current); hit != index.end()) {
                cover = hit->second;
                break;
            }
            const auto slash = current.rfind('/');
            if (current == "/" || slash == std::string::npos)
                break;
            current = slash == 0 ? std::string("/") : current.substr(0, slash);
        }
        if (cover) {
            // try_emplace keeps the covering entry's value for a path both hold.
            for (const auto& [copy, identity] : e->retainedCopies)
                kept[*cover].retainedCopies.try_emplace(copy, identity);
            continue;
        }
        index.emplace(e->node.path, kept.size());
        kept.push_back(*e);
    }
    return kept;
}

namespace {

void writeIdentities(json::Writer& w, const IdentityMap& map)
{
    // Sorted keys: the same queue always writes the same file.
    std::vector<const IdentityMap::value_type*> sorted;
    sorted.reserve(map.size());
    for (const auto& item : map)
        sorted.push_back(&item);
    std::sort(sorted.begin(), sorted.end(), [](auto* a, auto* b) { return a->first < b->first; });
    w.beginObject();
    for (const auto* item : sorted) {
        w.key(item->first);
        json::write(w, item->second);
    }
    w.endObject();
}

IdentityMap readIdentities(const json::Value& object, const char* key)
{
    IdentityMap map;
    for (const auto& [path, identity] : object.membersAt(key))
        map.emplace(path, json::readIdentity(identity));
    return map;
}

} // namespace

void CleanupEntry::write(json::Writer& w) const
{
    w.beginObject();
    w.key("node");
    json::write(w, node);
    w.key("identities");
    writeIdentities(w, identities);
    w.key("stagedAt").date(stagedAt);
    w.key("reason").string(reason);
    w.key("retainedCopies");
    writeIdentities(w, retainedCopies);
    w.endObject();
}

CleanupEntry CleanupEntry::read(const json::Value& value)
{
    CleanupEntry e;
    e.node = json::readNode(value.at("node"));
    e.identities = readIdentities(value, "identities");
    e.stagedAt = json::dateAt(value, "stagedAt");
    e.reason = value.stringAt("reason");
    e.retainedCopies = readIdentities(value, "retainedCopies");
    return e;
}

CleanupBatch CleanupBatch::prepare(const std::vector<std::string>& paths, const ScanResult& scan,
                                   const std::string& reason, const CancellationFlag& cancellation)
{
    CleanupBatch batch;
    for (const std::string& path : paths) {
        cancellation.check();
        try {
            const auto node = scan.node(path);
            if (!node)
                refuse(kNoLongerInScan);
            const CleanupPolicy policy{platform::currentHome()};
            batch.entries.push_back(CleanupEntry::stage(*node, scan, reason, policy));
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            ++batch.skipped;
            if (batch.errors.size() < 8)
                batch.errors.push_back(named(path) + ": " + describeError(error));
        }
    }
    return batch;
}

} // namespace tarnbridge
